// Collecting results, in both modes.
#include "session_fixture.h"

namespace {

class GetTest : public SessionTest {
protected:
  void SetUp() override {
    verbose = 1;
    stand_in::answer_command("tandrel show session threadid uniqueid", "u1");
  }
};

TEST_F(GetTest, ASingleShotGetStopsEverythingInOrder) {
  for (const bool keep : {false, true}) {
    engine.keepfiles = keep;
    create_and_start();
    const std::string file = context()->filename;
    const size_t before = stand_in::notes().size();
    send("yes", 80);
    EXPECT_EQ(get(), "yes");
    EXPECT_EQ(score, 80);
    EXPECT_TRUE(speech.flags & AST_SPEECH_HAVE_RESULTS);
    EXPECT_EQ(recognition(), nullptr);
    EXPECT_EQ(plugin.ended, plugin.loops);
    const std::vector<std::string> notes = stand_in::notes();
    EXPECT_EQ(std::vector<std::string>(notes.begin() + before, notes.end()),
              (std::vector<std::string>{"state 3", "ast_closestream", "plugin_stop", "ast_dsp_free"}));

    // There is nothing more to have before the next start.
    EXPECT_EQ(get(), "error");
    EXPECT_EQ(score, 80);
    destroy();
    EXPECT_EQ(stand_in::file_exists(file), keep);
    stand_in::reset();
  }
}

TEST_F(GetTest, AForcedFinishGivesWhatWasHeardSoFar) {
  engine.completetimeout = 1000;
  create_and_start();
  EXPECT_EQ(get(), "error");
  start();
  send("half a sentence", QUILLBROOK_SCORE_INTERIM);
  EXPECT_EQ(get(), "half a sentence");
  EXPECT_EQ(score, 50);
  start();
  send("one", 80);
  send("two", QUILLBROOK_SCORE_INTERIM);
  finish();
  // Without memory for the host's record the result waits.
  stand_in::fail_allocations_of(sizeof(ast_speech_result));
  EXPECT_EQ(get(), "(none)");
  stand_in::stop_failing();
  EXPECT_EQ(get(), "one two");
  EXPECT_EQ(score, 80);
}

TEST_F(GetTest, AHangUpWaitsForTheFinalReportOnlyWhenThereIsOne) {
  const struct {
    const char *name;
    bool continuous, waitclose, known, hung_up, queued;
    bool reports;  // plugin_stop brings the last words and the session's end
    bool waits;
    const char *result;
  } cases[] = {
      {"the report comes", true, true, true, true, false, true, true, "last words"},
      {"no report", true, true, true, true, false, false, true, "error"},
      {"waitclose off", true, false, true, true, false, true, false, "error"},
      {"the caller is there", true, true, true, false, false, true, false, "error"},
      {"the channel is gone", true, true, false, true, false, true, false, "error"},
      {"a result waits", true, true, true, true, true, true, false, "early"},
      {"single-shot", false, true, true, true, true, true, false, "early"},
  };
  engine.completetimeout = 1000;
  for (const auto &test : cases) {
    SCOPED_TRACE(test.name);
    engine.continuous = test.continuous;
    engine.waitclose = test.waitclose;
    stand_in::add_channel("other", true);
    if (test.known) stand_in::add_channel("u1", test.hung_up);
    plugin.on_stop = [&](quillbrook_context *context) {
      if (!test.reports) return;
      quillbrook_callback(context, "last words", 80);
      quillbrook_callback(context, nullptr, QUILLBROOK_SCORE_END);
    };
    create_and_start();
    if (test.queued) deliver("early", 70);
    const int64_t slept = stand_in::slept_us();
    const int stops = plugin.stops;
    EXPECT_EQ(get(), test.result);
    EXPECT_EQ(stand_in::logged(__LOG_NOTICE, named("Hangup: stop the plugin and wait for its final report.\n")),
              test.waits);
    EXPECT_EQ(stand_in::mentioned("Final report received (last_results=1).\n"), test.waits && test.reports);
    EXPECT_EQ(stand_in::mentioned("Final report not received (last_results=0).\n"), test.waits && !test.reports);
    if (test.waits && !test.reports) {
      EXPECT_EQ(stand_in::slept_us() - slept, 2'000'000);
    }
    EXPECT_EQ(stand_in::channel_references(), 0);
    if (test.waits && test.reports) get();  // a closed plugin has nothing more to say
    EXPECT_EQ(plugin.stops - stops, test.waits || !test.continuous);
    destroy();
    stand_in::reset();
    stand_in::answer_command("tandrel show session threadid uniqueid", "u1");
  }
}

}  // namespace
