// From telephone samples to cepstral frames, with the library's voice activity detector in between.
//
// The acoustic model is made for 16 kHz. Samples of a lower rate are repeated: the mirror images that this puts above
// the telephone's band stand in for the sounds that the telephone cut, and recognition is better with them than with
// an empty band.
//
// All samples are rounded as mu-law rounds them, whatever the line they came by. That makes faint noise silent, which
// would else fill the band between speech and its image, and it makes all lines alike.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

struct fe_s;
struct cmd_ln_s;

namespace quillbrook::pocketsphinx {

constexpr int kFrameMs = 10;

using Cepstrum = std::array<float, 13>;

class FrontEnd {
public:
  // Reads the model's feature settings from `config`, which it keeps no hold of. quiet_ms: how long it must have been
  // quiet before in_speech() turns false. Throws std::runtime_error when the library refuses the settings.
  FrontEnd(cmd_ln_s *config, int quiet_ms);
  ~FrontEnd();
  FrontEnd(const FrontEnd &) = delete;
  FrontEnd &operator=(const FrontEnd &) = delete;

  void set_sample_rate(int samples_a_second) { sample_rate_ = samples_a_second; }

  // Appends the frames of speech in these samples. Frames of silence are dropped. Best called with 20 ms.
  void feed(const int16_t *samples, size_t count, std::vector<Cepstrum> &frames);

  bool in_speech() const;

  // Lets the detector begin anew, with what it knows of the background noise.
  void end_utterance();

private:
  void to_model_rate(const int16_t *samples, size_t count);

  static constexpr size_t kMostFrames = 64;

  fe_s *fe_;
  int sample_rate_ = 8000;
  int phase_ = 0;
  int sum_ = 0;
  int summed_ = 0;
  std::vector<int16_t> wide_;  // samples at the model's rate
  std::array<Cepstrum, kMostFrames> block_{};
  std::array<float *, kMostFrames> rows_{};
};

}  // namespace quillbrook::pocketsphinx
