// How long there has been a voice in the sound: what vibrates as vocal cords do, and not as evenly as a machine. It
// tells a short word that fits no phrase from a click, a breath or a beep, which the detector of speech takes for
// speech as well.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quillbrook::pocketsphinx {

class Voicing {
public:
  static constexpr int kPieceMs = 20;

  // Pieces of kPieceMs, a shorter one at the end of a stream excepted, at a rate of samples in a second.
  void feed(const int16_t *samples, size_t count, int rate);

  // Of what was fed since the last forget(); the latest `kept_ms` of it stay.
  int voice_ms() const { return voiced_ * kPieceMs; }
  void forget(int kept_ms);

private:
  std::vector<int16_t> window_;  // the pieces that are looked at together
  std::vector<bool> pieces_;     // since the last forget: whether there was a voice
  int voiced_ = 0;
};

}  // namespace quillbrook::pocketsphinx
