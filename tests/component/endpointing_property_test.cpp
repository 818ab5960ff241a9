// Random messages and clock steps, against a second statement of the rules that shares no code with the module.
//
// The model works on whole milliseconds and looks at a call as a list of facts (which silences have expired, what holds
// them back) from which the outcome follows. Steps of the clock are drawn so that they often land on a limit or one
// millisecond above it. A failure prints the seed and the road to it.
#include <optional>
#include <random>
#include <regex>

#include "../../res_speech_quillbrook/result/services.h"
#include "session_fixture.h"

namespace {

struct Model {
  explicit Model(const quillbrook_engine_t &settings) : set(settings) {}

  const quillbrook_engine_t &set;
  // The plugin's record.
  int complete = set.completetimeout, incomplete = set.incompletetimeout, finalize = 0;
  bool quantum = false, hangup = false;
  bool detector = set.dsp;
  // The recognition.
  std::optional<int64_t> first_text, silent_since, closing_since;
  bool closed = false, error_told = false;
  bool unanswered = false;   // a first text has come, and no result behind it
  bool keeps_words = false;  // the call brings the first words: no timer takes them
  std::string text, interim;
  // With `grammartimeouts`: what the grammar accepts, and what the latest text is to it.
  std::vector<std::string> language;
  enum Extent { kUnknown, kImpossible, kBeginning, kCompleteSoFar, kComplete } extent = kUnknown;
  int sum = 0, pieces = 0, score = 0;
  // Of the call.
  bool barges_in = false, ends_utterance = false;
  std::vector<std::pair<std::string, int>> results;

  bool separate() const { return set.continuous && set.separate; }
  // The score that the host gets with the oldest result.
  int score_told() const { return separate() ? results.front().second : score; }

  std::string joined(const std::string &a, const std::string &b) const {
    if (a.empty() || b.empty()) return a + b;
    return a + (set.endpointing ? ".\n" : " ") + b;
  }

  int message(int64_t now, const char *words, int confidence, int dsp) {
    barges_in = ends_utterance = false;
    const int answer = take(now, words, confidence, dsp);
    if (ends_utterance && separate()) begin_anew();
    return answer;
  }

  Extent judge() const {
    if (language.empty() || !set.timeouts) return kUnknown;
    std::istringstream words(std::regex_replace(joined(text, interim), std::regex("[.?]"), ""));
    std::string said;
    for (std::string word; words >> word;) said += word + " ";
    // Of a hypothesis the last word may be half there.
    const bool grows = !interim.empty() && interim.back() != ' ' && !said.empty();
    const size_t certain = said.size() - (grows ? 1 : 0);
    bool complete_now = false, goes_on = false;
    for (const std::string &sentence : language) {
      complete_now = complete_now || sentence == said;
      goes_on = goes_on || (sentence != said && sentence.compare(0, certain, said, 0, certain) == 0);
    }
    if (complete_now) return goes_on ? kCompleteSoFar : kComplete;
    return goes_on ? kBeginning : kImpossible;
  }

  int limit() const {
    if (extent == kComplete && set.matchtimeout) return set.matchtimeout;
    return extent == kBeginning && incomplete ? incomplete : complete;
  }

  void begin_anew() {
    first_text = silent_since = closing_since = std::nullopt;
    error_told = false;
    text = interim = "";
    extent = kUnknown;
    sum = pieces = score = 0;
    if (hangup) return;
    complete = set.completetimeout;
    incomplete = set.incompletetimeout;
    finalize = 0;
  }

  int take(int64_t now, const char *words, int confidence, int dsp) {
    const std::string said = words ? words : "";
    const bool session_end = confidence == -200;
    if (confidence < -2 && !session_end) return -1;
    if (session_end) {
      if (!set.waitclose) return 0;
      closed = true;
    }
    if (!set.continuous && !results.empty()) return -1;

    bool held = false;
    if (set.waitclose && finalize > 0 && !closed) {
      if (!closing_since) closing_since = now;
      held = now < *closing_since + set.closetimeout;
    }
    if (!said.empty() && !first_text) {
      barges_in = unanswered = true;
      first_text = now;
      silent_since.reset();
    }
    bool timed_out = false;
    if (first_text) {
      const bool news = !said.empty() && (interim.empty() || said != interim);
      if (!silent_since || news) {
        silent_since = now;
        error_told = false;
      }
      if (!session_end && confidence > 0 && finalize == 0) *silent_since -= set.providertimeout;
      const bool words = confidence == -1 || confidence > 0 || (confidence == 0 && said.size() == 1 && said != " ");
      keeps_words = text.empty() && interim.empty() && !said.empty() && words && !session_end;
      if (set.timeouts) timed_out = expire(now, dsp) && !held;
    }

    if (session_end || confidence == -2 || timed_out) {
      deliver(timed_out);
    } else if (confidence == -1 && !said.empty()) {
      if (said != interim) extent = (interim = said, judge());
    } else if (confidence == 0 && said.size() == 1 && said != " ") {
      text = said;
      deliver();
    } else if (confidence > 0 && !said.empty()) {
      text = joined(text, said);
      interim.clear();
      sum += confidence;
      score = sum / ++pieces;
      extent = judge();
      if (hangup || (complete == incomplete && !held)) deliver();
    }
    return 0;
  }

