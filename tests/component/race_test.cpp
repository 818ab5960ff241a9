// The threads of a session against each other. What they do to each other shows under the thread sanitizer; what can
// be said about the outcome is checked in every build.
#include "session_fixture.h"

namespace {

constexpr int kRounds = 100;
constexpr int kMost = 1000000;  // of what is repeated until another thread has come: seconds

class RaceTest : public SessionTest {
protected:
  // Has the plugin's loop report until it is stopped.
  void report_all_the_time() {
    stopped_ = false;
    plugin.loops = silent_ = reports_ = 0;
    plugin.on_stop = [&](quillbrook_context *) { stopped_ = true; };
    plugin.on_loop = [&](quillbrook_context *context) {
      __atomic_store_n(&context->quantum, 1, __ATOMIC_RELEASE);
      for (int call = 0; !stopped_; ++call) {
        stand_in::advance_ms(20);
        context->extra_pointer = call % 3 ? nullptr : "{}";
        const std::pair<const char *, int> messages[] = {{"some words", QUILLBROOK_SCORE_INTERIM},
                                                         {"final words", 80},
                                                         {"", QUILLBROOK_SCORE_FINISH},
                                                         {nullptr, QUILLBROOK_SCORE_INTERIM},
                                                         {nullptr, QUILLBROOK_SCORE_NO_CONFIDENCE}};
        quillbrook_callback(context, messages[call % 5].first, messages[call % 5].second);
        ++reports_;
        std::this_thread::yield();
      }
      ++silent_;
    };
  }
  std::atomic<bool> stopped_{false};
  std::atomic<int> reports_{0}, silent_{0};
};

// A dialplan that does all that it may, while the plugin reports.
TEST_F(RaceTest, TheDialplanAgainstThePlugin) {
  for (const bool both : {false, true}) {
    twin = both;
    engine.dsp = 1;
    engine.continuous = 1;
    engine.returnnlsml = 1;
    engine.completetimeout = 200;
    engine.incompletetimeout = 3000;
    report_all_the_time();
    create_and_start();
    for (int round = 0; round < kRounds; ++round) {
      write_ms(20, round % 2 ? 0 : 9000);
      quillbrook_recog_load_grammar(&speech, "",
                                    round % 2 ? "property:Speech-Timeout=2s" : "property:Speech-Timeout=1s");
      quillbrook_recog_load_grammar(&speech, "", "property:Extended-Timeout=500ms");
      quillbrook_recog_activate_grammar(&speech, "digits");
      quillbrook_recog_deactivate_grammar(&speech, "digits");
      EXPECT_THAT(get(), testing::AnyOf("error", testing::StartsWith("/tmp/quillbrook_QBK-")));
      start_in_background();
      EXPECT_NE(state(), kNotReady);
      std::this_thread::yield();
    }
    EXPECT_TRUE(eventually([&] { return reports_ > 20; }));
    stopped_ = true;
    EXPECT_TRUE(eventually([&] { return silent_ == plugin.loops; }));
    EXPECT_EQ(state(), queued() ? kDone : kReady) << "a result that waits has been announced";
    destroy();
  }
}

// A final that the module took is the caller's result, however close the get comes.
TEST_F(RaceTest, AGetAgainstTheLastWords) {
  std::atomic<bool> go{false};
  std::atomic<int> answer{0};
  plugin.on_loop = [&](quillbrook_context *context) {
    while (!go) std::this_thread::yield();
    answer = quillbrook_callback(context, "word", 80);
  };
  create();
  for (int round = 0; round < kRounds; ++round) {
    go = false;
    plugin.loops = 0;
    start();
    ASSERT_TRUE(eventually([&] { return plugin.loops > 0; }));
    go = true;
    if (round % 2) std::this_thread::yield();
    EXPECT_EQ(get(), "word");
    EXPECT_EQ(answer, 0);
  }
}

// The manager reads settings while calls begin, go on and end.
TEST_F(RaceTest, ASettingOnAnotherThreadAgainstTheWholeSession) {
  report_all_the_time();
  std::atomic<bool> over{false};
  std::atomic<int> answers{0};
  std::thread manager([&] {
    for (int turn = 0; !over; ++turn) {
      const char *const names[] = {"cause", "interim", "input", "waiting"};
      const std::string answer = setting(names[turn % 4]);
      answers += answer != "(none)" && !answer.empty();
    }
  });
  for (int round = 0; round < kRounds || answers < 100; ++round) {
    ASSERT_LT(round, kMost);
    create_and_start();
    get();
    destroy();
    report_all_the_time();
  }
  over = true;
  manager.join();
}

// Frames that arrive while the stream is cut down wait, and none is lost or doubled.
TEST_F(RaceTest, FramesAgainstTheRewind) {
  engine.earlyspeechtimeout = 100;
  for (int round = 0; round < kRounds / 2; ++round) {
    plugin.loops = 0;
    create();
    start();
    int number = 20;
    write_numbered(1, number);
    start();
    for (; plugin.loops == 0 && number < kMost; ++number) write_numbered(number + 1, number + 1);
    ASSERT_LT(number, kMost) << "the plugin was never let go";
    const std::vector<int> numbers = numbers_in(context()->filename);
    ASSERT_GE(numbers.size(), 5U);
    for (const int &found : numbers) ASSERT_EQ(found, number - (&numbers.back() - &found));
    destroy();
  }
}

TEST_F(RaceTest, AContinuousGetAgainstTheRewind) {
  verbose = 1;
  engine.continuous = 1;
  engine.earlyspeechtimeout = 100;
  create();
  start();
  write_ms(200, 1);
  start();
  for (int asked = 0; plugin.loops == 0 && asked < kMost; ++asked) ASSERT_EQ(get(), "error");
  EXPECT_GT(plugin.loops, 0);
}

}  // namespace
