// The end of a session in every phase, against plugins that behave badly. What is looked at is always the same: the
// call returns, and nothing is left of the session.
#include "session_fixture.h"

namespace {

enum class Phase {
  Created,
  WaitingForAudio,
  WaitingForPrompt,
  Running,
  Texts,
  ResultQueued,
  Collected,
  Continuous,
  ContinuousHungUp,
  Twin,
  Digits,
};
constexpr std::pair<Phase, const char *> PHASES[] = {
    {Phase::Created, "Created"},
    {Phase::WaitingForAudio, "WaitingForAudio"},
    {Phase::WaitingForPrompt, "WaitingForPrompt"},
    {Phase::Running, "Running"},
    {Phase::Texts, "Texts"},
    {Phase::ResultQueued, "ResultQueued"},
    {Phase::Collected, "Collected"},
    {Phase::Continuous, "Continuous"},
    {Phase::ContinuousHungUp, "ContinuousHungUp"},
    {Phase::Twin, "Twin"},
    {Phase::Digits, "Digits"},
};

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
       plugin.on_end = [](quillbrook_context *context) { strcpy(context->extra, "ERROR: lost"); };
     }},
    {"TwoThreads", report_from_two_threads},
};

class TeardownTest : public SessionTest,
                     public testing::WithParamInterface<std::tuple<std::pair<Phase, const char *>, Behaviour>> {
protected:
  // In the loop, as far as this plugin gets there.
  void run() {
    start();
    write_ms(40, 1);
    if (!plugin.init_result) {
      EXPECT_TRUE(eventually([&] { return plugin.loops > 0; }));
    }
  }

  void reach(Phase phase) {
    engine.minspeechtimeout = phase == Phase::WaitingForAudio ? 60000 : 0;
    engine.earlyspeechtimeout = phase == Phase::WaitingForPrompt ? 60 : 0;
    engine.continuous = phase == Phase::Continuous || phase == Phase::ContinuousHungUp;
    engine.waitclose = phase == Phase::ContinuousHungUp;
    engine.returnnlsml = 1;
    twin = phase == Phase::Twin;
    stand_in::answer_command("tandrel show session threadid uniqueid", "u1");
    stand_in::add_channel("u1", true);
    create();
    switch (phase) {
      case Phase::Created:
        return;
      case Phase::WaitingForAudio:
      case Phase::WaitingForPrompt:
        start();
        write_ms(40, 1);
        return;
      default:
        run();
    }
    if (phase == Phase::Texts) {
      context()->extra_pointer = "{}";
      send("zero", QUILLBROOK_SCORE_INTERIM);
    } else if (phase != Phase::Running) {
      send("one", 80);
    }
    if (phase == Phase::Collected || phase == Phase::Continuous) {
      get();
    } else if (phase == Phase::ContinuousHungUp) {
      get();
      get();
    } else if (phase == Phase::Digits) {
      quillbrook_recog_dtmf(&speech, "1");
    }
  }
};

TEST_P(TeardownTest, LeavesNothingBehind) {
  const Phase phase = std::get<0>(GetParam()).first;
  std::get<1>(GetParam()).set_up(plugin);
  reach(phase);
  const bool running = session()->context1;
  EXPECT_EQ(running, phase != Phase::Created && phase != Phase::Collected);
  const int stops = plugin.stops;
  destroy();
  EXPECT_EQ(speech.data, nullptr);
  EXPECT_EQ(plugin.ended, plugin.loops);
  EXPECT_EQ(plugin.stops - stops, running ? 1 + (phase == Phase::Twin) : 0);
  EXPECT_EQ(stand_in::logged(__LOG_ERROR, "Cannot stop the plugin, time!\n"),
            running && plugin.stop_hangup != QUILLBROOK_HANGUP_STOPPED ? 1 : 0);
  EXPECT_THAT(stand_in::files(), testing::IsEmpty());
  EXPECT_EQ(stand_in::module_references(), 0);
  EXPECT_EQ(stand_in::noted("ast_dsp_new"), stand_in::noted("ast_dsp_free"));
  EXPECT_EQ(stand_in::noted("ast_writefile") + stand_in::noted("ast_readfile"), stand_in::noted("ast_closestream"));
  EXPECT_EQ(quillbrook_statistics_read().stats.sessions_closed, 1U);
}

INSTANTIATE_TEST_SUITE_P(, TeardownTest, testing::Combine(testing::ValuesIn(PHASES), testing::ValuesIn(BEHAVIOURS)),
                         [](const auto &test) {
                           return std::string(std::get<0>(test.param).second) + std::get<1>(test.param).name;
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
