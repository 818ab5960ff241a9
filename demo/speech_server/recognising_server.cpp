// A speech server for demonstrations and live tests: the WebSocket protocol in front, a plugin behind it.
//
//   recognising_server --plugin FILE [OPTIONS]; --help lists them
//
// Prints "port N" when it listens on the loopback address, and serves until it gets SIGTERM or SIGINT. Each connection
// is one run of the plugin in FILE: chunks of audio go into its stream file, each is answered by what the plugin says
// at that moment, and the client's end of audio by its last words. With --behave the server is one that fails:
// "mute" never answers, "die" is gone after the first audio, "die-after-words" after the first words,
// "die-once" on its first connection only, "garbage" answers with no JSON.
#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>

#include "quillbrook.h"
#include "speech_server.h"

namespace {

using nlohmann::json;
using speech_server::Message;
using speech_server::Peer;

// What a client lists among its phrases that wants to hear of speech that is none of them.
constexpr char kUnknownWord[] = "[unk]";

struct Plugin {
  quillbrook_function_init *init;
  quillbrook_function_loop *loop;
  quillbrook_function_stop *stop;
};

Plugin load(const std::string &file) {
  void *library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw std::runtime_error(dlerror());
  const auto symbol = [&](const char *name) {
    void *found = dlsym(library, name);
    if (found == nullptr) throw std::runtime_error(file + " has no " + name);
    return found;
  };
  return {reinterpret_cast<quillbrook_function_init *>(symbol("quillbrook_init")),
          reinterpret_cast<quillbrook_function_loop *>(symbol("quillbrook_loop")),
          reinterpret_cast<quillbrook_function_stop *>(symbol("quillbrook_stop"))};
}

// One run of the plugin, with the part of the module played by this server.
class Recognition {
public:
  Recognition(const Plugin &plugin, const std::string &configuration, const json &config) : plugin_(plugin) {
    char path[] = "/tmp/quillbrook-server.XXXXXX.wav";
    const int file = mkstemps(path, 4);
    if (file < 0) throw std::runtime_error("no stream file can be made");
    file_ = fdopen(file, "wb");
    path_ = path;
    const auto rate = config.value("sample_rate", 8000U);
    const uint32_t format[] = {16, 0x00010001, rate, rate * 2, 0x00100002};
    fwrite("RIFF\0\0\0\0WAVEfmt ", 1, 16, file_);
    fwrite(format, 1, sizeof format, file_);
    fwrite("data\0\0\0\0", 1, 8, file_);

    std::string phrases;
    for (const auto &phrase : config.value("phrase_list", json::array())) {
      if (phrase == kUnknownWord) {
        says_unknown_ = true;
      } else {
        phrases += (phrases.empty() ? "" : ",") + phrase.get<std::string>();
      }
    }
    snprintf(record_.phrases, sizeof record_.phrases, "%s", phrases.c_str());
    snprintf(record_.configuration, sizeof record_.configuration, "%s", configuration.c_str());
    snprintf(record_.param, sizeof record_.param, "server");
    record_.speedvsaccuracy = -1;
    record_.silence = &silence_;
    record_.filename = path_.data();
    record_.format = "wav";
    record_.buffer_size = 1600;
    record_.interims = 1;
    record_.uniqueid = path_.data();
    record_.mark = path_.data();
    record_.asterisk_pointer = this;
    record_.callback = [](quillbrook_context *context, const char *text, int score) {
      return static_cast<Recognition *>(context->asterisk_pointer)->take(text != nullptr ? text : "", score);
    };
    if (plugin_.init(&record_) != 0) throw std::runtime_error("the plugin refuses");
    loop_ = std::thread([this] { run(); });
  }
  ~Recognition() {
    plugin_.stop(&record_);
    loop_.join();
    if (record_.extra[0] != '\0') fprintf(stderr, "%s\n", record_.extra);
    fclose(file_);
    unlink(path_.c_str());
  }
  Recognition(const Recognition &) = delete;
  Recognition &operator=(const Recognition &) = delete;

