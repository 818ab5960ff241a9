#include "front_end.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

extern "C" {
#include <sphinxbase/cmd_ln.h>
#include <sphinxbase/fe.h>
}

namespace quillbrook::pocketsphinx {
namespace {
constexpr int kModelRate = 16000;

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

static_assert(sizeof(mfcc_t) == sizeof(float), "the library is built for floating point");

FrontEnd::FrontEnd(cmd_ln_s *config, int quiet_ms) {
  cmd_ln_set_int_r(config, "-vad_postspeech", quiet_ms / kFrameMs);
  fe_ = fe_init_auto_r(config);
  if (fe_ == nullptr || fe_get_output_size(fe_) != static_cast<int>(Cepstrum().size())) {
    fe_free(fe_);
    throw std::runtime_error("the acoustic model has feature settings that cannot be used");
  }
  for (size_t i = 0; i < kMostFrames; ++i) rows_[i] = block_[i].data();
  fe_start_stream(fe_);
  fe_start_utt(fe_);
}

FrontEnd::~FrontEnd() {
  fe_free(fe_);
}

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
  const int16_t *next = wide_.data();
  size_t left = wide_.size();
  while (left > 0) {
    int32 made = kMostFrames;
    size_t before = left;
    fe_process_frames(fe_, &next, &left, rows_.data(), &made, nullptr);
    frames.insert(frames.end(), block_.begin(), block_.begin() + made);
    if (left == before && made == 0) break;  // the library takes no more: nothing to gain by asking again
  }
}

bool FrontEnd::in_speech() const {
  return fe_get_vad_state(fe_) != 0;
}

void FrontEnd::end_utterance() {
  fe_start_utt(fe_);
}

}  // namespace quillbrook::pocketsphinx
