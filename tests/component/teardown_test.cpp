// The end of a session in every phase, against plugins that behave badly. What is looked at is always the same: the
// call returns, and nothing is left of the session.
#include "session_fixture.h"

namespace {

struct Phase {
  const char *name;
  const char *steps;  // how a session gets there: words of `reach`
};
const Phase kPhases[] = {
    {"Created", ""},
    {"WaitingForAudio", "minspeech start"},
    {"WaitingForPrompt", "earlyspeech start"},
    {"Running", "start loop"},
    {"Texts", "start loop interim"},
    {"ResultQueued", "start loop final"},
    {"Collected", "start loop final get"},
    {"Continuous", "continuous start loop final get"},
    {"ContinuousHungUp", "continuous waitclose start loop final get get"},
    {"Twin", "twin start loop final"},
    {"Digits", "start loop final digits"},
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

const Behaviour kBehaviours[] = {
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
    {"EndsItsThread",
     [](FakePlugin &plugin) {
       plugin.on_end = [&plugin](quillbrook_context *) {
         ++plugin.ended;
         pthread_exit(nullptr);
       };
     }},
    {"TwoThreads", report_from_two_threads},
};

class TeardownTest : public SessionTest, public testing::WithParamInterface<std::tuple<Phase, Behaviour>> {
protected:
  void reach(const char *steps) {
    const std::map<std::string, std::function<void()>> step = {
        {"minspeech", [&] { engine.minspeechtimeout = 60000; }},
        {"earlyspeech", [&] { engine.earlyspeechtimeout = 60; }},
        {"continuous", [&] { engine.continuous = 1; }},
        {"waitclose", [&] { engine.waitclose = 1; }},
        {"twin", [&] { twin = 1; }},
        {"start", [&] { create(), start(), write_ms(40, 1); }},
        // As far as this plugin gets there.
        {"loop", [&] { EXPECT_TRUE(plugin.init_result || eventually([&] { return plugin.loops > 0; })); }},
        {"interim", [&] { context()->extra_pointer = "{}", send("zero", QUILLBROOK_SCORE_INTERIM); }},
        {"final", [&] { send("one", 80); }},
        {"get", [&] { get(); }},
        {"digits", [&] { quillbrook_recog_dtmf(&speech, "1"); }},
    };
    std::istringstream words(steps);
    for (std::string word; words >> word;) step.at(word)();
    if (!speech.data) create();
  }
};

TEST_P(TeardownTest, LeavesNothingBehind) {
  const auto &[phase, behaviour] = GetParam();
  behaviour.set_up(plugin);
  engine.returnnlsml = 1;
  stand_in::answer_command("tandrel show session threadid uniqueid", "u1");
  stand_in::add_channel("u1", true);
  reach(phase.steps);
  const bool running = context();
  EXPECT_EQ(running, std::string(phase.name) != "Created" && std::string(phase.name) != "Collected");
  const int stops = plugin.stops;
  destroy();
  EXPECT_EQ(speech.data, nullptr);
  EXPECT_EQ(plugin.ended, plugin.loops);
  EXPECT_EQ(plugin.stops - stops, running ? 1 + twin : 0);
  EXPECT_EQ(stand_in::logged(__LOG_ERROR, "Cannot stop the plugin, time!\n"),
            running && plugin.stop_hangup != QUILLBROOK_HANGUP_STOPPED ? 1 : 0);
  EXPECT_THAT(stand_in::files(), testing::IsEmpty());
  EXPECT_EQ(stand_in::module_references(), 0);
  EXPECT_EQ(stand_in::noted("ast_dsp_new"), stand_in::noted("ast_dsp_free"));
  EXPECT_EQ(stand_in::noted("ast_writefile") + stand_in::noted("ast_readfile"), stand_in::noted("ast_closestream"));
  EXPECT_EQ(quillbrook_statistics_read().stats.sessions_closed, 1U);
}

INSTANTIATE_TEST_SUITE_P(, TeardownTest, testing::Combine(testing::ValuesIn(kPhases), testing::ValuesIn(kBehaviours)),
                         [](const auto &test) {
                           return std::string(std::get<0>(test.param).name) + std::get<1>(test.param).name;
                         });

using TeardownFilesTest = SessionTest;

TEST_F(TeardownFilesTest, FilesAreForThePbxAloneAndGoWithTheSessionUnlessTheyAreToBeKept) {
  const mode_t mask = umask(0);
  for (const int mode : {0, 1, 2, 3}) {
    engine.keepfiles = mode / 2;
    engine.returnjson = mode % 2;
    engine.returnnlsml = 1;
    engine.continuous = 1;
    create_and_start();
    send("one", 80);
    send("two", 80);
    EXPECT_EQ(stand_in::files().size(), 3U);
    for (const std::string &file : stand_in::files()) {
      struct stat status = {};
      EXPECT_EQ(lstat(stand_in::real_path(file).c_str(), &status), 0);
      EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFREG | 0600)) << file;
    }
    destroy();
    EXPECT_EQ(stand_in::files().size(), engine.keepfiles ? 3U : 0U);
    stand_in::reset();
  }
  umask(mask);
}

}  // namespace
