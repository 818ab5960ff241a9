#include "scenario.h"

#include <gtest/gtest.h>

#include <thread>

#include "record/session.h"
#include "stand_in.h"

namespace {

using stand_in::Inside;
using stand_in::Outside;

constexpr size_t kFileSize = 1000;  // of the texts that a session loads

constexpr char kConfiguration[] =
    "plugin=good.so\nverbose=yes\nloggingtag=param\nphrases=yes\nlogtag=yes\n"
    "completetimeout=1000\nincompletetimeout=3000\nstoptimeout=0\nprofiles=json,xml,live,early\n"
    "[json]\nreturnjson=yes\ndsp=yes\nevents=interims\ntrace=/nonexistent\n"
    "[xml]\nreturnnlsml=yes\nnormalize_phrases=yes\n"
    "[live]\ncontinuous=yes\nwaitclose=yes\nreturnnlsml=yes\n"
    "[early]\nearlyspeechtimeout=60\nminspeechtimeout=20\n";

// A plugin that listens, says its lines once and then keeps still until it is stopped. Time passes only here.
std::atomic<bool> spoken{false};  // the caller's words are in the stream
std::atomic<int> silent{0};       // loops that have said their lines, and wait

template <typename Condition>
void until(Condition &&condition) {
  while (!condition()) std::this_thread::sleep_for(std::chrono::microseconds(20));
}

int init(quillbrook_context *) {
  return 0;
}

// Whether the record holds what stands in the session's files.
bool is_told_all(const quillbrook_context &context) {
  const auto *configuration = static_cast<const char *>(context.config_pointer);
  return context.phrases[0] && strlen(context.context) == kFileSize && configuration &&
         strlen(configuration) == kFileSize;
}

void *loop(quillbrook_context *context) {
  const Outside outside;
  const auto say = [context](const char *text, int score) {
    const Inside inside;
    context->callback(context, text, score);
  };
  const auto stopped = [context] {
    return __atomic_load_n(&context->hangup, __ATOMIC_ACQUIRE) == QUILLBROOK_HANGUP_STOPPED;
  };
  until([&] { return spoken || stopped(); });
  constexpr size_t kHeader = 44;
  say("one", QUILLBROOK_SCORE_INTERIM);
  context->extra_pointer = "{\"text\": \"one two\"}";
  say(stand_in::file_content(context->filename).size() > kHeader ? "one two" : "deaf", 80);
  say(is_told_all(*context) ? "three" : "four", QUILLBROOK_SCORE_INTERIM);
  say(nullptr, QUILLBROOK_SCORE_INTERIM);
  for (int tick = 0; tick < 10; ++tick) {
    stand_in::advance_ms(500);
    say(nullptr, QUILLBROOK_SCORE_INTERIM);
  }
  ++silent;
  until(stopped);
  --silent;
  say("", QUILLBROOK_SCORE_END);
  return nullptr;
}

void stop(quillbrook_context *context) {
  __atomic_store_n(&context->hangup, QUILLBROOK_HANGUP_STOPPED, __ATOMIC_RELEASE);
  __atomic_store_n(&context->finalize, 1, __ATOMIC_RELEASE);
}

// One call, as the host's applications make it.
class Call {
public:
  Call(Outcome &outcome, const std::string &engine) : outcome_(outcome) {
    host_engine_ = stand_in::find_engine(engine);
    see(engine + (host_engine_ ? "" : ": no engine"));
    if (!host_engine_) return;
    speech_.engine = host_engine_;
    ast_mutex_init(&speech_.lock);
    if (!entry([&] { return host_engine_->create(&speech_, ast_format_slin); }) == !speech_.data) {
      see("broken: the result of create");
    }
    see(speech_.data ? "session" : "no session");
  }
  ~Call() {
    if (speech_.data) entry([&] { return host_engine_->destroy(&speech_); });
    if (host_engine_) ast_mutex_destroy(&speech_.lock);
  }

  void prepare(const std::string &folder) {
    if (!speech_.data) return;
    const std::pair<const char *, std::string> grammars[] = {
        {"words", folder + "words.jsgf"},     {"more", folder + "more.jsgf"},    {"phrases", folder + "phrases.txt"},
        {"conf", folder + "configuration_a"}, {"context", folder + "context_a"}, {"", "property:Speech-Language=en"},
        {"", "builtin:grammar/model=m"},
    };
    for (const auto &[name, path] : grammars) {
      const std::string kept = path;
      command([&, name = name] { return host_engine_->load(&speech_, name, kept.c_str()); });
    }
    command([&] { return host_engine_->activate(&speech_, "words"); });
    command([&] { return host_engine_->deactivate(&speech_, "more"); });
    command([&] { return host_engine_->unload(&speech_, "more"); });
    entry([&] { return host_engine_->change(&speech_, "a", "b"); });
    char text[10];
    entry([&] { return host_engine_->get_setting(&speech_, "a", text, sizeof(text)); });
    entry([&] { return host_engine_->change_results_type(&speech_, AST_SPEECH_RESULTS_TYPE_NBEST); });
  }

