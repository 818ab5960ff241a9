#include "trial.h"

#include "../grammar/grammar_commands.h"
#include "../record/session.h"
#include "../support/monotonic.h"
#include "../support/printable.h"
#include "entries.h"

namespace {

constexpr int kFrameMs = 20;
constexpr int kFrameBytes = 320;
constexpr char kExtension[] = ".wav";
constexpr char kGrammarName[] = "trial";

using Print = std::function<void(const std::string &)>;

std::string format(const char *text, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char *text, ...) {
  char line[2 * kPrintableMax];
  va_list arguments;
  va_start(arguments, text);
  vsnprintf(line, sizeof(line), text, arguments);
  va_end(arguments);
  return line;
}

// The audio of a recording, a frame at a time, and silence behind it.
class Recording {
public:
  explicit Recording(const std::string &path) {
    const size_t end = path.size() < sizeof(kExtension) ? 0 : path.size() - (sizeof(kExtension) - 1);
    if (end && path.compare(end, std::string::npos, kExtension) == 0) {
      file_ = ast_readfile(path.substr(0, end).c_str(), kExtension + 1, nullptr, 0, 0, 0);
    }
  }
  ~Recording() {
    if (file_) {
      ast_closestream(file_);
    }
  }
  Recording(const Recording &) = delete;
  Recording &operator=(const Recording &) = delete;

  bool is_open() const { return file_; }
  // What was read, and the silence behind it, in milliseconds.
  int length() const { return length_; }
  int tail() const { return tail_; }

  void write_frame_to(struct ast_speech *speech) {
    struct ast_frame *frame = over_ ? nullptr : ast_readframe(file_);
    over_ = !frame;
    if (frame) {
      quillbrook_recog_write(speech, frame->data.ptr, frame->datalen);
      ast_frame_free(frame, 1);
      length_ += kFrameMs;
    } else {
      char silence[kFrameBytes] = {};
      quillbrook_recog_write(speech, silence, kFrameBytes);
      tail_ += kFrameMs;
    }
  }

private:
  struct ast_filestream *file_ = nullptr;
  bool over_ = false;
  int length_ = 0;
  int tail_ = 0;
};

// The part of the host's dialplan application.
class Trial {
public:
  Trial(const quillbrook_trial &trial, const Print &print) : trial_(trial), print_(print), recording_(trial.recording) {
    copy_text(engine_name_, trial.engine.c_str());
    engine_.name = engine_name_;
    speech_.engine = &engine_;
    ast_mutex_init(&speech_.lock);
  }
  ~Trial() { ast_mutex_destroy(&speech_.lock); }
  Trial(const Trial &) = delete;
  Trial &operator=(const Trial &) = delete;

  void run() {
    if (!recording_.is_open()) {
      print_("Cannot read " + trial_.recording + ": it has to be a .wav file of 8 kHz, mono, 16 bit");
      return;
    }
    if (!is_ours() || quillbrook_recog_create(&speech_, nullptr)) {
      print_("There is no engine " + trial_.engine +
             ", or it cannot be used: see 'quillbrook show plugins' and the log");
      return;
    }
    take_words();
    begin();
    while (recording_.tail() < kTrialTail && !is_over()) {
      recording_.write_frame_to(&speech_);
      sleep_until_next_frame();
      print_interim();
    }
    if (!continuous() && results_ == 0) {
      take_result();
    }
    print_(format("The recording lasts %d ms; %d result%s", recording_.length(), results_, results_ == 1 ? "" : "s"));
    quillbrook_recog_destroy(&speech_);
  }

private:
  // The host would ask us for no other name.
  bool is_ours() const {
    const size_t prefix = strlen(kEngineName);
    return trial_.engine.compare(0, prefix, kEngineName) == 0 &&
           (trial_.engine.size() == prefix || trial_.engine[prefix] == ':');
  }

  bool continuous() const { return quillbrook_session_of(&speech_)->engine->continuous; }

  void take_words() {
    if (trial_.words.empty()) {
      return;
    }
    if (trial_.words[0] == '/') {
      quillbrook_recog_load_grammar(&speech_, kGrammarName, trial_.words.c_str());
      quillbrook_recog_activate_grammar(&speech_, kGrammarName);
      return;
    }
    quillbrook_speech_t *session = quillbrook_session_of(&speech_);
    quillbrook_release_text(session->phrases);
    session->phrases = ast_strdup(trial_.words.c_str());
  }

  void begin() {
    const int64_t before = monotonic_ms();
    quillbrook_recog_start(&speech_);
    start_ = next_frame_ = monotonic_ms();
    print_(format("The start took %d ms", static_cast<int>(start_ - before)));
  }

  void sleep_until_next_frame() {
    next_frame_ += kFrameMs;
    const int64_t left = next_frame_ - monotonic_ms();
    if (left > 0) {
      usleep(static_cast<useconds_t>(left * 1000));
    }
  }

  double seconds() const { return static_cast<double>(monotonic_ms() - start_) / 1000; }

  std::string setting(const char *name) {
    char value[kPrintableMax + 1] = "";
    quillbrook_recog_get_settings(&speech_, name, value, sizeof(value));
    return Printable(value).text();
  }

  void print_interim() {
    const std::string interim = setting("interim");
    if (interim != interim_ && !interim.empty()) {
      print_(format("%6.2f s  interim  %s", seconds(), interim.c_str()));
    }
    interim_ = interim;
  }

  // Takes the results that wait. A single-shot recognition has one.
  bool is_over() {
    if (shared_load(speech_.state) != AST_SPEECH_STATE_DONE) {
      return false;
    }
    take_result();
    return !continuous();
  }

  void take_result() {
    const double when = seconds();
    struct ast_speech_result *result = quillbrook_recog_get(&speech_);
    if (!result) {
      return;
    }
    ++results_;
    print_(format("%6.2f s  result   %s", when, Printable(result->text).text()));
    print_(format("          score %d", result->score));
    for (const char *name : {"cause", "reason", "input", "meaning", "grammar", "rule", "first", "length"}) {
      const std::string value = setting(name);
      if (!value.empty()) {
        print_(format("          %s %s", name, value.c_str()));
      }
    }
    ast_free(result->text);
    ast_free(result);
  }

  const quillbrook_trial &trial_;
  const Print &print_;
  Recording recording_;
  char engine_name_[kEngineNameSize];
  struct ast_speech_engine engine_ = {};
  struct ast_speech speech_ = {};
  int64_t start_ = 0;
  int64_t next_frame_ = 0;
  std::string interim_;
  int results_ = 0;
};

}  // namespace

void quillbrook_run_trial(const quillbrook_trial &trial, const Print &print) {
  Trial(trial, print).run();
}