  // Whether a timer wants to finish the call.
  bool expire(int64_t now, int dsp) {
    const int64_t silent = now - *silent_since;
    bool finish = false;
    if (complete != 0) {
      if (set.speechtimeout != 0 && set.extendedtimeout != 0 && now - *first_text > set.speechtimeout &&
          complete <= 2500) {
        complete = set.extendedtimeout;
      }
      const bool both = detector && set.both_silences;
      const int most = limit();
      const bool noise = silent > int64_t{3} * most;
      const bool over = both ? silent > most && (dsp > most || noise) : silent > most || dsp > most;
      if (over && finalize == 0) {
        if (quantum) {
          finalize = 1;
          incomplete = static_cast<int>(both ? silent : most) + 1000;
        } else {
          finish = true;
        }
      }
    }
    if (incomplete != 0 && silent > incomplete) {
      if (complete != 0 && complete < incomplete) {
        finish = true;
      } else if (!error_told && !keeps_words) {
        error_told = ends_utterance = true;
        unanswered = false;
        results.emplace_back("error", 0);
        finalize = 1;
      }
    }
    return finish && !keeps_words;
  }

  void deliver(bool timed_out = false) {
    ends_utterance = true;
    if (text.empty() && !interim.empty()) score = 50;
    text = joined(text, interim);
    interim.clear();
    const bool kept = !text.empty();
    if (!kept && !(unanswered && (timed_out || separate()))) return;
    unanswered = false;
    if (!kept) return void(results.emplace_back("error", 0));
    results.emplace_back(text + (set.endpointing ? "." : ""), score);
    text.clear();
    extent = kUnknown;
  }
};

struct Language {
  const char *rules;
  std::vector<std::string> sentences;
};
const Language kLanguages[] = {
    {"", {}},
    {"public <r> = a b {t} | a bc;", {"a b ", "a bc "}},
    {"public <r> = a b {t} [<more>]; <more> = a b;", {"a b ", "a b a b "}},
};

class EndpointingPropertyTest : public SessionTest {
protected:
  EndpointingPropertyTest() { plugin.init_result = 1; }  // no thread is needed for these many recognitions

  int pick(std::initializer_list<int> values) {
    return *(values.begin() + std::uniform_int_distribution<size_t>(0, values.size() - 1)(random));
  }
  bool one_in(int count) { return std::uniform_int_distribution<int>(1, count)(random) == 1; }

  Model begin() {
    engine.timeouts = !one_in(8);
    engine.waitclose = one_in(2);
    engine.continuous = one_in(2);
    engine.separate = one_in(2);
    engine.endpointing = one_in(4);
    engine.dsp = one_in(2);
    engine.both_silences = one_in(2);
    engine.closetimeout = pick({500, 2000});
    engine.speechtimeout = pick({0, 1000, 4000});
    engine.extendedtimeout = pick({0, 300, 4000});
    engine.providertimeout = pick({0, 0, 300, 1250});
    engine.completetimeout = pick({0, 300, 1000, 1000, 2500, 2501, -1});
    engine.incompletetimeout = pick({0, 300, 1000, 1500, 3000, 3000, -1});
    engine.matchtimeout = pick({0, 200, 1500});
    engine.grammartimeouts = one_in(2);
    const bool broken = one_in(8);
    if (broken) stand_in::fail(stand_in::Fault::kDetector);
    create();
    const Language &language = kLanguages[pick({0, 1, 2})];
    if (!language.sentences.empty()) load_grammar("g", language.rules);
    start();
    stand_in::stop_failing();
    Model model(engine);
    if (engine.grammartimeouts) model.language = language.sentences;
    model.detector = engine.dsp && !broken;
    model.quantum = one_in(2);
    context()->quantum = model.quantum;
    return model;
  }

