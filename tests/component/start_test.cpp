// Starting a recognition: what the plugin gets to know, what is reset, and what a second start does.
#include "session_fixture.h"

namespace {

using stand_in::Fault;
using testing::ElementsAre;

using StartTest = SessionTest;

TEST_F(StartTest, ThePluginSeesTheWholeContextBeforeItsInit) {
  debug = 2;
  char *quillbrook_engine_t::*const texts[] = {
      &quillbrook_engine_t::ws_url,     &quillbrook_engine_t::ws_model,   &quillbrook_engine_t::ws_language,
      &quillbrook_engine_t::ws_voice,   &quillbrook_engine_t::ws_extra,   &quillbrook_engine_t::ws_context,
      &quillbrook_engine_t::loggingtag, &quillbrook_engine_t::ws_phrases, &quillbrook_engine_t::ws_configuration};
  for (const auto &text : texts) set(engine.*text, ("engine " + std::to_string(&text - texts)).c_str());
  stand_in::answer_command("tandrel show session threadid uniqueid", "u1");
  stand_in::answer_command("tandrel show session threadid remote", "r1");
  engine.log_file = stderr;
  engine.speedvsaccuracy = 0.5F;
  engine.completetimeout = 800;
  engine.incompletetimeout = 3000;
  engine.maxspeechtimeout = 9000;
  engine.minspeechtimeout = 10;
  engine.earlyspeechtimeout = 20;
  create();
  copy_text(session()->model, "session model");
  copy_text(session()->configuration, "session configuration");
  copy_text(session()->context_text, "session context");
  session()->config_pointer.reset(ast_strdup("<conf/>"), free);

  plugin.on_init = [&](quillbrook_context *seen) {
    const std::vector<std::string> texts_seen = {seen->profile,       seen->model,   seen->language, seen->voice,
                                                 seen->extra,         seen->context, seen->param,    seen->phrases,
                                                 seen->configuration, seen->format,  seen->uniqueid, seen->mark};
    EXPECT_THAT(texts_seen,
                ElementsAre("engine 0", "session model", "engine 2", "engine 3", "engine 4", "session context",
                            "engine 6", "engine 7", "session configuration", "wav", "u1", "r1"));
    const std::vector<int> numbers_seen = {seen->debug,
                                           seen->completetimeout,
                                           seen->incompletetimeout,
                                           seen->maxspeechtimeout,
                                           seen->minspeechtimeout,
                                           seen->earlyspeechtimeout,
                                           seen->buffer_size,
                                           seen->interims};
    EXPECT_THAT(numbers_seen, ElementsAre(1, 800, 3000, 9000, 0, 0, 4000, 1));
    EXPECT_STREQ(static_cast<const char *>(seen->config_pointer), "<conf/>");
    EXPECT_EQ(seen->speedvsaccuracy, 0.5F);
    EXPECT_EQ(seen->silence, &recognition()->silence);
    EXPECT_EQ(seen->asterisk_pointer, &speech);
    EXPECT_EQ(seen->filelog, stderr);
    EXPECT_EQ(seen->callback, quillbrook_callback);
    char name[64];
    snprintf(name, sizeof(name), "/tmp/quillbrook_%p.wav", static_cast<void *>(seen));
    EXPECT_STREQ(seen->filename, name);
    EXPECT_TRUE(stand_in::file_exists(name));
  };
  start();
  EXPECT_EQ(plugin.inits, 1);
}

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

TEST_F(StartTest, TheDoneOfAQuickPluginStands) {
  plugin.on_init = [](quillbrook_context *context) { quillbrook_callback(context, "quick", 90); };
  create();
  start();
  EXPECT_EQ(state(), kDone);
  EXPECT_EQ(get(), "quick");
}

TEST_F(StartTest, TheReasonIsToldWhyThereIsNoStream) {
  for (const bool denied : {false, true}) {
    create();
    stand_in::fail(Fault::kWriteStream);
    if (denied) stand_in::fail(Fault::kOpen, 2);  // behind the list of files
    start();
    stand_in::stop_failing();
    EXPECT_EQ(stand_in::mentioned(".wav: " + std::string(denied ? strerror(EACCES) : "unknown format") + "\n"), 1);
    EXPECT_EQ(stand_in::mentioned("The key format names"), !denied);
    EXPECT_EQ(get(), "error");
    destroy();
    stand_in::reset_log();
  }
}

}  // namespace
