// The ways out of a recognition that no call of host or plugin brings about: a plugin that falls silent, returns or
// never returns, a result that the host has passed over, a clock that is set back.
#include "session_fixture.h"
#include "session/watch.h"

namespace {

class WatchTest : public SessionTest {
protected:
  WatchTest() { set(engine.plugin_name, "p.so"); }

  static constexpr int kLimit = 3000;
  std::string silent_line() {
    return labelled("The plugin p.so has not called back for 3000 ms: the recognition ends\n");
  }
  // What the host does when keys are pending and a result comes: it neither collects it nor says so.
  void pass_over(int looks) {
    shared_store(speech.state, static_cast<int>(kNotReady));
    for (int look = 0; look < looks; ++look) quillbrook_watch_look();
  }
};

TEST_F(WatchTest, APluginThatFallsSilentBehindWordsEndsTheRecognition) {
  EXPECT_EQ(quillbrook_watch_look(), -1) << "there is nothing to look at";
  for (const bool continuous : {false, true}) {
    engine.plugintimeout = kLimit;
    engine.continuous = continuous;
    create_and_start();
    tick();
    stand_in::advance_ms(10 * kLimit);
    EXPECT_EQ(quillbrook_watch_look(), -1) << "no words came, and the dialplan has its own timeout";
    send("half a", QUILLBROOK_SCORE_INTERIM);
    stand_in::advance_ms(kLimit);
    EXPECT_EQ(quillbrook_watch_look(), 1);
    tick();
    stand_in::advance_ms(kLimit);
    quillbrook_watch_look();
    EXPECT_EQ(queued(), 0U);
    stand_in::advance_ms(1);
    quillbrook_watch_look();
    EXPECT_EQ(state(), kDone);
    EXPECT_EQ(stand_in::logged(__LOG_ERROR, silent_line()), 1);
    EXPECT_EQ(get(), "error");
    stand_in::advance_ms(10 * kLimit);
    EXPECT_EQ(quillbrook_watch_look(), -1) << "once for a silence";
    destroy();
    EXPECT_EQ(quillbrook_watch_look(), -1);
    stand_in::reset();
  }
  engine.plugintimeout = 0;
  create_and_start();
  send("half a", QUILLBROOK_SCORE_INTERIM);
  stand_in::advance_ms(10 * kLimit);
  EXPECT_EQ(quillbrook_watch_look(), -1);
}

TEST_F(WatchTest, AResultThatTheHostPassedOverIsNotTheNextAnswer) {
  create_and_start();
  send("two", 90);
  EXPECT_EQ(quillbrook_watch_look(), kWatchInterval);
  pass_over(2);
  start_in_background();
  EXPECT_EQ(plugin.inits, 2);
  EXPECT_EQ(plugin.ended, 1);
  EXPECT_EQ(state(), kReady);
  send("five", 80);
  EXPECT_EQ(get(), "five");
  // A continuous session goes on with its plugin.
  engine.continuous = 1;
  start();
  for (const bool says_more : {false, true}) {
    send("two", 90);
    pass_over(2);
    if (says_more) send("three", 90);  // between the host's NOT_READY and its start
    start();
    EXPECT_EQ(plugin.inits, 3);
    EXPECT_EQ(state(), kReady) << "DONE with nothing to collect would end the question";
  }
  send("five", 80);
  EXPECT_EQ(get(), "five");
}

TEST_F(WatchTest, AResultThatOnlyWaitsIsDelivered) {
  engine.continuous = 1;
  create_and_start();
  send("one", 80);
  // Between two SpeechBackground of one question: DONE, however long, and the host's own NOT_READY for an instant.
  for (int look = 0; look < 5; ++look) EXPECT_EQ(quillbrook_watch_look(), kWatchInterval);
  pass_over(1);
  start_in_background();
  EXPECT_EQ(state(), kDone);
  quillbrook_watch_look();
  pass_over(1);
  EXPECT_EQ(get(), "one");
  // An application that leaves NOT_READY behind its get collects the rest all the same.
  for (const char *text : {"two", "three"}) send(text, 80);
  EXPECT_EQ(get(), "two");
  pass_over(5);
  start_in_background();
  EXPECT_EQ(state(), kDone);
  EXPECT_EQ(get(), "three");
}

TEST_F(WatchTest, APluginThatReturnsBehindWordsLeavesThemAsTheResult) {
  plugin.loop_waits = false;
  const struct {
    const char *text;
    int score;
    const char *result;
    bool warned;
  } cases[] = {{"said", QUILLBROOK_SCORE_INTERIM, "said", false},
               {"not stored", QUILLBROOK_SCORE_NO_CONFIDENCE, "error", true},
               {nullptr, QUILLBROOK_SCORE_INTERIM, "error", false}};
  engine.completetimeout = 1000;
  for (const auto &test : cases) {
    plugin.on_loop = [&test](quillbrook_context *context) { quillbrook_callback(context, test.text, test.score); };
    create();
    start();
    write_ms(20, 1);
    EXPECT_TRUE(eventually([&] { return shared_load(recognition()->running) == 0; }));
    EXPECT_TRUE(!test.text || eventually([&] { return state() == kDone; })) << test.text;
    EXPECT_EQ(queued(), test.text ? 1U : 0U);
    EXPECT_EQ(stand_in::mentioned("The plugin p.so returned after words, without a result"), test.warned);
    EXPECT_EQ(get(), test.result);
    destroy();
    stand_in::reset();
  }
  // In twin mode the last one to return speaks for both.
  twin = 1;
  std::atomic<bool> second_may_return{false};
  plugin.on_loop = [&](quillbrook_context *context) {
    if (context == this->context()) {
      quillbrook_callback(context, "first", QUILLBROOK_SCORE_INTERIM);
    } else {
      while (!second_may_return) std::this_thread::yield();
    }
  };
  create();
  start();
  write_ms(20, 1);
  EXPECT_TRUE(eventually([&] { return shared_load(recognition()->running) == 1; }));
  EXPECT_EQ(queued(), 0U);
  second_may_return = true;
  EXPECT_TRUE(eventually([&] { return state() == kDone; }));
  EXPECT_EQ(get(), "first");
}

// Nobody joins such a thread: the test ends it, so that no sanitizer has anything to say.
TEST_F(WatchTest, APluginThatNeverReturnsIsLeftBehind) {
  engine.stoptimeout = 1;
  engine.completetimeout = 1000;
  std::atomic<bool> hold{true};
  std::atomic<int> refused{0};
  plugin.on_end = [&](quillbrook_context *context) {
    while (hold) std::this_thread::yield();
    refused = quillbrook_callback(context, "late", 90);
  };
  set(engine.ws_extra, "ERROR: not read any more");
  for (const bool collected : {true, false}) {
    hold = true;
    create_and_start();
    const int references = stand_in::module_references();
    quillbrook_recognition_t *left = recognition();
    quillbrook_context *late = context();
    send("heard", QUILLBROOK_SCORE_INTERIM);
    if (collected) {
      EXPECT_EQ(get(), "heard");
    }
    destroy();
    EXPECT_EQ(stand_in::mentioned("has not returned 1 ms after its stop: its thread is left behind"), 1);
    EXPECT_EQ(stand_in::module_references(), references) << "the session's is gone, and one stays for ever";
    EXPECT_TRUE(stand_in::files().empty());
    EXPECT_EQ(quillbrook_callback(late, "later", 90), -1);
    const int ended = plugin.ended;
    hold = false;
    EXPECT_TRUE(eventually([&] {
      const std::lock_guard<std::mutex> held(quillbrook_run_of(late)->end_lock);
      return quillbrook_run_of(late)->ended;
    }));
    EXPECT_EQ(plugin.ended, ended + 1);
    EXPECT_EQ(refused, -1);
    EXPECT_EQ(stand_in::mentioned("not read any more"), 0);
    ast_module_unref(host_module_self());
    left->left_behind = 0;
    quillbrook_release_text(late->filename);
    quillbrook_release_recognition(left);
    stand_in::reset();
  }
}

TEST_F(WatchTest, AClockThatIsSetBackTakesTheDatesWithIt) {
  engine.completetimeout = 1000;
  create_and_start();
  const int64_t begin = stand_in::clock_ms();
  stand_in::advance_ms(500);
  send("words", QUILLBROOK_SCORE_INTERIM);
  stand_in::advance_ms(600);
  tick();
  stand_in::set_clock_ms(begin - 3'600'000);
  tick();
  EXPECT_EQ(queued(), 0U);
  stand_in::advance_ms(401);
  tick();
  EXPECT_EQ(queued(), 1U);
  EXPECT_EQ(ast_tvdiff_ms(transcript().datefirst, transcript().datestart), 500);
}

TEST_F(WatchTest, AGetThatFoundReadyLetsTheNextQuestionStart) {
  create_and_start();
  send("so far", QUILLBROOK_SCORE_INTERIM);
  EXPECT_EQ(get(), "so far");
  EXPECT_EQ(state(), kNotReady);
  start();
  EXPECT_EQ(get(), "error");
  EXPECT_EQ(state(), kNotReady);
}

TEST_F(WatchTest, TwinsHearEachForItself) {
  twin = 1;
  engine.completetimeout = 1000;
  create_and_start();
  quillbrook_context *second = recognition()->context2;
  // Two hypotheses that differ do not restart each other's silence, and are not joined.
  for (int turn = 0; turn < 11; ++turn) {
    send("yes", QUILLBROOK_SCORE_INTERIM);
    quillbrook_callback(second, "yeah", QUILLBROOK_SCORE_INTERIM);
    stand_in::advance_ms(100);
  }
  EXPECT_EQ(queued(), 0U);
  tick();
  EXPECT_EQ(queued(), 1U);
  EXPECT_EQ(quillbrook_callback(second, "yeah", 90), -1);
  EXPECT_EQ(get(), "yes");
  // Where only the second has heard something, a forced finish gives that.
  start();
  quillbrook_callback(recognition()->context2, "only here", QUILLBROOK_SCORE_INTERIM);
  EXPECT_EQ(get(), "only here");
  EXPECT_EQ(score, 50);
}

}  // namespace