  int64_t next_time(const Model &model, int64_t now) {
    std::vector<int64_t> limits;
    if (model.silent_since) {
      limits = {*model.silent_since + model.complete, *model.silent_since + INT64_C(3) * model.complete,
                *model.silent_since + model.incomplete, *model.silent_since + model.limit()};
    }
    if (model.first_text) limits.push_back(*model.first_text + model.set.speechtimeout);
    if (model.closing_since) limits.push_back(*model.closing_since + model.set.closetimeout);
    if (!limits.empty() && one_in(2)) {
      const int64_t limit = limits[std::uniform_int_distribution<size_t>(0, limits.size() - 1)(random)];
      const int64_t target = limit + pick({-1, 0, 1});
      if (target >= now) return target;
    }
    return now + pick({0, 1, 20, 100, 100, 700, 5000});
  }

  void expect_same(const Model &model, int returned, int expected) {
    EXPECT_EQ(returned, expected);
    EXPECT_EQ(context()->finalize, model.finalize);
    EXPECT_EQ(context()->completetimeout, model.complete);
    EXPECT_EQ(context()->incompletetimeout, model.incomplete);
    EXPECT_STREQ(transcript().text ? transcript().text : "", model.text.c_str());
    EXPECT_STREQ(transcript().text_interim ? transcript().text_interim : "", model.interim.c_str());
    EXPECT_EQ(transcript().score, model.score);
    EXPECT_EQ(queued(), model.results.size());
    EXPECT_EQ(state(), model.results.empty() ? kReady : kDone);
    EXPECT_EQ(speech.flags, model.barges_in ? unsigned{AST_SPEECH_QUIET | AST_SPEECH_SPOKE} : 0U);
  }

  // A plugin may leave out the ticks before the moment that the module has named.
  void expect_quiet_until_due(const Model &before, const Model &after, int64_t now, int dsp) {
    const bool as_reckoned = dsp <= told_silence + (now - told_at);
    if (now < due && as_reckoned) {
      EXPECT_EQ(after.results.size(), before.results.size()) << "a tick before its time";
      EXPECT_EQ(after.finalize, before.finalize) << "a tick before its time";
    }
  }

  void note_next_timer(int64_t now, int dsp) {
    const int next = quillbrook_services_offered.next_timer(context());
    due = next == INT_MAX ? INT64_MAX : now + next;
    told_at = now;
    told_silence = dsp;
  }

  std::mt19937 random;
  int64_t due = 0, told_at = 0;
  int told_silence = 0;
};

TEST_F(EndpointingPropertyTest, TheModuleAndTheModelAgree) {
  constexpr int kRecognitions = 4000;
  constexpr int kMessages = 25;
  for (int seed = 1; seed <= kRecognitions && !HasFailure(); ++seed) {
    random.seed(seed);
    Model model = begin();
    due = 0;
    std::ostringstream road;
    road << "seed " << seed << " C=" << model.complete << " I=" << model.incomplete << " quantum=" << model.quantum;
    const int64_t origin = stand_in::clock_ms();
    int64_t now = origin;
    for (int count = 0; count < kMessages && !HasFailure(); ++count) {
      now = next_time(model, now);
      stand_in::set_clock_ms(now);
      static const char *const kTexts[] = {nullptr, nullptr, "", "a", "a b", "?", " ", "\xC3\xA9"};
      const char *text = kTexts[pick({0, 1, 2, 3, 3, 4, 4, 5, 6, 7})];
      const int confidence = pick({-1, -1, -1, -1, 0, 1, 90, one_in(3) ? -2 : -1, one_in(3) ? -200 : -1, -3});
      const int dsp = one_in(4) ? pick({model.complete, model.limit()}) + pick({0, 1}) : 0;
      if (one_in(30)) context()->hangup = model.hangup = true;
      if (one_in(30) && model.finalize == 0) model.finalize = context()->finalize = 1;
      shared_store(recognition()->silence, dsp);
      speech.flags = 0;
      road << "\n  " << now - origin << ": [" << shown(text) << "] " << confidence << " dsp=" << dsp;
      const Model before = model;
      const int expected = model.message(now, text, confidence, dsp);
      if (shown(text)[0] == '\0' && confidence == -1) expect_quiet_until_due(before, model, now, dsp);
      expect_same(model, send(text, confidence), expected);
      if (expected == 0 && (confidence != -200 || model.set.waitclose)) note_next_timer(now, dsp);
      if (model.set.continuous && !model.results.empty() && one_in(3)) {
        EXPECT_EQ(get(), model.results.front().first);
        EXPECT_EQ(score, model.score_told());
        model.results.erase(model.results.begin());
      }
    }
    for (const auto &[result, unused] : model.results) {
      char *text = str_fifo_pop(&session()->last_results);
      EXPECT_EQ(text ? text : "(none)", result);
      ast_free(text);
    }
    destroy();
    EXPECT_FALSE(HasFailure()) << road.str();
  }
}

}  // namespace