  void hear(const std::string &audio) {
    fwrite(audio.data(), 1, audio.size(), file_);
    fflush(file_);
  }
  // What there is to say now: a piece that is final, else the present hypothesis.
  std::string answer() {
    const std::lock_guard<std::mutex> guard(lock_);
    if (finals_.empty()) return json{{"partial", interim_}}.dump();
    std::string oldest = finals_.front();
    finals_.pop_front();
    return oldest;
  }
  // The last piece, for which the plugin is asked to come to an end.
  std::string last_answer() {
    constexpr std::chrono::seconds kLimit{5};
    __atomic_store_n(&record_.finalize, 1, __ATOMIC_RELEASE);
    std::unique_lock<std::mutex> guard(lock_);
    changed_.wait_for(guard, kLimit, [this] { return over_ || !finals_.empty(); });
    return finals_.empty() ? final_answer(interim_, 50) : finals_.front();
  }

private:
  void run() {
    plugin_.loop(&record_);
    const std::lock_guard<std::mutex> guard(lock_);
    over_ = true;
    changed_.notify_all();
  }

  static std::string final_answer(const std::string &text, int confidence) {
    json words = json::array();
    size_t from = 0;
    while ((from = text.find_first_not_of(' ', from)) != std::string::npos) {
      const size_t end = std::min(text.find(' ', from), text.size());
      words.push_back({{"conf", confidence / 100.0}, {"word", text.substr(from, end - from)}});
      from = end;
    }
    return json{{"result", words}, {"text", text}}.dump();
  }

  int take(const std::string &text, int score) {
    const std::lock_guard<std::mutex> guard(lock_);
    if (score == QUILLBROOK_SCORE_INTERIM && !text.empty()) interim_ = text;
    if (score > 0 && !text.empty()) finals_.push_back(final_answer(text, score));
    if (score == QUILLBROOK_SCORE_NO_CONFIDENCE && !text.empty()) {
      finals_.push_back(final_answer(says_unknown_ ? kUnknownWord : "", 100));
    }
    if (score != QUILLBROOK_SCORE_INTERIM && !text.empty()) interim_.clear();
    changed_.notify_all();
    return 0;
  }

  const Plugin &plugin_;
  quillbrook_context record_ = {};
  std::string path_;
  FILE *file_ = nullptr;
  int silence_ = 0;
  bool says_unknown_ = false;
  std::thread loop_;
  std::mutex lock_;  // guards what follows
  std::condition_variable changed_;
  std::string interim_;
  std::deque<std::string> finals_;
  bool over_ = false;
};

// Whether the connection goes on after this answer.
bool say(Peer &peer, const std::string &behaviour, const std::string &answer) {
  if (behaviour == "mute") return true;
  if (behaviour == "die" || (behaviour == "die-once" && peer.number() == 0)) return false;
  peer.say(behaviour == "garbage" ? "<html>" : answer);
  return behaviour != "die-after-words" || answer == R"({"partial":""})";
}

void serve(Peer &peer, const Plugin &plugin, std::map<std::string, std::string> &options) {
  Message message;
  if (!peer.accept() || !peer.receive(message) || message.opcode != speech_server::kText) return;
  const json request = json::parse(message.payload, nullptr, false);
  const auto config = request.is_object() ? request.value("config", json::object()) : json::object();
  Recognition recognition(plugin, options["configuration"], config);
  while (peer.receive(message)) {
    if (message.is_end_of_audio()) {
      say(peer, options["behave"], recognition.last_answer());
      return;
    }
    if (message.opcode != speech_server::kBinary) continue;
    recognition.hear(message.payload);
    if (!say(peer, options["behave"], recognition.answer())) return;
  }
}

}  // namespace

constexpr char kHelp[] =
    "recognising_server: a speech server of the WebSocket protocol, with a plugin behind it\n\n"
    "  --plugin FILE          the plugin, such as build/lib/quillbrook/plugin_pocketsphinx.so; must be given\n"
    "  --port N               to listen on, on 127.0.0.1; a free one when left out. \"port N\" tells which\n"
    "  --configuration TEXT   for the plugin\n"
    "  --certificate FILE, --key FILE   in PEM, for wss:// in place of ws://\n"
    "  --behave HOW           be a server that fails: mute, die, die-once, die-after-words, garbage\n\n"
    "It serves until SIGTERM or SIGINT. Then, in quillbrook.conf: url=ws://127.0.0.1:N\n";

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
    const Plugin plugin = load(options["plugin"]);
    const auto answer = [&](Peer &peer) {
      try {
        serve(peer, plugin, options);
      } catch (const std::exception &error) {
        fprintf(stderr, "recognising_server: %s\n", error.what());
      }
    };
    const speech_server::Server server(answer, atoi(options["port"].c_str()), {options["certificate"], options["key"]});
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
