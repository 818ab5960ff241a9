// A walk over all that host, plugin and clock may do, with plugins that behave badly. What must hold after each
// step, and at the end of each walk:
//
// - a start leaves the object READY or DONE: SpeechBackground would wait for ever on anything else
// - a result that waits has been announced, and get gives one
// - a caller whose dialplan timeout is switched off (words came) gets a result within plugintimeout, whatever the
//   plugin does from then on
// - behind destroy there is no thread, file, reference, detector or stream left
//
// A failure prints the road to it.
#pragma once

#include "session_fixture.h"

#include "session/watch.h"

constexpr int kPluginTimeout = 3000;
constexpr int kLongest = 10000;  // that any of the other timeouts takes, and all of them in a row

struct Behaviour {
  const char *name;
  void (*set_up)(FakePlugin &plugin);
  bool talks = false;  // by itself, on threads of its own
};

// Until it is stopped, two threads of the plugin report.
inline void talk_all_the_time(FakePlugin &plugin) {
  plugin.loop_waits = false;
  plugin.on_loop = [&plugin](quillbrook_context *context) {
    std::atomic<bool> reporting{true};
    const auto report = [&] {
      for (int call = 0; reporting; ++call) {
        const std::pair<const char *, int> messages[] = {{"some words", QUILLBROOK_SCORE_INTERIM},
                                                         {"final words", 80},
                                                         {"", QUILLBROOK_SCORE_FINISH},
                                                         {nullptr, QUILLBROOK_SCORE_INTERIM},
                                                         {"?", 0},
                                                         {"x", QUILLBROOK_SCORE_END}};
        quillbrook_callback(context, messages[call % 6].first, messages[call % 6].second);
        std::this_thread::yield();
      }
    };
    std::thread second(report), third(report);
    plugin.wait_for_stop(context);
    reporting = false;
    second.join();
    third.join();
  };
}

inline const Behaviour kBehaviours[] = {
    {"good", [](FakePlugin &) {}},
    {"refuses", [](FakePlugin &plugin) { plugin.init_result = 1; }},
    {"refuses every second",
     [](FakePlugin &plugin) {
       plugin.on_init = [&plugin](quillbrook_context *) { plugin.init_result = plugin.inits % 2; };
     }},
    {"returns at once", [](FakePlugin &plugin) { plugin.loop_waits = false; }},
    {"returns with words",
     [](FakePlugin &plugin) {
       plugin.loop_waits = false;
       plugin.on_loop = [](quillbrook_context *context) { quillbrook_callback(context, "said", -1); };
     }},
    {"stops without a mark", [](FakePlugin &plugin) { plugin.stop_hangup = plugin.stop_finalize = 0; }},
    {"speaks when it is over",
     [](FakePlugin &plugin) {
       plugin.on_end = [](quillbrook_context *context) {
         quillbrook_callback(context, "late", 90);
         quillbrook_callback(context, nullptr, QUILLBROOK_SCORE_END);
       };
     }},
    {"leaves an error",
     [](FakePlugin &plugin) {
       plugin.loop_waits = false;
       plugin.on_end = [](quillbrook_context *context) { copy_text(context->extra, "ERROR: lost"); };
     }},
    {"throws",
     [](FakePlugin &plugin) {
       plugin.on_loop = [](quillbrook_context *) { throw std::runtime_error("thrown"); };
       plugin.on_stop = [](quillbrook_context *) { throw 1; };
     }},
    {"ends its thread",
     [](FakePlugin &plugin) {
       plugin.loop_waits = false;
       plugin.on_loop = [](quillbrook_context *) { pthread_exit(nullptr); };
     }},
    {"talks all the time", talk_all_the_time, true},
};

inline int threads() {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word && word != "Threads:") continue;
  int count = 0;
  status >> count;
  return count;
}

// Who decides what happens, gives choose.
class Walk : public SessionTest {
protected:
  // A number below `count`.
  virtual unsigned choose(unsigned count) = 0;

  template <typename Value, size_t Size>
  const Value &one_of(const Value (&values)[Size]) {
    return values[choose(Size)];
  }
  int pick(std::initializer_list<int> values) { return *(values.begin() + choose(values.size())); }
  bool one_in(int count) { return choose(count) == 0; }

