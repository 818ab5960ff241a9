// The end of a session in every phase, against plugins that behave badly. What is looked at is always the same: the
// call returns, and nothing is left of the session.
#include "session_fixture.h"

namespace {

enum Phase {
  CREATED,
  WAITING_FOR_AUDIO,
  WAITING_FOR_PROMPT,
  RUNNING,
  TEXTS,
  RESULT_QUEUED,
  COLLECTED,
  CONTINUOUS,
  CONTINUOUS_HUNG_UP,
  TWIN,
  DIGITS,
  PHASES
};
const char *const PHASE_NAMES[PHASES] = {
    "Created",   "WaitingForAudio", "WaitingForPrompt", "Running", "Texts", "ResultQueued",
    "Collected", "Continuous",      "ContinuousHungUp", "Twin",    "Digits"};

struct Behaviour {
  const char *name;
  void (*set_up)(FakePlugin &plugin);
};

// Until the plugin is stopped, a second thread of the plugin reports as well.
void report_from_two_threads(FakePlugin &plugin) {
  plugin.loop_waits = false;
  plugin.on_loop = [&plugin](quillbrook_context *context) {
    std::atomic<bool> reporting{true};
    auto report = [&] {
      for (int call = 0; reporting; ++call) {
        quillbrook_callback(context, call % 2 ? "heard" : nullptr, QUILLBROOK_SCORE_INTERIM);
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

const Behaviour BEHAVIOURS[] = {
    {"Good", [](FakePlugin &) {}},
    {"Refuses", [](FakePlugin &plugin) { plugin.init_result = 1; }},
    {"ReturnsAtOnce", [](FakePlugin &plugin) { plugin.loop_waits = false; }},
    {"LeavesHangup", [](FakePlugin &plugin) { plugin.stop_hangup = 0; }},
    {"CallsLate",
     [](FakePlugin &plugin) {
       plugin.on_end = [](quillbrook_context *context) {
         quillbrook_callback(context, "late", 90);
         quillbrook_callback(context, nullptr, QUILLBROOK_SCORE_END);
       };
     }},
    {"LeavesError",
     [](FakePlugin &plugin) {
       plugin.loop_waits = false;
       plugin.on_end = [](quillbrook_context *context) { copy_text(context->extra, "ERROR: lost"); };
     }},
    {"TwoThreads", report_from_two_threads},
};

class TeardownTest : public SessionTest, public testing::WithParamInterface<std::tuple<int, Behaviour>> {
protected:
  // In the loop, as far as this plugin gets there.
  void run() {
    start();
    write_ms(40, 1);
    if (!plugin.init_result) {
      EXPECT_TRUE(eventually([&] { return plugin.loops > 0; }));
    }
  }

  void reach(int phase) {
    engine.minspeechtimeout = phase == WAITING_FOR_AUDIO ? 60000 : 0;
    engine.earlyspeechtimeout = phase == WAITING_FOR_PROMPT ? 60 : 0;
    engine.continuous = phase == CONTINUOUS || phase == CONTINUOUS_HUNG_UP;
    engine.waitclose = phase == CONTINUOUS_HUNG_UP;
    engine.returnnlsml = 1;
    twin = phase == TWIN;
    stand_in::answer_command("tandrel show session threadid uniqueid", "u1");
    stand_in::add_channel("u1", true);
    create();
    switch (phase) {
      case CREATED:
        return;
      case WAITING_FOR_AUDIO:
      case WAITING_FOR_PROMPT:
        start();
        write_ms(40, 1);
        return;
      default:
        run();
    }
    if (phase == TEXTS) {
      context()->extra_pointer = "{}";
      send("zero", QUILLBROOK_SCORE_INTERIM);
    } else if (phase != RUNNING) {
      send("one", 80);
    }
    if (phase == COLLECTED || phase == CONTINUOUS) {
      get();
    } else if (phase == CONTINUOUS_HUNG_UP) {
      get();
      get();
    } else if (phase == DIGITS) {
      quillbrook_recog_dtmf(&speech, "1");
    }
  }
};

TEST_P(TeardownTest, LeavesNothingBehind) {
  const int phase = std::get<0>(GetParam());
  std::get<1>(GetParam()).set_up(plugin);
  reach(phase);
  const bool running = session()->context1;
  EXPECT_EQ(running, phase != CREATED && phase != COLLECTED);
  const int stops = plugin.stops;
  destroy();
  EXPECT_EQ(speech.data, nullptr);
  EXPECT_EQ(plugin.ended, plugin.loops);
  EXPECT_EQ(plugin.stops - stops, running ? 1 + (phase == TWIN) : 0);
  EXPECT_EQ(stand_in::logged(__LOG_ERROR, "Cannot stop the plugin, time!\n"),
            running && plugin.stop_hangup != QUILLBROOK_HANGUP_STOPPED ? 1 : 0);
  EXPECT_THAT(stand_in::files(), testing::IsEmpty());
  EXPECT_EQ(stand_in::module_references(), 0);
  EXPECT_EQ(stand_in::noted("ast_dsp_new"), stand_in::noted("ast_dsp_free"));
  EXPECT_EQ(stand_in::noted("ast_writefile") + stand_in::noted("ast_readfile"), stand_in::noted("ast_closestream"));
  EXPECT_EQ(quillbrook_statistics_read().stats.sessions_closed, 1U);
}

INSTANTIATE_TEST_SUITE_P(, TeardownTest,
                         testing::Combine(testing::Range<int>(0, PHASES), testing::ValuesIn(BEHAVIOURS)),
                         [](const auto &test) {
                           return std::string(PHASE_NAMES[std::get<0>(test.param)]) + std::get<1>(test.param).name;
                         });

class TeardownFilesTest : public SessionTest {};

TEST_F(TeardownFilesTest, RemovesEveryResultFileUnlessTheyAreToBeKept) {
  for (const bool keep : {false, true}) {
    for (const bool json : {false, true}) {
      engine.keepfiles = keep;
      engine.returnjson = json;
      engine.returnnlsml = 1;
      engine.continuous = 1;
      plugin.loops = 0;
      create_and_start();
      send("one", 80);
      send("two", 80);
      EXPECT_EQ(stand_in::files().size(), 3U);
      destroy();
      EXPECT_EQ(stand_in::files().size(), keep ? 3U : 0U);
      stand_in::reset();
    }
  }
}

}  // namespace
