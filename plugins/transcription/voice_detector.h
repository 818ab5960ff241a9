// Speech or not, ten milliseconds at a time: WebRTC's detector, behind a floor for lines that only hiss.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "voice_library.h"

namespace quillbrook::transcription {

class VoiceDetector {
public:
  // rate: samples a second, 8000 to 48000. strictness: 0 takes much for speech, 3 little. floor: mean magnitude of a
  // sample, of 32768, below which nothing is speech. Throws Failure when there is no detector to be had.
  VoiceDetector(int rate, int strictness, int floor);

  // Samples of a frame: 10 ms.
  size_t frame_size() const { return frame_.size(); }
  // Whether the next frame holds speech.
  bool hears(const int16_t *frame);

private:
  VoiceLibrary library_;
  const int floor_;
  std::vector<float> frame_;
};

}  // namespace quillbrook::transcription
