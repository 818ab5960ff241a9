// Collecting results, in both modes.
#include "session_fixture.h"

namespace {

class GetTest : public SessionTest {
protected:
  void SetUp() override {
    verbose = 1;
    stand_in::answer_command("tandrel show session threadid uniqueid", "u1");
  }
  bool has_results_flag() { return speech.flags & AST_SPEECH_HAVE_RESULTS; }
};

TEST_F(GetTest, ASingleShotGetStopsEverythingInOrder) {
  create_and_start();
  const std::string file = context()->filename;
  send("yes", 80);
  EXPECT_EQ(get(), "yes");
  EXPECT_EQ(score, 80);
  EXPECT_TRUE(has_results_flag());
  EXPECT_EQ(plugin.ended, 1);
  EXPECT_EQ(session()->context1, nullptr);
  EXPECT_EQ(session()->dsp, nullptr);
  EXPECT_EQ(session()->file, nullptr);
  EXPECT_FALSE(stand_in::file_exists(file));
  std::vector<std::string> order;
  for (const std::string &call : stand_in::notes()) {
    if (call == "ast_closestream" || call == "plugin_stop" || call == "ast_dsp_free") order.push_back(call);
  }
  EXPECT_THAT(order, testing::ElementsAre("ast_closestream", "plugin_stop", "ast_dsp_free"));
  EXPECT_EQ(state(), DONE) << "the host's own";

  // There is nothing more to have before the next start.
  EXPECT_EQ(get(), "error");
  EXPECT_EQ(score, 80);
}

TEST_F(GetTest, AForcedFinishGivesWhatWasHeardSoFar) {
  engine.completetimeout = 1000;
  engine.incompletetimeout = 3000;
  create_and_start();
  EXPECT_EQ(get(), "error");
  start();
  send("half a sentence", QUILLBROOK_SCORE_INTERIM);
  EXPECT_EQ(get(), "half a sentence");
  EXPECT_EQ(score, 50);
  start();
  send("one", 80);
  send("two", QUILLBROOK_SCORE_INTERIM);
  EXPECT_EQ(get(), "one two");
  EXPECT_EQ(score, 80);
}

TEST_F(GetTest, KeepfilesKeepsTheStream) {
  engine.keepfiles = 1;
  create_and_start();
  const std::string file = context()->filename;
  send("yes", 80);
  get();
  EXPECT_TRUE(stand_in::file_exists(file));
  destroy();
  EXPECT_TRUE(stand_in::file_exists(file));
  stand_in::reset();
}

TEST_F(GetTest, WithoutMemoryTheResultWaits) {
  create_and_start();
  send("yes", 80);
  stand_in::fail_allocations_of(sizeof(ast_speech_result));
  EXPECT_EQ(get(), "(none)");
  stand_in::stop_failing();
  EXPECT_EQ(get(), "yes");
}

TEST_F(GetTest, ContinuousResultsComeOneByOneOnOneContext) {
  engine.continuous = 1;
  create_and_start();
  for (const char *text : {"one", "two", "three"}) send(text, 80);
  EXPECT_EQ(state(), DONE);
  EXPECT_EQ(get(), "one");
  EXPECT_EQ(state(), DONE);
  EXPECT_EQ(get(), "two");
  EXPECT_EQ(state(), DONE);
  EXPECT_EQ(get(), "three");
  EXPECT_EQ(state(), READY);
  EXPECT_EQ(get(), "error");
  EXPECT_EQ(state(), READY);
  EXPECT_EQ(plugin.stops, 0);
  EXPECT_NE(session()->file, nullptr);
  EXPECT_NE(session()->dsp, nullptr);
  write_ms(20, 1);
  start_in_background();
  send("four", 80);
  EXPECT_EQ(get(), "four");
  EXPECT_EQ(plugin.inits, 1);
}

struct HangUp {
  const char *name;
  bool continuous = true, waitclose = true, hung_up = true, known = true, queued = false;
  bool reports = true;  // plugin_stop brings the last words and the session's end
  bool waits = true;
  const char *result = "last words";
};
void PrintTo(const HangUp &test, std::ostream *out) {
  *out << test.name;
}
class HangUpTest : public GetTest, public testing::WithParamInterface<HangUp> {};

TEST_P(HangUpTest, WaitsForTheFinalReportOnlyWhenThereIsOne) {
  const HangUp &test = GetParam();
  engine.continuous = test.continuous;
  engine.waitclose = test.waitclose;
  engine.completetimeout = 1000;
  stand_in::add_channel("other", true);
  if (test.known) stand_in::add_channel("u1", test.hung_up);
  plugin.on_stop = [&](quillbrook_context *context) {
    if (!test.reports || plugin.stops > 0) return;
    quillbrook_callback(context, "last words", 80);
    quillbrook_callback(context, nullptr, QUILLBROOK_SCORE_END);
  };
  create_and_start();
  if (test.queued) {
    send("early", 70);
    finish();
  }
  const int64_t slept = stand_in::slept_us();
  EXPECT_EQ(get(), test.result);
  EXPECT_EQ(stand_in::logged(__LOG_NOTICE, named("Hangup: stop the plugin and wait for its final report.\n")),
            test.waits ? 1 : 0);
  EXPECT_EQ(stand_in::mentioned("Final report received"), test.waits && test.reports ? 1 : 0);
  if (test.waits && !test.reports) {
    EXPECT_EQ(stand_in::mentioned("Final report not received"), 1);
    EXPECT_EQ(stand_in::slept_us() - slept, 2'000'000);
  }
  EXPECT_EQ(stand_in::channel_references(), 0);
}

const HangUp hang_ups[] = {
    {"the report comes"},
    {"no report", true, true, true, true, false, false, true, "error"},
    {"waitclose off", true, false, true, true, false, true, false, "error"},
    {"the caller is there", true, true, false, true, false, true, false, "error"},
    {"the channel is gone", true, true, true, false, false, true, false, "error"},
    {"a result waits", true, true, true, true, true, true, false, "early"},
    {"single-shot", false, true, true, true, true, true, false, "early"},
};
INSTANTIATE_TEST_SUITE_P(Each, HangUpTest, testing::ValuesIn(hang_ups));

}  // namespace
