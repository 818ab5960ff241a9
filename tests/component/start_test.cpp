// Starting a recognition: what the plugin gets to know, what is reset, and what a second start does.
#include "session_fixture.h"

namespace {

using testing::ElementsAre;

using StartTest = SessionTest;

TEST_F(StartTest, PhrasesComeFromGrammarsElseSessionElseEngine) {
  set(engine.ws_phrases, "engine");
  const auto phrases = [&] {
    start();
    std::string seen = context()->phrases;
    get();
    return seen;
  };
  create();
  EXPECT_EQ(phrases(), "engine");
  session()->phrases[0] = '\0';
  EXPECT_EQ(phrases(), "") << "an empty list of the session hides the engine's";
  load_grammar("g", "public <g> = one | two;\n");
  EXPECT_EQ(phrases(), "one, two");
  quillbrook_recog_deactivate_grammar(&speech, "g");
  EXPECT_EQ(phrases(), "");
  quillbrook_recog_unload_grammar(&speech, "g");
  EXPECT_EQ(phrases(), "engine");
}

// Of an abandoned recognition, which has had of everything.
TEST_F(StartTest, NothingOfOneRecognitionReachesTheNext) {
  engine.dsp = 1;
  engine.returnnlsml = 1;
  engine.earlyspeechtimeout = 60;
  engine.minspeechtimeout = 60000;  // the streaming thread does not get to the rendezvous
  create();
  start();
  context()->api_pointer = "meaning";
  context()->extra_pointer = "{}";
  send("one", 80);
  send("two", QUILLBROOK_SCORE_INTERIM);
  finish();
  write_ms(500, 0);
  EXPECT_GT(recognition()->silence, 0);
  start();  // the answer to the prompting wait, which has not begun
  send("late", QUILLBROOK_SCORE_INTERIM);
  str_fifo_push(&session()->last_results, "never collected");
  quillbrook_recog_dtmf(&speech, "1");

  stand_in::advance_ms(5000);
  start_in_background();
  const quillbrook_transcript_t &now = transcript();
  EXPECT_EQ(queued(), 0U);
  EXPECT_TRUE(!now.text && !now.text_interim && !now.json && !now.interpretation);
  EXPECT_EQ(now.score + now.scores_total + now.scores_count + recognition()->plugin_closed, 0);
  EXPECT_TRUE(ast_tvzero(now.datefirst) && ast_tvzero(now.datesilence) && ast_tvzero(now.datevoice));
  EXPECT_EQ(now.datestart.tv_sec, stand_in::clock_ms() / 1000);
  EXPECT_EQ(recognition()->silence + recognition()->prompting, 0);
  EXPECT_EQ(session()->counter_result, 1) << "that is the session's";
  EXPECT_EQ(get(), "error");
  EXPECT_EQ(score, 0);
}

// SpeechBackground would wait for ever on an object that comes back NOT_READY.
TEST_F(StartTest, ASecondStartLeavesARunningRecognitionAloneAndTheObjectReadyOrDone) {
  verbose = 1;
  engine.continuous = 1;
  create_and_start();
  send("one", QUILLBROOK_SCORE_INTERIM);
  start();
  EXPECT_EQ(stand_in::logged(__LOG_NOTICE, named("Recognition already started!\n")), 1);
  EXPECT_EQ(stand_in::noted("state 1"), 2) << "both by the first";
  start_in_background();
  EXPECT_EQ(state(), kReady);
  finish();
  start_in_background();
  EXPECT_EQ(state(), kDone);
  EXPECT_EQ(get(), "one");
  EXPECT_EQ(plugin.inits, 1);
  EXPECT_EQ(recognition()->prompting, 0);
}

TEST_F(StartTest, DigitsAbandonARecognitionThatTheNextQuestionFinds) {
  create_and_start();
  send("half a", QUILLBROOK_SCORE_INTERIM);
  quillbrook_recog_dtmf(&speech, "12");
  start_in_background();
  EXPECT_EQ(plugin.stops, 1);
  EXPECT_EQ(plugin.inits, 2);
  EXPECT_EQ(state(), kReady);
  ASSERT_TRUE(eventually([&] { return plugin.loops == 2; }));
  send("whole", 70);
  EXPECT_EQ(get(), "whole");
  EXPECT_TRUE(stand_in::files().empty());
  // They count for one start only, whatever becomes of it, and not in a continuous session.
  start();
  start_in_background();
  quillbrook_recog_dtmf(&speech, "3");
  start();
  start_in_background();
  EXPECT_EQ(plugin.inits, 3);
  engine.continuous = 1;
  quillbrook_recog_dtmf(&speech, "4");
  start_in_background();
  EXPECT_EQ(plugin.inits, 3);
}

}  // namespace
