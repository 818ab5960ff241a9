// What servers send. The first character of the input decides what the rest is: an answer to the WebSocket handshake,
// frames, a message of the WebSocket protocol, a transcript, a streamed answer.

#include <nlohmann/json.hpp>

#include "answer.h"
#include "event_reader.h"
#include "failure.h"
#include "frames.h"
#include "fuzzed.h"
#include "handshake.h"
#include "json_text.h"
#include "transcript.h"

namespace {

using fuzzed::require;
using namespace quillbrook;

// The form in which the plugins pass texts on.
void check_words(const std::string &words) {
  require(nlohmann::json::accept(nlohmann::json(words).dump()), "no UTF-8");
  for (const unsigned char c : words) require(c >= ' ' && c != 0x7F, "a control character");
}

void check_percent(int confidence) {
  require(confidence >= 1 && confidence <= 100, "a confidence out of its range");
}

void read_message(const std::string &message) {
  const websocket::Answer answer = websocket::parse_answer(common::repaired(message));
  check_words(answer.text);
  if (answer.final) check_percent(answer.confidence);
}

// The messages in the bytes, and what ends them, with `step` bytes at a time.
std::vector<std::string> messages_in(const std::string &bytes, size_t step) {
  websocket::Frames frames;
  std::vector<std::string> messages;
  try {
    for (size_t from = 0; from < bytes.size(); from += step) {
      frames.input() += bytes.substr(from, step);
      std::string message;
      for (auto taken = frames.take(message); taken != websocket::Frames::Taken::kNothing;
           taken = frames.take(message)) {
        if (taken == websocket::Frames::Taken::kMessage) messages.push_back(std::exchange(message, ""));
      }
    }
  } catch (const common::Failure &failure) {
    messages.emplace_back(failure.what());
  }
  constexpr size_t kLongestPong = 131;
  require(frames.output().size() < websocket::kOutputLimit + kLongestPong, "the output grows");
  return messages;
}

// However the network cuts them.
void read_frames(const std::string &bytes) {
  const std::vector<std::string> messages = messages_in(bytes, bytes.size() + 1);
  for (const std::string &message : messages) require(message.size() <= websocket::kMessageLimit, "a long message");
  for (const size_t step : {1, 7}) require(messages_in(bytes, step) == messages, "pieces say something else");
}

void read_transcript(const std::string &message) {
  const std::string json = common::repaired(message);
  check_words(transcription::error_message(json));
  const transcription::Transcript transcript = transcription::parse_transcript(json, {});
  check_words(transcript.text);
  check_percent(transcript.confidence);
}

// However the network cuts it.
void read_stream(const std::string &answer) {
  transcription::EventReader whole, pieces;
  whole.read(answer);
  for (size_t size = 0; size < answer.size(); size += 1 + size / 2) pieces.read(answer.substr(0, size));
  pieces.read(answer);
  require(whole.text() == pieces.text(), "pieces say something else");
  require(nlohmann::json::accept(whole.whole()), "no JSON");
  check_words(common::cleaned(whole.text()));
  read_transcript(whole.whole());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzzed::Input input(data, size);
  const char kind = input.take_choice();
  const std::string text = input.take_rest();
  try {
    switch (kind) {
      case 'h':
        websocket::check_upgrade(text, "dGhlIHNhbXBsZSBub25jZQ==", "secret");
        break;
      case 'f':
        read_frames(text);
        break;
      case 'w':
        read_message(text);
        break;
      case 't':
        read_transcript(text);
        break;
      default:
        read_stream(text);
    }
  } catch (const common::Failure &failure) {
    require(failure.what()[0] != '\0', "a failure without a reason");
  }
  return 0;
}
