// A speech server for demonstrations and live tests: two protocols in front, a plugin behind them.
//
//   recognising_server --plugin FILE [OPTIONS]; --help lists them
//
// Prints "port N" when it listens on the loopback address, and serves until it gets SIGTERM or SIGINT. A client that
// asks for WebSocket speaks the protocol of port 2700; one that sends a form has its file transcribed. Each connection
// of the first and each form of the second is one run of the plugin in FILE.
//
// With --behave the server is one that fails: "mute" never answers, "die" is gone after the first audio, "die-once" on
// its first connection only, "garbage" answers with no JSON. A WebSocket is also gone after the first words, with
// "die-after-words"; forms are also refused, with "unauthorized", "busy" (the first time) and "broken".
#include <pthread.h>

#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "recognition.h"
#include "speech_server.h"

namespace {

using namespace speech_server;
using nlohmann::json;

// What a client lists among its phrases that wants to hear of speech that is none of them.
constexpr char kUnknownWord[] = "[unk]";
constexpr char kGarbage[] = "<html>";

struct Service {
  Plugin plugin;
  std::string configuration;
  std::string behaviour;
  std::atomic<int> forms{0};
  bool behaves(const char *how) const { return behaviour == how; }
};

// ---- WebSocket
// -------------------------------------------------------------------------------------------------------

struct Phrases {
  std::string list;
  bool has_unknown = false;
};

Phrases phrases_of(const json &config) {
  Phrases phrases;
  for (const auto &phrase : config.value("phrase_list", json::array())) {
    if (phrase == kUnknownWord) {
      phrases.has_unknown = true;
    } else {
      phrases.list += (phrases.list.empty() ? "" : ",") + phrase.get<std::string>();
    }
  }
  return phrases;
}

std::string final_message(const Words &words, bool has_unknown) {
  const std::string text = words.text.empty() && has_unknown ? kUnknownWord : words.text;
  const double confidence = words.text.empty() ? 1.0 : words.confidence / 100.0;
  json result = json::array();
  size_t from = 0;
  while ((from = text.find_first_not_of(' ', from)) != std::string::npos) {
    const size_t end = std::min(text.find(' ', from), text.size());
    result.push_back({{"conf", confidence}, {"word", text.substr(from, end - from)}});
    from = end;
  }
  return json{{"result", result}, {"text", text}}.dump();
}

// Whether the connection goes on after this answer.
bool say(Peer &peer, const Service &service, const std::string &message) {
  if (service.behaves("mute")) return true;
  if (service.behaves("die") || (service.behaves("die-once") && peer.number() == 0)) return false;
  peer.say(service.behaves("garbage") ? kGarbage : message);
  return !service.behaves("die-after-words") || message == R"({"partial":""})";
}

void converse(Peer &peer, const Service &service) {
  Message message;
  if (!peer.receive(message) || message.opcode != kText) return;
  const json request = json::parse(message.payload, nullptr, false);
  const auto config = request.is_object() ? request.value("config", json::object()) : json::object();
  const Phrases phrases = phrases_of(config);
  Recognition recognition(service.plugin, service.configuration, config.value("sample_rate", 8000U), phrases.list);
  Words words;
  while (peer.receive(message)) {
    if (message.is_end_of_audio()) {
      recognition.finalize();
      if (!recognition.await_final(words)) words = {recognition.interim(), 50};
      say(peer, service, final_message(words, phrases.has_unknown));
      return;
    }
    if (message.opcode != kBinary) continue;
    recognition.hear(message.payload);
    const bool is_final = recognition.take_final(words);
    const std::string partial = json{{"partial", recognition.interim()}}.dump();
    if (!say(peer, service, is_final ? final_message(words, phrases.has_unknown) : partial)) return;
  }
}

// ---- Forms
// -----------------------------------------------------------------------------------------------------------

// The prompt of the form is taken for the phrases to expect.
Words transcribe(const Service &service, std::map<std::string, std::string> form) {
  constexpr size_t kHeaderSize = 44;
  const std::string &file = form["file"];
  if (file.size() < kHeaderSize) throw std::runtime_error("the form holds no WAV file");
  uint32_t rate = 0;
  memcpy(&rate, file.data() + 24, sizeof rate);
  Recognition recognition(service.plugin, service.configuration, rate, form["prompt"]);
  recognition.hear(file.substr(kHeaderSize));
  recognition.hear(std::string(rate * 2UL, '\0'));  // a second of silence ends the utterance
  Words words;
  recognition.await_final(words);
  return words;
}

std::string transcript(const Words &words) {
  json segments = json::array();
  if (!words.text.empty()) {
    segments.push_back({{"start", 0.0},
                        {"end", 1.0},
                        {"text", " " + words.text},
                        {"no_speech_prob", 0.01},
                        {"avg_logprob", std::log(std::max(words.confidence, 1) / 100.0)}});
  }
  return json{{"text", words.text}, {"segments", segments}}.dump();
}

// Whether the connection goes on.
bool take_form(Peer &peer, Service &service, const Request &request) {
  const int number = service.forms++;
  if (service.behaves("mute")) peer.ignore();
  if (service.behaves("die") || (service.behaves("die-once") && peer.number() == 0)) return false;
  const std::string json_type = "Content-Type: application/json\r\n";
  if (service.behaves("garbage")) {
    peer.raw(answer("200 OK", kGarbage));
  } else if (service.behaves("unauthorized")) {
    peer.raw(answer("401 Unauthorized", R"({"error": {"message": "no such key"}})", json_type));
  } else if (service.behaves("busy") && number == 0) {
    peer.raw(answer("429 Too Many Requests", R"({"detail": "busy"})", json_type + "Retry-After: 1\r\n"));
  } else if (service.behaves("broken")) {
    peer.raw(answer("500 Internal Server Error", R"({"error": "out of memory"})", json_type));
  } else {
    peer.raw(answer("200 OK", transcript(transcribe(service, request.form())), json_type));
  }
  return true;
}

void serve(Peer &peer, Service &service) {
  Request request;
  while (peer.receive(request)) {
    if (request.wants_upgrade()) {
      peer.upgrade(request);
      return converse(peer, service);
    }
    if (!take_form(peer, service, request)) return;
  }
}

}  // namespace

