// What may happen while a text is held against the session's grammars: it takes its time, and holds nobody up.
#include "session_fixture.h"

#include "session/watch.h"

namespace {

struct MatchingTest : SessionTest {
  MatchingTest() {
    engine.returnnlsml = 1;
    engine.completetimeout = 1000;
    engine.incompletetimeout = 3000;
    verbose = 1;
  }
  void start_with_grammar() {
    create();
    load_grammar("first", "public <answer> = yes {sure} | no {never};\n");
    quillbrook_recog_activate_grammar(&speech, "first");
    start();
    write_ms(20, 1000);
    ASSERT_TRUE(eventually([&] { return plugin.loops == 1 + twin; }));
  }
  // The module tells of each grammar in the middle of the match.
  static void during_match(std::function<void()> action) {
    stand_in::during("Grammar name: %s content: %s\n", std::move(action));
  }
  static void on_other_thread(const std::function<void()> &action) { std::thread(action).join(); }
};

TEST_F(MatchingTest, NobodyOfTheSessionWaitsForIt) {
  engine.plugintimeout = 500;
  start_with_grammar();
  bool passed = false;
  during_match([&] {
    on_other_thread([&] {
      passed = session()->result_lock.try_lock() && session()->grammar_lock.try_lock();
      if (!passed) return;  // what follows would wait for ever
      session()->grammar_lock.unlock();
      session()->result_lock.unlock();
      EXPECT_EQ(setting("waiting"), "0");
      quillbrook_recog_deactivate_grammar(&speech, "first");
      quillbrook_recog_unload_grammar(&speech, "first");
      stand_in::advance_ms(1000);
      quillbrook_watch_look();  // the plugin is in a call: nobody may take it for silent
    });
  });
  deliver("yes", 80);
  ASSERT_TRUE(passed);
  EXPECT_EQ(queued(), 1U);
  EXPECT_EQ(session()->grammars.size(), 0U);
  const std::string document = stand_in::file_content(get());
  EXPECT_THAT(document, testing::HasSubstr("<result grammar=\"first\">"));
  EXPECT_THAT(document, testing::HasSubstr("<instance>sure</instance>"));
}

// The match of a first run goes on while the second one's result comes.
TEST_F(MatchingTest, ARunThatIsLateGoesNowhere) {
  twin = 1;
  start_with_grammar();
  send("yes", 80);
  during_match([&] {
    on_other_thread([&] {
      quillbrook_callback(recognition()->context2, "no", 70);
      EXPECT_EQ(quillbrook_callback(recognition()->context2, "", QUILLBROOK_SCORE_FINISH), 0);
    });
  });
  EXPECT_EQ(finish(), -1);
  EXPECT_EQ(queued(), 1U);
  EXPECT_THAT(stand_in::file_content(get()), testing::HasSubstr("<instance>never</instance>"));
  EXPECT_EQ(score, 70);
}

TEST_F(MatchingTest, WhatHasEndedMeanwhileHasNoResult) {
  std::thread dialplan;
  start_with_grammar();
  send("yes", 80);
  during_match([&] {
    quillbrook_recog_dtmf(&speech, "1");
    dialplan = std::thread([&] { start_in_background(); });
    EXPECT_TRUE(eventually([&] {
      MutexLock held(session()->result_lock);
      return recognition()->abandoned != 0;
    }));
  });
  EXPECT_EQ(finish(), -1);
  dialplan.join();
  EXPECT_EQ(stand_in::mentioned("Recognition result"), 0);
  EXPECT_EQ(state(), kReady);

  send("no", 80);
  during_match([&] {
    dialplan = std::thread([&] { destroy(); });
    EXPECT_TRUE(eventually([&] { return !quillbrook_session_of(&speech); }));
  });
  EXPECT_EQ(finish(), -1);
  dialplan.join();
  EXPECT_EQ(stand_in::mentioned("Recognition result"), 0);
  EXPECT_THAT(stand_in::files(), testing::IsEmpty());
}

// The report of a call that has hung up comes ahead of the result that it brings.
TEST_F(MatchingTest, WhoWantsTheLastReportWaitsForIt) {
  engine.continuous = engine.waitclose = 1;
  start_with_grammar();
  copy_text(session()->uniqueid, "42");
  stand_in::add_channel("42", true);
  std::thread reporter;
  bool stopped = false;
  plugin.on_stop = [&](quillbrook_context *context) {
    if (std::exchange(stopped, true)) return;
    during_match([&] {
      // Time enough for a get that does not wait.
      for (int look = 0; look < 1000 && !stand_in::mentioned("Final report"); ++look) usleep(10);
    });
    reporter = std::thread([context] {
      quillbrook_callback(context, "yes", 80);
      quillbrook_callback(context, nullptr, QUILLBROOK_SCORE_END);
    });
  };
  EXPECT_THAT(stand_in::file_content(get()), testing::HasSubstr("<instance>sure</instance>"));
  reporter.join();
  destroy();
}

TEST_F(MatchingTest, HowFarTheWordsAreIsJudgedWithoutLocksAndNotForEver) {
  engine.grammartimeouts = 1;
  start_with_grammar();
  load_grammar("second", "public <answer> = yes sir {sir};\n");
  debug = 1;
  ast_verb_sys_level = 2;
  const char *judging = "Judge the words by grammar %s\n";
  bool passed = false;
  stand_in::during(judging, [&] {
    on_other_thread([&] {
      passed = session()->result_lock.try_lock() && session()->grammar_lock.try_lock();
      if (!passed) return;
      session()->grammar_lock.unlock();
      session()->result_lock.unlock();
    });
  });
  send("yes", QUILLBROOK_SCORE_INTERIM);
  ASSERT_TRUE(passed);
  EXPECT_EQ(transcript().extent, kExtentCompleteSoFar);
  stand_in::during(judging, [] { stand_in::advance_ms(2001); });
  for (const char *text : {"yes s", "yes si", "yes sir"}) {
    send(text, QUILLBROOK_SCORE_INTERIM);
    EXPECT_EQ(transcript().extent, kExtentUnknown);
  }
  EXPECT_EQ(stand_in::mentioned(named("Judging the words by the grammar second was given up: ")), 1);
  ast_verb_sys_level = 0;
}

TEST_F(MatchingTest, OneThatTakesTooLongKeepsTheText) {
  start_with_grammar();
  load_grammar("second", "public <answer> = maybe {perhaps};\n");
  during_match([&] { stand_in::advance_ms(2001); });
  context()->api_pointer = "of the recogniser";
  deliver("maybe", 80);
  const std::string document = stand_in::file_content(get());
  EXPECT_THAT(document, testing::HasSubstr("confidence=\"80\""));
  EXPECT_THAT(document, testing::HasSubstr("<instance>of the recogniser</instance>"));
  EXPECT_EQ(score, 80);
  const std::string reason = "those in front of it took longer than 2000 ms";
  EXPECT_EQ(setting("cause") + " " + setting("reason"), "grammar second: " + reason);
  EXPECT_EQ(setting("input") + setting("meaning") + setting("grammar"), "maybeof the recogniser");
  EXPECT_EQ(stand_in::mentioned(labelled("The match with the grammar second was given up: " + reason)), 1);

  // One that has its answer by then needs no more time.
  start();
  during_match([&] { stand_in::advance_ms(2001); });
  deliver("yes", 80);
  EXPECT_THAT(stand_in::file_content(get()), testing::HasSubstr("<instance>sure</instance>"));
}

}  // namespace
