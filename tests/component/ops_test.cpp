// Counters and dates, the commands and the URIs that show them. How their texts look as a whole is compared in the live
// tests; here stand the cases that a live call does not come to.
#include <gtest/gtest.h>

#include <thread>

#include "stand_in.h"

#include "record/engine.h"
#include "ops/cli_commands.h"
#include "ops/http_jsgf.h"
#include "ops/http_metrics.h"
#include "ops/statistics.h"

namespace {

constexpr time_t kDay = 86400;
// 2023-11-14 22:13:20 UTC
constexpr time_t kStart = 1'700'000'000;

void set_time(time_t seconds) {
  stand_in::set_clock_ms(static_cast<int64_t>(seconds) * 1000);
}

// The ops folder as the load leaves it, with an empty engine table.
class OpsTest : public testing::Test {
protected:
  OpsTest() {
    stand_in::reset();
    use_time_zone("UTC0");
    quillbrook_engine_table_init();
    set_time(kStart);
    quillbrook_statistics_init();
    EXPECT_EQ(quillbrook_cli_register(), 0);
    quillbrook_http_update();
    EXPECT_TRUE(quillbrook_jsgf_uri_link());
  }
  ~OpsTest() override {
    stand_in::stop_failing();
    quillbrook_webenabled = 0;
    quillbrook_http_update();
    quillbrook_jsgf_uri_unlink();
    quillbrook_cli_unregister();
    quillbrook_statistics_destroy();
    EXPECT_TRUE(stand_in::http_uris().empty());
    EXPECT_TRUE(stand_in::command_names().empty());
  }
  static void use_time_zone(const char *zone) {
    setenv("TZ", zone, 1);
    tzset();
  }
};

std::string metrics() {
  return stand_in::http_request("quillbrook_metrics", AST_HTTP_GET).body;
}

// The values of "show statistics" in their order.
std::string shown_counters() {
  std::istringstream text(stand_in::run_command("quillbrook show statistics"));
  std::string values;
  for (std::string line; std::getline(text, line);) {
    if (const size_t colon = line.find(": "); colon != std::string::npos) {
      values += (values.empty() ? "" : " ") + line.substr(colon + 2);
    }
  }
  return values;
}

// Under ThreadSanitizer also a proof that every access holds the lock.
TEST_F(OpsTest, NothingIsLostBetweenThreads) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 500;
  std::vector<std::thread> running;
  for (int thread = 0; thread < kThreads; ++thread) {
    running.emplace_back([] {
      for (int round = 0; round < kRounds; ++round) {
        quillbrook_statistics_session_start();
        quillbrook_statistics_message(40);
        quillbrook_statistics_message(QUILLBROOK_SCORE_INTERIM);
        metrics();
        quillbrook_statistics_session_stop();
      }
    });
  }
  for (std::thread &thread : running) thread.join();
  EXPECT_EQ(shown_counters(), "2000 0 2000 4000 2000 2000 40.00");
}

TEST_F(OpsTest, AgeBehindADate) {
  const std::pair<time_t, const char *> ages[] = {
      {0, ""},
      {59, ""},
      {60, " (00h01mn)"},
      {3600, " (01h00mn)"},
      {kDay - 1, " (23h59mn)"},
      {kDay, " (1 days)"},
      {301 * kDay - 1, " (300 days)"},
      {301 * kDay, ""},
      {-59, ""},
      {-3660, " (-1h-1mn)"},
      {-kDay, " (-1 days)"},
      {-400 * kDay, " (-400 days)"},
  };
  // Central Europe: half an hour behind it the clock goes from 03:00 back to 02:00.
  use_time_zone("CET-1CEST,M3.5.0,M10.5.0/3");
  constexpr time_t kBegin = 1'698'539'400;
  quillbrook_dates[kDateStart] = kBegin;
  for (const auto &[seconds, shown] : ages) {
    set_time(kBegin + seconds);
    const std::string text = stand_in::run_command("quillbrook show dates");
    const std::string line = std::string("Start module           : 2023/10/29 02:30:00") + shown + "\n";
    EXPECT_NE(text.find(line), std::string::npos) << seconds << "\n" << text;
  }
}

// The library may stay in the process between an unload and the next load.
TEST_F(OpsTest, ALoadBeginsAtZero) {
  quillbrook_statistics_session_start();
  quillbrook_statistics_message(50);
  quillbrook_statistics_reset();
  quillbrook_statistics_message(50);
  quillbrook_statistics_destroy();

  set_time(kStart + 10);
  quillbrook_statistics_init();
  EXPECT_EQ(shown_counters(), "0 0 0 0 0 0 0.00");
  EXPECT_EQ(stand_in::run_command("quillbrook show dates"),
            "Current date           : 2023/11/14 22:13:30\n"
            "Start module           : 2023/11/14 22:13:30\n"
            "File configuration     : ?\n"
            "Last session           : ?\n"
            "Reset statistics       : ?\n");
}

}  // namespace
