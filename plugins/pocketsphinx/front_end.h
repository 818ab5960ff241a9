// From telephone samples to cepstral frames of speech.
//
// The acoustic model is made for 16 kHz. Samples of a lower rate are repeated: the mirror images that this puts above
// the telephone's band stand in for the sounds that the telephone cut, and recognition is better with them than with
// an empty band.
//
// All samples are rounded as mu-law rounds them, whatever the line they came by. That makes faint noise silent, which
// would else fill the band between speech and its image, and it makes all lines alike.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "speech_frames.h"

namespace quillbrook::pocketsphinx {

class FrontEnd {
public:
  // As SpeechFrames.
  FrontEnd(cmd_ln_s *config, int quiet_ms) : speech_frames_(config, quiet_ms) {}

  void set_sample_rate(int samples_a_second) { sample_rate_ = samples_a_second; }

  // Appends the frames of speech in these samples. Frames of silence are dropped. Best called with 20 ms.
  void feed(const int16_t *samples, size_t count, std::vector<Cepstrum> &frames);

  bool in_speech() const { return speech_frames_.in_speech(); }
  void end_utterance() { speech_frames_.end_utterance(); }

private:
  void to_model_rate(const int16_t *samples, size_t count);

  SpeechFrames speech_frames_;
  int sample_rate_ = 8000;
  int phase_ = 0;
  int sum_ = 0;
  int summed_ = 0;
  std::vector<int16_t> wide_;  // samples at the model's rate
};

}  // namespace quillbrook::pocketsphinx
