// What plugin_example.so reports.
#include <cstring>

#include "plugin_driver.h"

namespace {

std::string talk(int loud_ms, int quiet_ms) {
  return tone(loud_ms) + tone(quiet_ms, 0);
}

TEST(ExampleTest, ReportsEachTalkWithItsLength) {
  Recognition recognition;
  // A pause within the first talk, and a click.
  recognition.append(talk(400, 200) + talk(400, 600) + talk(40, 600) + talk(500, 600));
  recognition.start();
  ASSERT_TRUE(recognition.wait_reports(4));
  const std::vector<Report> expected = {{"speech", -1}, {"speech 1000", 80}, {"speech", -1}, {"speech 500", 100}};
  EXPECT_EQ(recognition.reports(), expected);
}

TEST(ExampleTest, GivesWhatItHasWhenAskedAndWhenStopped) {
  for (const bool asked : {true, false}) {
    Recognition recognition;
    recognition.append(talk(1000, 100));
    recognition.start();
    ASSERT_TRUE(recognition.wait_reports(1));
    ASSERT_TRUE(recognition.wait_calls(1));  // a tick: it has read all of it
    EXPECT_NE(recognition.record.quantum, 0);
    asked ? recognition.finalize() : recognition.stop();
    ASSERT_TRUE(recognition.wait_reports(2));
    EXPECT_EQ(recognition.reports()[1], (Report{"speech 1000", 100}));
  }
}

TEST(ExampleTest, EndsATalkThatIsTooLong) {
  Recognition recognition;
  recognition.append(tone(3000));
  recognition.record.maxspeechtimeout = 1000;
  recognition.start();
  ASSERT_TRUE(recognition.wait_reports(3));
  EXPECT_EQ(recognition.reports()[1], (Report{"speech 1020", 100}));
  EXPECT_EQ(recognition.reports()[2].score, QUILLBROOK_SCORE_FINISH);
}

TEST(ExampleTest, ReportsWhyItCannotWork) {
  const auto reason = [](const char *format, const char *configuration) {
    Recognition recognition(format);
    (void)std::strcpy(recognition.record.configuration, configuration);
    recognition.start();
    EXPECT_TRUE(recognition.wait_return());
    return std::string(recognition.record.extra);
  };
  EXPECT_EQ(reason("ulaw", ""), "ERROR: this plugin reads the formats wav and sln, not: ulaw");
  EXPECT_EQ(reason("wav", "level=0"), "ERROR: configuration is not level=NUMBER: level=0");
  EXPECT_EQ(reason("wav", "loud"), "ERROR: configuration is not level=NUMBER: loud");
}

}  // namespace
