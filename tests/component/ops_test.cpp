// Counters and dates, the commands and the URIs that show them. How their texts look as a whole is compared in the live
// tests; here stand the cases that a live call does not come to.
#include <gtest/gtest.h>

#include "stand_in.h"

#include "record/engine.h"
#include "ops/cli_commands.h"
#include "ops/cli_version.h"
#include "ops/http_jsgf.h"
#include "ops/http_metrics.h"
#include "ops/statistics.h"

namespace {

using stand_in::Fault;
using stand_in::Response;

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

// The value of one metric in a body.
std::string metric(const std::string &name) {
  std::istringstream body(metrics());
  const std::string sample = "asterisk_quillbrook_" + name + "{eid=\"02:00:00:00:00:01\"} ";
  for (std::string line; std::getline(body, line);) {
    if (line.rfind(sample, 0) == 0) {
      return line.substr(sample.size());
    }
  }
  return "missing";
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

TEST_F(OpsTest, CountersAndTheirReset) {
  quillbrook_statistics_session_stop();  // none is active
  quillbrook_statistics_session_start();
  quillbrook_statistics_session_start();
  for (const int score : {1, 100, 0, -1, -2, -200}) {
    quillbrook_statistics_message(score);
  }
  EXPECT_EQ(shown_counters(), "2 2 1 6 2 4 50.50");
  EXPECT_EQ(stand_in::run_command("quillbrook reset statistics"), "QuillBrook statistics reset\n");
  quillbrook_statistics_session_stop();
  EXPECT_EQ(shown_counters(), "0 1 1 0 0 0 0.00");
  EXPECT_EQ(metric("score_average"), "0.00");
}

// Under ThreadSanitizer also a proof that every access holds the lock.
TEST_F(OpsTest, NothingIsLostBetweenThreads) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 500;
  std::vector<pthread_t> running(kThreads);
  for (pthread_t &thread : running) {
    ast_pthread_create_stack(
        &thread, nullptr,
        [](void *) -> void * {
          for (int round = 0; round < kRounds; ++round) {
            quillbrook_statistics_session_start();
            quillbrook_statistics_message(40);
            quillbrook_statistics_message(QUILLBROOK_SCORE_INTERIM);
            metrics();
            quillbrook_statistics_session_stop();
          }
          return nullptr;
        },
        nullptr, 0, __FILE__, __func__, __LINE__, "counting");
  }
  for (const pthread_t thread : running) {
    pthread_join(thread, nullptr);
  }
  EXPECT_EQ(shown_counters(), "2000 0 2000 4000 2000 2000 40.00");
}

TEST_F(OpsTest, DatesAndWhoMovesThem) {
  set_time(kStart + 100);
  quillbrook_statistics_session_start();
  set_time(kStart + 200);
  quillbrook_statistics_stamp(kDateReload);
  quillbrook_statistics_message(0);
  set_time(kStart + 300);
  quillbrook_statistics_session_stop();
  quillbrook_statistics_reset();
  quillbrook_dates[kDateFile] = kStart - 301 * kDay;
  set_time(kStart + 360);
  EXPECT_EQ(stand_in::run_command("quillbrook show dates"),
            "Current date           : 2023/11/14 22:19:20\n"
            "Start module           : 2023/11/14 22:13:20 (00h06mn)\n"
            "Reload configuration   : 2023/11/14 22:16:40 (00h02mn)\n"
            "File configuration     : 2023/01/17 22:13:20\n"
            "Last session           : 2023/11/14 22:18:20 (00h01mn)\n"
            "Last message           : 2023/11/14 22:16:40 (00h02mn)\n"
            "Reset statistics       : 2023/11/14 22:18:20 (00h01mn)\n");
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
  for (const auto &[seconds, shown] : ages) {
    set_time(kStart + seconds);
    const std::string text = stand_in::run_command("quillbrook show dates");
    const std::string line = std::string("Start module           : 2023/11/14 22:13:20") + shown + "\n";
    EXPECT_NE(text.find(line), std::string::npos) << seconds << "\n" << text;
  }
}

// Central Europe on 2023-10-29: at 01:00 UTC the clock goes from 03:00 back to 02:00.
TEST_F(OpsTest, AgeAcrossTheEndOfSummerTimeIsElapsedTime) {
  use_time_zone("CET-1CEST,M3.5.0,M10.5.0/3");
  quillbrook_dates[kDateStart] = 1'698'539'400;
  set_time(1'698'539'400 + 3600);
  const std::string text = stand_in::run_command("quillbrook show dates");
  EXPECT_NE(text.find("Current date           : 2023/10/29 02:30:00\n"
                      "Start module           : 2023/10/29 02:30:00 (01h00mn)\n"),
            std::string::npos)
      << text;
}

TEST_F(OpsTest, PluginsOfTheTableUpToTheFirstHole) {
  EXPECT_EQ(stand_in::run_command("quillbrook show plugins"),
            "QuillBrook plugins\n"
            "==================\n"
            "No QuillBrook plugin configured.\n");

  int handle = 0;
  for (int index = 1; index <= 13; ++index) {
    snprintf(quillbrook_engine[index].name, sizeof(quillbrook_engine[index].name), "p%d", index);
  }
  quillbrook_engine[12].name[0] = '\0';
  quillbrook_engine[0].plugin_handle = &handle;
  std::istringstream text(stand_in::run_command("quillbrook show plugins"));
  std::vector<std::string> heads;
  for (std::string line; std::getline(text, line);) {
    if (line.find("Plugin[") == 0) {
      heads.push_back(line);
    }
  }
  ASSERT_EQ(heads.size(), 12U);
  EXPECT_EQ(heads[0], "Plugin[0]      : default");
  EXPECT_EQ(heads[9], "Plugin[9]      : p9");
  EXPECT_EQ(heads[11], "Plugin[11]     : p11");
  std::fill(std::begin(quillbrook_engine), std::end(quillbrook_engine), quillbrook_engine_t{});
}

TEST_F(OpsTest, NameOfTheSystem) {
  const auto name_in = [](std::string content, size_t size = 100) {
    char name[100] = "Unknown";
    FILE *file = fmemopen(content.data(), content.size(), "r");
    quillbrook_read_os_release(file, name, size);
    fclose(file);
    return std::string(name);
  };
  EXPECT_EQ(name_in("NAME=\"x\"\nPRETTY_NAME=\"A B (c)\"\nPRETTY_NAME=later\n"), "A B (c)");
  EXPECT_EQ(name_in("PRETTY_NAME=plain\r\n\r\n"), "plain");
  EXPECT_EQ(name_in("PRETTY_NAME='single'"), "'single'");
  EXPECT_EQ(name_in("PRETTY_NAME=\"\n"), "\"");
  EXPECT_EQ(name_in("PRETTY_NAME=\"\"\n"), "");
  EXPECT_EQ(name_in(" PRETTY_NAME=x\nNAME=y\n"), "Unknown");
  EXPECT_EQ(name_in("PRETTY_NAME=" + std::string(2000, 'x') + "\n", 5), "xxxx");
}

TEST_F(OpsTest, AgesInTheMetrics) {
  quillbrook_dates[kDateFile] = kStart + 1;
  quillbrook_statistics_message(-1);
  set_time(kStart + 4);
  for (const auto &[date, age] : {std::pair{"date_0", "0"}, {"date_1", "4"}, {"date_2", "0"}, {"date_5", "4"}}) {
    EXPECT_EQ(metric(date), age) << date;
  }
  set_time(kStart);
  EXPECT_EQ(metric("date_3"), "18446744073709551615");  // a second from now
}

void expect_reply(const Response &response, int status, const char *title, const char *body, bool closed = false) {
  EXPECT_EQ(response.status, status);
  EXPECT_EQ(response.title, title);
  EXPECT_EQ(response.body, body);
  EXPECT_EQ(response.closed, closed);
}

TEST_F(OpsTest, RefusedRequests) {
  for (const char *uri : {"quillbrook_metrics", "quillbrook_engine_metrics", "quillbrook_jsgf"}) {
    for (const ast_http_method method : {AST_HTTP_UNKNOWN, AST_HTTP_PUT, AST_HTTP_DELETE, AST_HTTP_OPTIONS}) {
      expect_reply(stand_in::http_request(uri, method), 501, "Not Implemented",
                   "Attempt to use unimplemented / unsupported method");
    }
    stand_in::fail(Fault::kAllocation);
    expect_reply(stand_in::http_request(uri, AST_HTTP_GET), 500, "Server Error", "Out of memory");
  }
  for (const ast_http_method method : {AST_HTTP_GET, AST_HTTP_POST}) {
    const auto reply = [&](int body_error) {
      return stand_in::http_request("quillbrook_jsgf", method, {{"value", "x"}}, {}, body_error);
    };
    expect_reply(reply(EFBIG), 413, "Request Entity Too Large", "Body too large");
    expect_reply(reply(ENOMEM), 500, "Server Error", "Out of memory", true);
    expect_reply(reply(EIO), 400, "Bad Request", "Error parsing request body");
    expect_reply(reply(EINVAL), 200, "", "OK");
  }
  expect_reply(stand_in::http_request("quillbrook_jsgf", AST_HTTP_HEAD, {}, {}, EFBIG), 200, "", "OK");
}

TEST_F(OpsTest, JsgfTracesTheValueOfTheQuery) {
  expect_reply(stand_in::http_request("quillbrook_jsgf", AST_HTTP_GET, {{"value", "quiet"}}), 200, "", "OK");
  debug = 1;
  stand_in::http_request("quillbrook_jsgf", AST_HTTP_POST, {{"other", "1"}, {"value", "a%s b"}}, {{"value", "body"}});
  stand_in::http_request("quillbrook_jsgf", AST_HTTP_POST, {}, {{"value", "body"}});
  stand_in::http_request("quillbrook_jsgf", AST_HTTP_HEAD, {{"value", ""}});
  debug = 0;
  std::string traced;
  for (const stand_in::Line &line : stand_in::verbose_lines()) {
    EXPECT_EQ(line.level, -1);
    traced += line.text;
  }
  EXPECT_EQ(traced,
            "  == HTTP JSGF get walue = a%s b.\n"
            "  == HTTP JSGF get walue = (null).\n"
            "  == HTTP JSGF get walue = .\n");
}

TEST_F(OpsTest, UriThatTheServerRefusesIsNotUnlinked) {
  quillbrook_jsgf_uri_unlink();
  quillbrook_webenabled = 0;
  quillbrook_http_update();
  ASSERT_TRUE(stand_in::http_uris().empty());

  quillbrook_webenabled = 1;
  stand_in::fail(Fault::kHttpLink, 1, 3);
  quillbrook_http_update();
  EXPECT_EQ(quillbrook_webregged, 0);
  EXPECT_FALSE(quillbrook_jsgf_uri_link());
  for (const char *uri : {"quillbrook_metrics", "quillbrook_engine_metrics", "quillbrook_jsgf"}) {
    EXPECT_EQ(stand_in::logged(__LOG_WARNING, std::string("The HTTP server refused the URI ") + uri + "\n"), 1);
  }

  // Never twice: the host's list would close into a loop.
  for (int round = 0; round < 2; ++round) {
    quillbrook_http_update();
    EXPECT_TRUE(quillbrook_jsgf_uri_link());
  }
  EXPECT_EQ(stand_in::http_uris(),
            (std::vector<std::string>{"quillbrook_metrics", "quillbrook_engine_metrics", "quillbrook_jsgf"}));
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