  void choose_settings() {
    engine.plugintimeout = kPluginTimeout;
    twin = one_in(4);
    engine.continuous = one_in(3);
    engine.separate = one_in(2);
    engine.waitclose = one_in(4);
    engine.returnjson = one_in(4);
    engine.returnnlsml = !engine.returnjson && one_in(2);
    engine.dsp = one_in(2);
    engine.timeouts = !one_in(4);
    engine.endpointing = one_in(4);
    engine.normalize_phrases = pick({0, 1, 2});
    engine.earlyspeechtimeout = pick({0, 0, 60});
    engine.minspeechtimeout = pick({0, 0, 0, 40, 60000});
    engine.completetimeout = pick({0, 500, 1000, -1});
    engine.incompletetimeout = pick({0, 1000, 3000, -1});
    engine.speechtimeout = pick({0, 1000});
    engine.extendedtimeout = pick({0, 2000});
    engine.providertimeout = pick({0, 300});
  }

  // The plugin has JSON and an interpretation for each of its texts.
  void give_extras(FakePlugin &hostile) {
    if (!one_in(3)) return;
    hostile.on_init = [before = hostile.on_init](quillbrook_context *context) {
      context->extra_pointer = "{}";
      context->api_pointer = "meaning";
      if (before) before(context);
    };
  }

  // A message on either record, as one thread of the plugin would send it.
  void say() {
    static const char *const kTexts[] = {nullptr, "", "yes", "yes please", "?", " ", "\xff\xfe", "no"};
    const char *text = one_of(kTexts);
    const int score = pick({-1, -1, -1, 0, 1, 80, 100, INT_MAX, -2, -3, -200, INT_MIN});
    quillbrook_context *to = recognition() && one_in(2) ? recognition()->context2 : context();
    if (to && one_in(9)) shared_store(to->quantum, pick({0, 1}));
    if (to && one_in(9)) shared_store(to->hangup, 1);
    quillbrook_callback(to, text, score);
    road += std::string(" '") + shown(text) + "' " + std::to_string(score);
    if (!to || host_moved_on) return;
    MutexLock held(session()->result_lock);  // the plugin's own thread may be half way through a delivery
    if (queued()) {
      EXPECT_EQ(state(), kDone);
    }
  }

  void question() {
    host_moved_on = false;
    shared_store(speech.flags, 0U);  // as the host does in front of each start
    const bool background = one_in(2);
    background ? start_in_background() : start();
    const int found = state();
    EXPECT_TRUE(found == kReady || (found == kDone && (queued() > 0 || !background))) << found;
  }

  void collect() {
    shared_store(speech.flags, 0U);  // QUIET has been seen, and this SpeechBackground ends
    if (state() == kDone) shared_store(speech.state, static_cast<int>(kNotReady));
    EXPECT_NE(get(), "(none)");
    host_moved_on = state() == kNotReady;
    if (!engine.continuous) {
      EXPECT_EQ(recognition(), nullptr);
    }
  }

  void key() {
    quillbrook_recog_dtmf(&speech, "1");
    shared_store(speech.state, static_cast<int>(kNotReady));
    host_moved_on = true;
  }

  void command() {
    static const char *const kPaths[] = {"property:Speech-Complete-Timeout=700ms",
                                         "property:Extended-Timeout=x",
                                         "builtin:grammar/model=m",
                                         "/nowhere/a.jsgf",
                                         "/nowhere/configuration_a",
                                         "property:Early-Timeout=60ms"};
    switch (choose(6)) {
      case 0:
        return load_grammar("g", "public <r> = yes [please] {YES};\n");
      case 1:
        quillbrook_recog_activate_grammar(&speech, "g");
        return;
      case 2:
        quillbrook_recog_deactivate_grammar(&speech, "g");
        return;
      case 3:
        quillbrook_recog_unload_grammar(&speech, "g");
        return;
      case 4:
        quillbrook_recog_change(&speech, "a", nullptr);
        quillbrook_recog_get_settings(&speech, "a", nullptr, 0);
        quillbrook_recog_change_results_type(&speech, AST_SPEECH_RESULTS_TYPE_NBEST);
        return;
      default:
        quillbrook_recog_load_grammar(&speech, "n", one_of(kPaths));
    }
  }

  void hear() {
    if (one_in(4)) {
      const std::vector<char> audio(8000);
      write(audio.data(), pick({-1, 0, 1, 319, 3201, 8000}));
    } else {
      write_ms(pick({20, 60, 300}), pick({0, 9000}));
    }
  }

