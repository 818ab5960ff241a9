// What operators write for plugins. The first character of the input decides what the rest is: URLs, the parameters of
// a plugin, a script.

#include <memory>

#include "failure.h"
#include "fuzzed.h"
#include "script.h"
#include "transcription/settings.h"
#include "url.h"
#include "websocket/settings.h"

namespace {

using fuzzed::require;
using namespace quillbrook;

void read_urls(const std::string &text) {
  for (const std::string &each : common::split_urls(text, "ws", "wss").urls) {
    const common::Url url = common::parse_url(each, "ws", "wss");
    const int port = std::stoi(url.port);
    require(!url.host.empty() && url.target[0] == '/' && port > 0 && port < 65536, "half a URL");
    for (const unsigned char c : url.host + url.authority + url.target) {
      require(c > ' ', "a request of more than one line");
    }
  }
}

void read_transcription(const std::string &text) {
  const auto record = std::make_unique<quillbrook_context>();
  text.copy(record->phrases, sizeof(record->phrases) - 1);
  text.copy(record->language, sizeof(record->language) - 1);
  transcription::request_fields({}, *record);
  const transcription::Settings settings = transcription::parse_settings(text);
  require(settings.longest_ms >= 1000 && settings.answer_limit >= 1024, "a number out of its range");
  transcription::request_fields(settings, *record);
}

// Steps are run by their numbers: each repeat has its done.
void read_script(const std::string &text) {
  for (const auto separator : {dummy::Separator::kLineEnd, dummy::Separator::kLineEndOrSemicolon}) {
    const dummy::Script script = dummy::parse(text, separator);
    if (!script.error.empty()) continue;
    for (size_t at = 0; at < script.steps.size(); ++at) {
      const dummy::Step &step = script.steps[at];
      if (step.word != dummy::Word::kRepeat && step.word != dummy::Word::kDone) continue;
      require(step.partner < script.steps.size() && script.steps[step.partner].partner == at, "half a loop");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzzed::Input input(data, size);
  const char kind = input.take_choice();
  const std::string text = input.take_rest().c_str();  // as the module hands it over
  try {
    switch (kind) {
      case 'u':
        read_urls(text);
        break;
      case 'w':
        websocket::parse_settings(text);
        break;
      case 't':
        read_transcription(text);
        break;
      default:
        read_script(text);
    }
  } catch (const common::Failure &failure) {
    require(failure.what()[0] != '\0', "a failure without a reason");
  }
  return 0;
}
