// WebRTC's voice detector, as one of the two versions of its library has it; CMake takes the file for the one in use.
#pragma once

#include <memory>

namespace quillbrook::transcription {

class VoiceLibrary {
public:
  // As VoiceDetector. Version 1 of the library knows the strictness 3 only, and takes it whatever is asked for.
  VoiceLibrary(int rate, int strictness);
  ~VoiceLibrary();
  VoiceLibrary(const VoiceLibrary &) = delete;
  VoiceLibrary &operator=(const VoiceLibrary &) = delete;

  // Whether a frame of 10 ms holds speech. Samples are -1 to 1, and are overwritten.
  bool hears(float *frame);

private:
  struct Processing;
  std::unique_ptr<Processing> processing_;
};

}  // namespace quillbrook::transcription