constexpr char kHelp[] =
    "recognising_server: a speech server of the WebSocket protocol and of HTTP transcription, with a plugin behind\n"
    "it\n\n"
    "  --plugin FILE          the plugin, such as build/lib/quillbrook/plugin_pocketsphinx.so; must be given\n"
    "  --port N               to listen on, on 127.0.0.1; a free one when left out. \"port N\" tells which\n"
    "  --configuration TEXT   for the plugin\n"
    "  --certificate FILE, --key FILE   in PEM, for wss:// in place of ws://\n"
    "  --behave HOW           be a server that fails: mute, die, die-once, die-after-words, garbage; for\n"
    "                         forms also unauthorized, busy, broken\n\n"
    "It serves until SIGTERM or SIGINT. Then, in quillbrook.conf: url=ws://127.0.0.1:N or\n"
    "url=http://127.0.0.1:N/v1/audio/transcriptions\n";

int main(int count, char **arguments) {
  if (count == 2 && (strcmp(arguments[1], "--help") == 0 || strcmp(arguments[1], "-h") == 0)) {
    fputs(kHelp, stdout);
    return 0;
  }
  std::map<std::string, std::string> options = {{"plugin", ""},      {"port", "0"}, {"configuration", ""},
                                                {"certificate", ""}, {"key", ""},   {"behave", ""}};
  for (int i = 1; i < count; i += 2) {
    const std::string name = strncmp(arguments[i], "--", 2) == 0 ? arguments[i] + 2 : "";
    if (options.count(name) == 0 || i + 1 == count) {
      fprintf(stderr, "recognising_server: '%s' is no option with a value; --help lists them\n", arguments[i]);
      return 2;
    }
    options[name] = arguments[i + 1];
  }
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  try {
    if (options["plugin"].empty()) throw std::runtime_error("--plugin must be given; --help lists the options");
    Service service{load(options["plugin"]), options["configuration"], options["behave"]};
    const auto answer = [&](Peer &peer) {
      try {
        serve(peer, service);
      } catch (const std::exception &error) {
        fprintf(stderr, "recognising_server: %s\n", error.what());
      }
    };
    const Server server(answer, atoi(options["port"].c_str()), {options["certificate"], options["key"]});
    printf("port %d\n", server.port());
    fflush(stdout);
    int signal = 0;
    sigwait(&ends, &signal);
  } catch (const std::exception &error) {
    fprintf(stderr, "recognising_server: %s\n", error.what());
    return 1;
  }
  return 0;
}
