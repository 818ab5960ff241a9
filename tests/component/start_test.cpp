// Starting a recognition: what the plugin gets to know, what is reset, and what a second start does.
#include "session_fixture.h"

namespace {

using stand_in::Fault;

class StartTest : public SessionTest {
protected:
  std::string phrases_after_start() {
    start();
    std::string phrases = context()->phrases;
    get();
    return phrases;
  }
};

TEST_F(StartTest, ThePluginSeesTheWholeContextBeforeItsInit) {
  debug = 2;
  set(engine.ws_url, "wss://example");
  set(engine.ws_model, "engine model");
  set(engine.ws_language, "en");
  set(engine.ws_extra, "engine extra");
  set(engine.ws_context, "engine context");
  set(engine.ws_configuration, "engine configuration");
  set(engine.loggingtag, "tag");
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
  session()->config_pointer = ast_strdup("<conf/>");

  plugin.on_init = [&](quillbrook_context *seen) {
    EXPECT_EQ(seen->debug, 1);
    EXPECT_STREQ(seen->profile, "wss://example");
    EXPECT_STREQ(seen->model, "session model");
    EXPECT_STREQ(seen->language, "en");
    EXPECT_STREQ(seen->voice, "");
    EXPECT_STREQ(seen->extra, "engine extra");
    EXPECT_STREQ(seen->context, "session context");
    EXPECT_STREQ(seen->configuration, "session configuration");
    EXPECT_STREQ(seen->param, "tag");
    EXPECT_STREQ(seen->uniqueid, "u1");
    EXPECT_STREQ(seen->mark, "r1");
    EXPECT_STREQ(seen->phrases, "");
    EXPECT_EQ(seen->speedvsaccuracy, 0.5F);
    EXPECT_EQ(seen->completetimeout, 800);
    EXPECT_EQ(seen->incompletetimeout, 3000);
    EXPECT_EQ(seen->maxspeechtimeout, 9000);
    EXPECT_EQ(seen->buffer_size, 4000);
    EXPECT_EQ(seen->minspeechtimeout, 0);
    EXPECT_EQ(seen->earlyspeechtimeout, 0);
    EXPECT_EQ(seen->silence, &session()->silence);
    EXPECT_STREQ(static_cast<const char *>(seen->config_pointer), "<conf/>");
    EXPECT_EQ(seen->asterisk_pointer, &speech);
    EXPECT_EQ(seen->filelog, stderr);
    EXPECT_EQ(seen->format, engine.ws_format);
    char name[64];
    snprintf(name, sizeof(name), "/tmp/quillbrook_%p.wav", static_cast<void *>(seen));
    EXPECT_STREQ(seen->filename, name);
    EXPECT_TRUE(stand_in::file_exists(name));
    EXPECT_EQ(seen->callback, quillbrook_callback);
  };
  start();
  EXPECT_EQ(plugin.inits, 1);
  EXPECT_THAT(stand_in::states(), testing::ElementsAre(READY, READY));
}

TEST_F(StartTest, PhrasesComeFromGrammarsElseSessionElseEngine) {
  set(engine.ws_phrases, "engine");
  const std::string grammar = stand_in::real_path("/tmp/quillbrook_test.jsgf");
  stand_in::write_file(grammar, "#JSGF V1.0;\ngrammar g;\npublic <g> = one | two;\n");
  create();
  EXPECT_EQ(phrases_after_start(), "engine");
  session()->phrases[0] = '\0';
  EXPECT_EQ(phrases_after_start(), "") << "an empty list of the session hides the engine's";
  quillbrook_recog_load_grammar(&speech, "g", grammar.c_str());
  EXPECT_EQ(phrases_after_start(), "one, two");
  quillbrook_recog_deactivate_grammar(&speech, "g");
  EXPECT_EQ(phrases_after_start(), "");
  quillbrook_recog_unload_grammar(&speech, "g");
  EXPECT_EQ(phrases_after_start(), "engine");
  unlink(grammar.c_str());
}

TEST_F(StartTest, AFullStartBeginsAnewAndKeepsWhatBelongsToTheSession) {
  engine.returnjson = 1;
  create_and_start();
  context()->api_pointer = "meaning";
  context()->extra_pointer = "{}";
  send("one", 80);
  finish();
  str_fifo_push(&session()->last_results, "never collected");
  get();
  EXPECT_EQ(session()->counter_result, 1);

  stand_in::advance_ms(5000);
  start();
  EXPECT_EQ(queued(), 0U);
  EXPECT_EQ(session()->text, nullptr);
  EXPECT_EQ(session()->json, nullptr);
  EXPECT_EQ(session()->score, 0);
  EXPECT_EQ(session()->scores_total, 0);
  EXPECT_EQ(session()->scores_count, 0);
  EXPECT_TRUE(ast_tvzero(session()->datefirst));
  EXPECT_TRUE(ast_tvzero(session()->datesilence));
  EXPECT_EQ(session()->datestart.tv_sec, stand_in::clock_ms() / 1000);
  EXPECT_FALSE(ast_tvzero(session()->datevoice));
  EXPECT_STREQ(session()->interpretation, "meaning");
  EXPECT_EQ(session()->counter_result, 1);
}

TEST_F(StartTest, ASecondStartLeavesARunningRecognitionAlone) {
  verbose = 1;
  create_and_start();
  send("one", QUILLBROOK_SCORE_INTERIM);
  quillbrook_context *before = context();
  start();
  EXPECT_EQ(context(), before);
  EXPECT_EQ(plugin.inits, 1);
  EXPECT_STREQ(session()->text_interim, "one");
  EXPECT_EQ(session()->prompting, 0);
  EXPECT_EQ(stand_in::logged(__LOG_NOTICE, named("Recognition already started!\n")), 1);
  EXPECT_THAT(stand_in::states(), testing::ElementsAre(READY, READY));
}

// SpeechBackground would wait for ever on an object that comes back NOT_READY.
TEST_F(StartTest, AStartFromSpeechBackgroundNeverLeavesNotReady) {
  engine.continuous = 1;
  create_and_start();
  start_in_background();
  EXPECT_EQ(state(), READY);
  EXPECT_EQ(plugin.inits, 1);

  send("one", 80);
  finish();
  start_in_background();
  EXPECT_EQ(state(), DONE) << "a result waits";
  EXPECT_EQ(get(), "one");
}

TEST_F(StartTest, DigitsAbandonARecognitionThatTheNextQuestionFinds) {
  create_and_start();
  send("half a", QUILLBROOK_SCORE_INTERIM);
  const std::string file = context()->filename;
  quillbrook_recog_dtmf(&speech, "12");
  start_in_background();
  EXPECT_EQ(plugin.stops, 1);
  EXPECT_EQ(plugin.inits, 2);
  EXPECT_EQ(state(), READY);
  EXPECT_EQ(session()->text_interim, nullptr);
  ASSERT_TRUE(eventually([&] { return plugin.loops == 2; }));
  send("whole", 70);
  EXPECT_EQ(get(), "whole");
  EXPECT_TRUE(stand_in::files().empty());
  // They count for one start only, and not in a continuous session.
  start();
  start_in_background();
  EXPECT_EQ(plugin.inits, 3);
  engine.continuous = 1;
  quillbrook_recog_dtmf(&speech, "3");
  start_in_background();
  EXPECT_EQ(plugin.inits, 3);
}

TEST_F(StartTest, TheDoneOfAQuickPluginStands) {
  plugin.on_init = [](quillbrook_context *context) { quillbrook_callback(context, "quick", 90); };
  create();
  start();
  EXPECT_EQ(state(), DONE);
  EXPECT_EQ(get(), "quick");
}

struct Failure {
  const char *name;
  Fault fault = Fault::Count;
  size_t allocation = 0;  // of this many bytes fails, instead
  bool refuses = false;   // plugin_init does
  int level = 0;
  const char *line = "";
  bool recognises = false;  // the plugin runs all the same
};
void PrintTo(const Failure &failure, std::ostream *out) {
  *out << failure.name;
}

class StartFailureTest : public StartTest, public testing::WithParamInterface<Failure> {};

TEST_P(StartFailureTest, IsLoggedAndTheSessionGoesOn) {
  const Failure &failure = GetParam();
  create();
  if (failure.allocation) {
    stand_in::fail_allocations_of(failure.allocation);
  } else if (failure.fault != Fault::Count) {
    stand_in::fail(failure.fault);
  }
  plugin.init_result = failure.refuses;
  start();
  stand_in::stop_failing();
  EXPECT_EQ(state(), READY);
  auto told = [&](const stand_in::Line &line) {
    return line.level == failure.level && line.text.rfind(failure.line, 0) == 0;
  };
  const std::vector<stand_in::Line> lines = stand_in::log_lines();
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(), told), failure.level ? 1 : 0);
  write_ms(20, 1000);
  if (failure.recognises) {
    EXPECT_TRUE(eventually([&] { return plugin.loops == 1; }));
    send("heard", 60);
  }
  EXPECT_EQ(get(), failure.recognises ? "heard" : "error");
  EXPECT_EQ(plugin.loops, failure.recognises ? 1 : 0);
  // The next recognition is whole.
  plugin.init_result = 0;
  start();
  EXPECT_TRUE(eventually([&] { return plugin.loops == (failure.recognises ? 2 : 1); }));
  send("again", 60);
  EXPECT_EQ(get(), "again");
  stand_in::reset();  // without a context nobody knows the stream file
}

const Failure failures[] = {
    {"no detector", Fault::Detector, 0, false, __LOG_WARNING, "Unable to allocate DSP!\n", true},
    {"no context", Fault::Count, sizeof(quillbrook_context), false, __LOG_ERROR,
     "Enable to create quillbrook context\n"},
    {"no stream", Fault::WriteStream, 0, false, __LOG_ERROR, "Cannot open /tmp/quillbrook_"},
    {"no thread", Fault::Thread},
    {"plugin refuses", Fault::Count, 0, true, __LOG_WARNING, "Failed to intialize quillbrook plugin\n"},
};
INSTANTIATE_TEST_SUITE_P(Each, StartFailureTest, testing::ValuesIn(failures));

TEST_F(StartTest, EveryAllocationMayFail) {
  set(engine.ws_phrases, "yes");
  twin = 1;
  for (int nth = 1;; ++nth) {
    create();
    stand_in::fail(Fault::Allocation, nth);
    start();
    const int failures = stand_in::stop_failing();
    destroy();
    if (!failures) break;
    stand_in::reset();  // without a context nobody knows the stream file
  }
}

}  // namespace