  // A question: SpeechStart, SpeechBackground until the caller is let go, and what he gets.
  void ask(bool prompt) {
    if (!speech_.data) return;
    speech_.flags = 0;
    spoken = false;
    command([&] { return host_engine_->start(&speech_); });
    listen();
    if (prompt) command([&] { return host_engine_->start(&speech_); });
    const int64_t patience = stand_in::slept_us() + 5'000'000;  // the dialplan's own timeout
    until([&] { return nobody_speaks() || stand_in::slept_us() > patience; });
    for (int results = 0; state() == AST_SPEECH_STATE_DONE && results < 5; ++results) {
      speech_.state = AST_SPEECH_STATE_NOT_READY;
      collect();
    }
    if (state() == AST_SPEECH_STATE_READY && (__atomic_load_n(&speech_.flags, __ATOMIC_ACQUIRE) & AST_SPEECH_QUIET) &&
        !collected_) {
      see("broken: the caller waits for ever");
    }
    if (!collected_) collect();
    collected_ = false;
  }

  void key() {
    if (!speech_.data) return;
    command([&] { return host_engine_->start(&speech_); });
    listen();
    command([&] { return host_engine_->dtmf(&speech_, "1"); });
    speech_.state = AST_SPEECH_STATE_NOT_READY;
  }

private:
  template <typename Body>
  int entry(Body &&body) {
    const Inside inside;
    return body();
  }
  // The host hangs up on any other result.
  template <typename Body>
  void command(Body &&body) {
    if (entry(body) != 0) see("broken: the caller is hung up");
  }
  int state() { return __atomic_load_n(&speech_.state, __ATOMIC_ACQUIRE); }

  void listen() {
    std::vector<int16_t> audio(1600, 3000);
    entry([&] { return host_engine_->write(&speech_, audio.data(), 320); });
    entry([&] { return host_engine_->write(&speech_, audio.data(), 3200); });
    spoken = true;
  }

  bool nobody_speaks() {
    const quillbrook_recognition_t *recognition = quillbrook_session_of(&speech_)->recognition;
    const int running = recognition ? shared_load(recognition->running) : 0;
    return silent >= running;
  }

  void collect() {
    ast_speech_result *result = nullptr;
    entry([&] { return result = host_engine_->get(&speech_), 0; });
    collected_ = true;
    if (!result) return see("no result");
    const std::string text = result->text ? result->text : "(null)";
    const bool document = stand_in::file_exists(text) && text[0] == '/';
    see(std::to_string(result->score) + " " + (document ? stand_in::file_content(text) : text));
    ast_free(result->text);
    ast_free(result);
  }

  void see(const std::string &line) { outcome_.push_back(line); }

  Outcome &outcome_;
  ast_speech_engine *host_engine_;
  ast_speech speech_{};
  bool collected_ = false;
};

void look_around(Outcome &outcome) {
  for (const char *command : {"quillbrook show version", "quillbrook show plugins", "quillbrook show statistics",
                              "quillbrook show dates", "quillbrook reset statistics", "quillbrook show"}) {
    const std::string text = stand_in::run_command(command);
    outcome.push_back(std::string(command) + (text.empty() ? " says nothing" : ""));
  }
  for (const char *uri : {"quillbrook_metrics", "quillbrook_engine_metrics", "quillbrook_jsgf"}) {
    for (const ast_http_method method : {AST_HTTP_GET, AST_HTTP_POST}) {
      const stand_in::Response response = stand_in::http_request(uri, method, {{"value", "1"}}, {{"value", "2"}});
      outcome.push_back(uri + (" " + std::to_string(response.status)));
    }
  }
}

void write_files(bool twin) {
  stand_in::write_config("quillbrook.conf", std::string("[general]\n") + (twin ? "twin=yes\n" : "") +
                                                "logfile=" + kPluginLog + "\n" + kConfiguration);
  stand_in::write_config("words.jsgf", "#JSGF V1.0;\ngrammar a;\npublic <r> = one two [three] {YES};\n");
  stand_in::write_config("more.jsgf", "#JSGF V1.0;\ngrammar a;\npublic <r> = four;\n");
  for (const char *name : {"phrases.txt", "configuration_a", "context_a"}) {
    stand_in::write_config(name, std::string(kFileSize, 'x'));
  }
}

void live(Outcome &outcome, const std::string &folder) {
  look_around(outcome);
  for (const char *engine :
       {"quillbrook", "quillbrook:json", "quillbrook:xml", "quillbrook:live", "quillbrook:early"}) {
    Call call(outcome, engine);
    call.prepare(folder);
    const bool prompt = engine == std::string("quillbrook:early");
    call.ask(prompt);
    if (engine == std::string("quillbrook:xml")) outcome.push_back(stand_in::run_command("quillbrook reload anyway"));
    call.key();
    call.ask(prompt);
  }
  stand_in::reload_module();
  while (stand_in::unload_module() != 0) outcome.emplace_back("not unloaded");
}

}  // namespace

void offer_plugins() {
  stand_in::add_plugin("/usr/lib/quillbrook/good.so", {{"quillbrook_init", reinterpret_cast<void *>(init)},
                                                       {"quillbrook_loop", reinterpret_cast<void *>(loop)},
                                                       {"quillbrook_stop", reinterpret_cast<void *>(stop)}});
  for (const char *value : {"uniqueid", "remote", "tag", "param"}) {
    stand_in::answer_command(std::string("tandrel show session threadid ") + value, value);
  }
  stand_in::add_channel("uniqueid", true);
}

Outcome run_scenario(bool twin) {
  Outcome outcome;
  write_files(twin);
  const std::string file = stand_in::real_path(stand_in::config_path("quillbrook.conf"));
  const std::string folder = file.substr(0, file.rfind('/'));
  ast_config_AST_CONFIG_DIR = folder.c_str();
  if (stand_in::load_module() != 0) {
    outcome.emplace_back("not loaded");
  } else {
    // The grammars stand where the stand-in keeps the configuration.
    live(outcome, "/etc/asterisk/");
  }
  return outcome;
}
