// A speech server that costs next to nothing, for measuring what stands in front of it. Both protocols.
//
//   stub_server [--port N] [--silence MS] [--times FILE]
//
// Over WebSocket it hears another word in each 200 ms of anything loud, and closes an utterance after so much quiet
// (500 without the option) or at the end of the audio. A form is answered at once. Each final has a text of its own,
// "word NUMBER", and a line in FILE: the text and the time at which it was sent, in microseconds since the epoch.
// Prints "port N" when it listens.
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "speech_server.h"

namespace {

using namespace speech_server;

constexpr int kLoud = 300;  // mean magnitude
constexpr size_t kBlock = 160;
constexpr int kBlockMs = 20;

struct Stub {
  int silence_ms = 500;
  FILE *times = nullptr;
  std::atomic<int> words{0};

  std::string next_word() {
    using std::chrono::microseconds;
    const std::string word = "word " + std::to_string(++words);
    const auto now = std::chrono::duration_cast<microseconds>(std::chrono::system_clock::now().time_since_epoch());
    if (times != nullptr) {
      fprintf(times, "%s %lld\n", word.c_str(), static_cast<long long>(now.count()));
      fflush(times);
    }
    return word;
  }
};

bool is_loud(const int16_t *samples) {
  long sum = 0;
  for (size_t i = 0; i < kBlock; ++i) sum += abs(samples[i]);
  return sum > kLoud * static_cast<long>(kBlock);
}

std::string final_message(Stub &stub) {
  return R"({"result": [{"conf": 0.9, "word": "word"}], "text": ")" + stub.next_word() + "\"}";
}

std::string partial_message(int loud_ms) {
  constexpr int kWordMs = 200;
  std::string words;
  for (int ms = 0; ms < loud_ms; ms += kWordMs) words += words.empty() ? "word" : " word";
  return R"({"partial": ")" + words + "\"}";
}

void converse(Peer &peer, Stub &stub) {
  Message message;
  int loud_ms = 0;
  int quiet_ms = 0;
  std::string audio;
  while (peer.receive(message)) {
    if (message.is_end_of_audio()) return peer.say(loud_ms > 0 ? final_message(stub) : R"({"text": ""})");
    if (message.opcode != kBinary) continue;
    audio += message.payload;
    size_t at = 0;
    int16_t block[kBlock];
    for (; at + sizeof block <= audio.size(); at += sizeof block) {
      memcpy(block, audio.data() + at, sizeof block);
      const bool loud = is_loud(block);
      quiet_ms = loud ? 0 : quiet_ms + kBlockMs;
      loud_ms += loud ? kBlockMs : 0;
    }
    audio.erase(0, at);
    const bool over = loud_ms > 0 && quiet_ms >= stub.silence_ms;
    peer.say(over ? final_message(stub) : partial_message(loud_ms));
    if (over) loud_ms = 0;
  }
}

void serve(Peer &peer, Stub &stub) {
  Request request;
  while (peer.receive(request)) {
    if (request.wants_upgrade()) {
      peer.upgrade(request);
      return converse(peer, stub);
    }
    peer.raw(answer("200 OK", R"({"text": ")" + stub.next_word() + "\"}", "Content-Type: application/json\r\n"));
  }
}

}  // namespace

int main(int count, char **arguments) {
  std::map<std::string, std::string> options = {{"--port", "0"}, {"--silence", "500"}, {"--times", ""}};
  for (int i = 1; i + 1 < count; i += 2) options[arguments[i]] = arguments[i + 1];
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  Stub stub;
  stub.silence_ms = atoi(options["--silence"].c_str());
  if (!options["--times"].empty()) stub.times = fopen(options["--times"].c_str(), "we");
  const Server server([&](Peer &peer) { serve(peer, stub); }, atoi(options["--port"].c_str()));
  printf("port %d\n", server.port());
  fflush(stdout);
  int signal = 0;
  sigwait(&ends, &signal);
  return 0;
}
