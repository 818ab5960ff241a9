// The call's audio on its way to the stream file.
#include "session_fixture.h"

namespace {

class AudioTest : public SessionTest {
protected:
  AudioTest() { engine.dsp = 1; }
  std::string stream() { return stand_in::file_content(context()->filename).substr(kWavHeader); }
};

// Telephones may send half a second at once. Odd last bytes come through as they are.
TEST_F(AudioTest, EachFrameIsWholeInTheFileWhenTheCallReturns) {
  create_and_start();
  std::string sent;
  for (const int length : {320, 2, 24, 276, 3199, 3200, 3201, 4000, 6401, 8000}) {
    std::string audio(length, '\0');
    for (int at = 0; at < length; ++at) audio[at] = static_cast<char>(at * 7 + length);
    write(audio.data(), length);
    // A piece of one byte holds no sample.
    sent += audio.substr(0, length % 3200 == 1 ? length - 1 : length);
    ASSERT_EQ(stream(), sent) << length;
  }
}

TEST_F(AudioTest, SilenceGrowsAndVoiceEndsIt) {
  create_and_start();
  write_ms(60, 0);
  EXPECT_EQ(*context()->silence, 60);
  write_ms(20, 5000);
  EXPECT_EQ(*context()->silence, 0);
  write_ms(40, 0);
  EXPECT_EQ(*context()->silence, 40);
  engine.dsp = 0;
  write_ms(20, 0);
  EXPECT_EQ(*context()->silence, 0) << "no measure is no silence";
  // Without a detector the value stays, and the stream is written all the same.
  destroy();
  stand_in::fail(stand_in::Fault::kDetector);
  create_and_start();
  recognition()->silence = 77;
  write_ms(20, 1);
  EXPECT_EQ(*context()->silence, 77);
  EXPECT_EQ(stream().size(), 320U);
}

TEST_F(AudioTest, AFullDiskIsAnErrorOnce) {
  for (const bool continuous : {false, true}) {
    engine.continuous = continuous;
    create();
    stand_in::fail(stand_in::Fault::kWrite, 2);  // not the list of files
    start();
    EXPECT_EQ(stand_in::stop_failing(), 1);
    write_ms(200, 1);
    const std::string line =
        labelled("Cannot write the audio of the recognition, ") + context()->filename + ": No space left on device\n";
    EXPECT_EQ(stand_in::logged(__LOG_ERROR, line), 1);
    EXPECT_EQ(state(), kDone);
    EXPECT_EQ(get(), "error");
    if (continuous) write_ms(20, 1);
    EXPECT_EQ(queued(), 0U);
    EXPECT_EQ(stand_in::logged(__LOG_ERROR, line), 1);
    destroy();
    stand_in::reset_log();
  }
}

}  // namespace
