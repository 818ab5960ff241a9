#include "front_end.h"

#include <algorithm>
#include <cstdlib>

namespace quillbrook::pocketsphinx {
namespace {

// A sample as it arrives through a line of ITU-T G.711 mu-law: 16 steps between a power of two and the next.
int16_t companded(int sample) {
  constexpr int kBias = 132;
  constexpr int kLoudest = 32635;
  int magnitude = std::min(std::abs(sample), kLoudest) + kBias;
  int step = 8;
  while (magnitude >= 32 * step) step *= 2;
  magnitude = magnitude / step * step + step / 2 - kBias;
  return static_cast<int16_t>(sample < 0 ? -magnitude : magnitude);
}

}  // namespace

// Repeats samples of a lower rate; takes the mean of neighbours of a higher one.
void FrontEnd::to_model_rate(const int16_t *samples, size_t count) {
  wide_.clear();
  for (size_t i = 0; i < count; ++i) {
    sum_ += samples[i];
    ++summed_;
    phase_ += kModelRate;
    if (phase_ < sample_rate_) continue;
    int16_t mean = companded(sum_ / summed_);
    for (; phase_ >= sample_rate_; phase_ -= sample_rate_) wide_.push_back(mean);
    sum_ = summed_ = 0;
  }
}

void FrontEnd::feed(const int16_t *samples, size_t count, std::vector<Cepstrum> &frames) {
  to_model_rate(samples, count);
  speech_frames_.feed(wide_.data(), wide_.size(), frames);
}

}  // namespace quillbrook::pocketsphinx
