#include "front_end.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

extern "C" {
#include <sphinxbase/cmd_ln.h>
#include <sphinxbase/fe.h>
}

namespace pocketsphinx_plugin {
namespace {
constexpr int model_rate = 16000;
constexpr int hiss = 16;                     /* greatest value of the added noise: some 71 dB below full scale */
constexpr int acquaint_ms = 300;             /* of the stream's beginning are looked at, and heard */
constexpr int moment_ms = 30;                /* a pitch period fits in */
constexpr double loudest_background = 100.0; /* root mean square: some 50 dB below full scale */
}  // namespace

static_assert(sizeof(mfcc_t) == sizeof(float), "the library is built for floating point");

FrontEnd::FrontEnd(cmd_ln_s *config, int quiet_ms) {
  cmd_ln_set_int_r(config, "-vad_postspeech", quiet_ms / frame_ms);
  fe_ = fe_init_auto_r(config);
  if (fe_ == nullptr || fe_get_output_size(fe_) != static_cast<int>(Cepstrum().size())) {
    fe_free(fe_);
    throw std::runtime_error("the acoustic model has feature settings that cannot be used");
  }
  for (size_t i = 0; i < most_frames; ++i) rows_[i] = block_[i].data();
  fe_start_stream(fe_);
  fe_start_utt(fe_);
}

FrontEnd::~FrontEnd() {
  fe_free(fe_);
}

/*
 * Repeats samples of a lower rate; takes the mean of neighbours of a higher one. Faint noise is added: digital silence
 * would teach the detector that any hiss is speech.
 */
void FrontEnd::to_model_rate(const int16_t *samples, size_t count) {
  wide_.clear();
  for (size_t i = 0; i < count; ++i) {
    noise_ = noise_ * 1664525U + 1013904223U; /* linear congruential generator of "Numerical Recipes" */
    sum_ += samples[i] + static_cast<int>(noise_ >> 16) % (2 * hiss + 1) - hiss;
    ++summed_;
    phase_ += model_rate;
    if (phase_ < sample_rate_) continue;
    auto mean = static_cast<int16_t>(std::clamp(sum_ / summed_, -32768, 32767));
    for (; phase_ >= sample_rate_; phase_ -= sample_rate_) wide_.push_back(mean);
    sum_ = summed_ = 0;
  }
}

void FrontEnd::process(const int16_t *samples, size_t count, std::vector<Cepstrum> &frames) {
  to_model_rate(samples, count);
  const int16_t *next = wide_.data();
  size_t left = wide_.size();
  while (left > 0) {
    int32 made = most_frames;
    size_t before = left;
    fe_process_frames(fe_, &next, &left, rows_.data(), &made, nullptr);
    frames.insert(frames.end(), block_.begin(), block_.begin() + made);
    if (left == before && made == 0) break; /* the library takes no more: nothing to gain by asking again */
  }
}

/*
 * The detector takes the first thing that it hears for the background. A stream may begin in the middle of a word, so
 * it is given the quietest moment of the beginning to hear first, turned down when that is speech too.
 */
void FrontEnd::acquaint() {
  size_t moment = static_cast<size_t>(sample_rate_) * moment_ms / 1000;
  std::vector<int16_t> quietest;
  double least = 0;
  for (size_t begin = 0; begin + moment <= first_.size(); begin += moment) {
    double power = 0;
    for (size_t i = begin; i < begin + moment; ++i) power += static_cast<double>(first_[i]) * first_[i];
    if (!quietest.empty() && power >= least) continue;
    least = power;
    quietest.assign(first_.begin() + static_cast<std::ptrdiff_t>(begin),
                    first_.begin() + static_cast<std::ptrdiff_t>(begin + moment));
  }
  double level = std::sqrt(least / static_cast<double>(moment));
  if (level > loudest_background) {
    for (int16_t &sample : quietest) sample = static_cast<int16_t>(sample * loudest_background / level);
  }
  std::vector<Cepstrum> unused;
  for (int times = 0; times < acquaint_ms / moment_ms; ++times) process(quietest.data(), quietest.size(), unused);
}

void FrontEnd::feed(const int16_t *samples, size_t count, std::vector<Cepstrum> &frames) {
  if (acquainted_) {
    process(samples, count, frames);
    return;
  }
  first_.insert(first_.end(), samples, samples + count);
  if (first_.size() < static_cast<size_t>(sample_rate_) * acquaint_ms / 1000) return;
  acquaint();
  acquainted_ = true;
  process(first_.data(), first_.size(), frames);
  first_ = {};
}

bool FrontEnd::in_speech() const {
  return fe_get_vad_state(fe_) != 0;
}

void FrontEnd::end_utterance() {
  fe_start_utt(fe_);
}

}  // namespace pocketsphinx_plugin
