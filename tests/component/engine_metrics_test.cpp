// What is counted for each engine, as Prometheus reads it: recognitions of all kinds on two engines, and what each
// adds.
#include "session_fixture.h"
#include "ops/http_engine_metrics.h"

namespace {

class EngineMetricsTest : public SessionTest {
protected:
  EngineMetricsTest() {
    quillbrook_http_engine_metrics_update(true);
    set(engine.plugin_name, "p.so");
    quillbrook_engine_t &profile = quillbrook_engine[1];
    profile = engine;
    profile.plugin_name = ast_strdup("q.so");
    profile.ws_format = ast_strdup("wav");
    copy_text(profile.name, "a\"b");
  }
  ~EngineMetricsTest() override {
    if (speech.data) destroy();
    quillbrook_http_engine_metrics_update(false);
    quillbrook_engine_statistics_clear();
  }
  static std::string page() {
    const stand_in::Response response = stand_in::http_request("quillbrook_engine_metrics", AST_HTTP_GET);
    EXPECT_EQ(response.header, "Content-Type: text/plain; version=0.0.4; charset=utf-8\r\n");
    return response.body;
  }
  // The value of one sample; `more` are the labels behind that of the engine.
  static double value(const std::string &name, const std::string &more = "", const std::string &of = "quillbrook") {
    const std::string sample = "\nasterisk_quillbrook_engine_" + name + "{engine=\"" + of + "\"" + more + "} ";
    const std::string text = page();
    const size_t at = text.find(sample);
    return at == std::string::npos ? -1 : std::stod(text.substr(at + sample.size()));
  }
  static double results(const char *cause) { return value("results_total", std::string(",cause=\"") + cause + "\""); }
  static double below(const char *times, const char *limit) {
    return value(std::string(times) + "_bucket", std::string(",le=\"") + limit + "\"");
  }
  void question() {
    const int before = plugin.loops;
    start();
    write_ms(500, 1000);
    ASSERT_TRUE(eventually([&] { return plugin.loops > before; }));
  }
};

TEST_F(EngineMetricsTest, ARecognitionOfEachKind) {
  create();
  plugin.on_init = [](quillbrook_context *) { stand_in::advance_ms(30); };
  question();
  EXPECT_EQ(value("sessions_active") + value("recognitions_active"), 2);
  EXPECT_EQ(value("start_seconds_sum"), 0.03);
  EXPECT_EQ(below("start_seconds", "0.01"), 0);
  EXPECT_EQ(below("start_seconds", "0.05"), 1);
  stand_in::advance_ms(400);
  send("yes", QUILLBROOK_SCORE_INTERIM);
  stand_in::advance_ms(200);
  send("yes", QUILLBROOK_SCORE_INTERIM);  // no news: the caller waits since the first
  stand_in::advance_ms(600);
  finish();
  plugin.on_stop = [](quillbrook_context *) { stand_in::advance_ms(70); };
  EXPECT_EQ(get(), "yes");
  EXPECT_EQ(value("recognitions_active"), 0);
  EXPECT_NEAR(value("first_words_seconds_sum"), 0.43, 1e-9) << "the plugin's init is waited for, too";
  EXPECT_NEAR(value("waiting_seconds_sum"), 0.8, 1e-9);
  EXPECT_NEAR(value("recognition_seconds_sum"), 1.3, 1e-9);
  EXPECT_NEAR(value("stop_seconds_sum"), 0.07, 1e-9);
  EXPECT_EQ(value("audio_seconds_total"), 0.5);
  EXPECT_EQ(value("messages_total"), 2);

  question();
  EXPECT_EQ(get(), "error") << "no words";
  question();
  send("half", QUILLBROOK_SCORE_INTERIM);
  session()->digits_pending = 1;
  start_in_background();  // abandoned behind words: there is no result to count
  plugin.loop_waits = false;
  plugin.on_end = [](quillbrook_context *context) { copy_text(context->extra, "ERROR: down"); };
  destroy();
  create();
  start();
  write_ms(20, 1000);
  EXPECT_TRUE(eventually([&] { return state() == kDone; }));
  destroy();
  EXPECT_EQ(results("understood"), 1);
  EXPECT_EQ(results("provider"), 1);
  EXPECT_EQ(results("memory"), 0);
  EXPECT_EQ(results("nothing"), 2) << "and the one that destroy ended";
  EXPECT_EQ(value("provider_failures_total"), 1);
  EXPECT_EQ(value("sessions_total"), 2);
  EXPECT_EQ(value("sessions_active") + value("recognitions_active"), 0);
  EXPECT_EQ(value("recognitions_total"), 5);
  EXPECT_EQ(value("recognition_seconds_count"), 5);
  EXPECT_EQ(below("recognition_seconds", "+Inf"), 5);
  EXPECT_EQ(value("waiting_seconds_count"), 1);
}

TEST_F(EngineMetricsTest, EnginesKeepApartAndSurviveTheirRecords) {
  copy_text(engine_name, "quillbrook:a\"b");
  create();
  question();
  copy_text(quillbrook_engine[1].name, "");  // as a new configuration may leave it
  EXPECT_EQ(value("recognitions_total", "", "quillbrook:a\\\"b"), 1);
  EXPECT_EQ(value("recognitions_total"), -1) << "no session, no samples";
  quillbrook_statistics_reset();
  destroy();
  EXPECT_EQ(value("sessions_active", "", "quillbrook:a\\\"b"), 0);
  EXPECT_EQ(value("sessions_total", "", "quillbrook:a\\\"b"), 1) << "a reset is none of a counter of Prometheus";
}

TEST_F(EngineMetricsTest, TheWaitBehindTheSameWordsCountsOnce) {
  engine.continuous = 1;
  engine.completetimeout = 5000;
  engine.incompletetimeout = 3000;
  create();
  question();
  deliver("yes", 80);
  stand_in::advance_ms(3001);
  tick();
  EXPECT_EQ(results("understood") + results("incomplete"), 2);
  EXPECT_EQ(value("waiting_seconds_count"), 1);
}

}  // namespace