  void move_clock() {
    if (one_in(12)) {
      stand_in::set_clock_ms(stand_in::clock_ms() - 3'600'000);
    } else {
      stand_in::advance_ms(pick({1, 100, 500, 501, 1001, 3001}));
    }
    quillbrook_watch_look();
  }

  void step() {
    static const struct {
      const char *name;
      void (Walk::*run)();
      int weight;
    } kSteps[] = {{"question", &Walk::question, 3}, {"say", &Walk::say, 8},         {"hear", &Walk::hear, 3},
                  {"clock", &Walk::move_clock, 4},  {"collect", &Walk::collect, 2}, {"key", &Walk::key, 1},
                  {"command", &Walk::command, 2}};
    int at = static_cast<int>(choose(23));
    for (const auto &each : kSteps) {
      if ((at -= each.weight) < 0) {
        road += std::string("\n  ") + each.name;
        return (this->*each.run)();
      }
    }
  }

  // The dialplan's own timeout is off. The plugin falls silent, or goes on calling without words.
  void expect_a_way_out(bool ticks) {
    const auto trapped = [&] { return state() == kReady && (shared_load(speech.flags) & AST_SPEECH_QUIET); };
    if (!trapped()) return;
    const bool stored = [&] {
      const MutexLock held(session()->result_lock);
      return (transcript().text && transcript().text[0]) || transcript().text_interim;
    }();
    const bool timed = engine.timeouts &&
                       (shared_load(context()->completetimeout) > 0 || shared_load(context()->incompletetimeout) > 0);
    if (ticks && timed && stored) {
      for (int waited = 0; trapped() && waited < kLongest; waited += 500) {
        stand_in::advance_ms(500);
        quillbrook_for_each_run(recognition(), [](quillbrook_run_t &run) {
          quillbrook_callback(&run.context, nullptr, QUILLBROOK_SCORE_INTERIM);
        });
      }
    } else {
      // The plugin's own thread may say its last word in between.
      eventually([&] {
        stand_in::advance_ms(kPluginTimeout + 1);
        quillbrook_watch_look();
        return !trapped();
      });
    }
    EXPECT_FALSE(trapped()) << "ticks: " << ticks;
  }

  void expect_nothing_left(int threads_before) {
    EXPECT_EQ(speech.data, nullptr);
    EXPECT_THAT(stand_in::files(), testing::IsEmpty());
    EXPECT_EQ(stand_in::module_references(), 0);
    EXPECT_EQ(stand_in::channel_references(), 0);
    EXPECT_EQ(stand_in::noted("ast_dsp_new"), stand_in::noted("ast_dsp_free"));
    EXPECT_EQ(stand_in::noted("ast_writefile") + stand_in::noted("ast_readfile"), stand_in::noted("ast_closestream"));
    EXPECT_EQ(quillbrook_watch_look(), -1);
    // A thread that was joined may be seen for an instant.
    EXPECT_TRUE(eventually([&] { return threads() <= threads_before; }));
  }

  // One session, from beginning to end.
  void walk(const Behaviour &behaviour, int steps, int threads_before) {
    stand_in::reset();
    stand_in::answer_command("tandrel show session threadid uniqueid", "u1");
    const bool hung_up = one_in(2);
    stand_in::add_channel("u1", hung_up);
    choose_settings();
    FakePlugin hostile;
    behaviour.set_up(hostile);
    give_extras(hostile);
    std::ostringstream begin;
    begin << "the plugin " << behaviour.name << ", twin " << twin << ", continuous " << engine.continuous
          << ", waitclose " << engine.waitclose << ", timeouts " << engine.timeouts << ' ' << engine.completetimeout
          << ' ' << engine.incompletetimeout << ' ' << engine.extendedtimeout << ", early "
          << engine.earlyspeechtimeout;
    road = begin.str();
    speech.flags = speech.state = 0;
    create();
    host_moved_on = false;
    for (int count = 0; count < steps && !HasFailure(); ++count) step();
    if (!behaviour.talks && !hung_up) expect_a_way_out(one_in(2));
    destroy();
    expect_nothing_left(threads_before);
    EXPECT_FALSE(HasFailure()) << road;
  }

private:
  bool host_moved_on = false;  // to NOT_READY, with whatever waits
  std::string road;
};
