// What plugin_example.so reports. Run as: example_test PLUGIN.so
#include <cstring>

#include "recognition.h"

namespace {

std::vector<int16_t> talk(int loud_ms, int quiet_ms) {
  std::vector<int16_t> samples = tone(loud_ms, 3000);
  samples.resize(samples.size() + static_cast<size_t>(quiet_ms) * 8);
  return samples;
}

TEST(ExampleTest, ReportsEachTalkWithItsLength) {
  std::vector<int16_t> samples = talk(400, 200);  // a pause within the talk
  for (const auto &more : {talk(400, 600), talk(40, 600), talk(500, 600)})
    samples.insert(samples.end(), more.begin(), more.end());
  Recognition recognition(samples);
  ASSERT_EQ(plugin().init(recognition.record()), 0);
  recognition.start();
  ASSERT_TRUE(recognition.wait_for({"speech 500", 100}));
  const std::vector<Message> expected = {{"speech", -1}, {"speech 1000", 80}, {"speech", -1}, {"speech 500", 100}};
  EXPECT_EQ(recognition.messages(), expected);
}

TEST(ExampleTest, GivesWhatItHasWhenAskedAndWhenStopped) {
  for (const bool asked : {true, false}) {
    Recognition recognition(talk(1000, 100));
    ASSERT_EQ(plugin().init(recognition.record()), 0);
    EXPECT_NE(recognition.record()->quantum, 0);
    recognition.start();
    ASSERT_TRUE(recognition.wait_for({"speech", -1}));
    if (asked)
      __atomic_store_n(&recognition.record()->finalize, 1, __ATOMIC_RELEASE);
    else
      recognition.stop();
    EXPECT_TRUE(recognition.wait_for({"speech 1000", 100}));
  }
}

TEST(ExampleTest, EndsATalkThatIsTooLong) {
  Recognition recognition(talk(3000, 0));
  recognition.record()->maxspeechtimeout = 1000;
  ASSERT_EQ(plugin().init(recognition.record()), 0);
  recognition.start();
  EXPECT_TRUE(recognition.wait_for({"speech 1020", 100}));
}

TEST(ExampleTest, ReportsWhyItCannotWork) {
  const auto reason = [](const char *format, const char *configuration) {
    Recognition recognition;
    recognition.record()->format = format;
    (void)std::strcpy(recognition.record()->configuration, configuration);
    (void)plugin().init(recognition.record());
    recognition.start();
    EXPECT_TRUE(recognition.join());
    return std::string(recognition.record()->extra);
  };
  EXPECT_EQ(reason("ulaw", ""), "ERROR: this plugin reads the formats wav and sln, not: ulaw");
  EXPECT_EQ(reason("wav", "level=0"), "ERROR: configuration is not level=NUMBER: level=0");
  EXPECT_EQ(reason("wav", "loud"), "ERROR: configuration is not level=NUMBER: loud");
}

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  if (argc != 2) {
    (void)std::fprintf(stderr, "usage: %s PLUGIN.so\n", argv[0]);
    return 2;
  }
  plugin_path = argv[1];
  return RUN_ALL_TESTS();
}
