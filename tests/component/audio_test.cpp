// The call's audio on its way to the stream file.
#include "session_fixture.h"

namespace {

constexpr size_t WAV_HEADER = 44;

class AudioTest : public SessionTest {
protected:
  AudioTest() { engine.dsp = 1; }
  std::string stream() { return stand_in::file_content(context()->filename).substr(WAV_HEADER); }
};

TEST_F(AudioTest, EachFrameIsInTheFileWhenTheCallReturns) {
  create_and_start();
  std::string sent;
  for (int frame = 0; frame < 5; ++frame) {
    const std::string audio(320, static_cast<char>('a' + frame));
    write(audio.data(), 320);
    sent += audio;
    EXPECT_EQ(stream(), sent);
  }
}

// Telephones may send half a second at once. Odd last bytes come through as they are.
TEST_F(AudioTest, NoFrameIsTooLong) {
  for (const int length : {2, 24, 276, 3199, 3200, 3201, 4000, 6401, 8000}) {
    create_and_start();
    std::string audio(length, '\0');
    for (int at = 0; at < length; ++at) audio[at] = static_cast<char>(at * 7);
    write(audio.data(), length);
    // A piece of one byte holds no sample.
    EXPECT_EQ(stream(), audio.substr(0, length % 3200 == 1 ? length - 1 : length)) << length;
    destroy();
  }
}

TEST_F(AudioTest, FramesWithoutASampleAreMeasuredOrNothing) {
  verbose = 1;
  create();
  start();
  get();  // detector and file are gone
  const char byte = 'x';
  write(&byte, 0);
  write(&byte, 1);
  EXPECT_EQ(stand_in::logged(__LOG_NOTICE, named("Write with file closed!\n")), 0);
  EXPECT_EQ(stand_in::noted("ast_dsp_silence"), 0);
  start();
  write(&byte, 0);
  EXPECT_EQ(stand_in::noted("ast_dsp_silence"), 0);
  write(&byte, 1);
  EXPECT_EQ(stand_in::noted("ast_dsp_silence"), 1);
  EXPECT_EQ(stream(), "");
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
}

TEST_F(AudioTest, WithoutADetectorTheStreamIsWrittenAllTheSame) {
  stand_in::fail(stand_in::Fault::Detector);
  create_and_start();
  session()->silence = 77;
  write_ms(20, 1);
  EXPECT_EQ(*context()->silence, 77);
  EXPECT_EQ(stream().size(), 320U);
}

}  // namespace
