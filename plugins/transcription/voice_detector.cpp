#include "voice_detector.h"

#include <cstdlib>

namespace quillbrook::transcription {

VoiceDetector::VoiceDetector(int rate, int strictness, int floor)
    : library_(rate, strictness), floor_(floor), frame_(static_cast<size_t>(rate / 100)) {}

bool VoiceDetector::hears(const int16_t *frame) {
  constexpr float kScale = 1.0F / 32768;
  long loudness = 0;
  for (size_t i = 0; i < frame_.size(); ++i) {
    loudness += std::abs(frame[i]);
    frame_[i] = static_cast<float>(frame[i]) * kScale;
  }
  // Also what is too quiet is looked at: that is how the detector gets to know the noise of the line.
  const bool voice = library_.hears(frame_.data());
  return voice && loudness >= static_cast<long>(frame_.size()) * floor_;
}

}  // namespace quillbrook::transcription
