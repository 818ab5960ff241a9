#include "voicing.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace quillbrook::pocketsphinx {
namespace {

constexpr int kWindowMs = 45;  // three periods of the lowest voice
constexpr int kLowestVoice = 70;
constexpr int kHighestVoice = 400;
constexpr double kFaintest = 60;  // mean amplitude of a window that is worth looking at
// How like itself a sound is one period later. On recorded words at least five pieces of each lie in between, of noises
// at most three: unvoiced ones lie below, tones above.
constexpr double kLeastLike = 0.7;
constexpr double kMostLike = 0.98;

double likeness_after(const int16_t *samples, size_t count, size_t lag) {
  double product = 0;
  double now = 0;
  double later = 0;
  for (size_t i = 0; i + lag < count; ++i) {
    const double one = samples[i];
    const double other = samples[i + lag];
    product += one * other;
    now += one * one;
    later += other * other;
  }
  return now > 0 && later > 0 ? product / std::sqrt(now * later) : 0;
}

bool is_voice(const std::vector<int16_t> &window, int rate) {
  double energy = 0;
  for (const int16_t sample : window) energy += static_cast<double>(sample) * sample;
  if (energy < kFaintest * kFaintest * static_cast<double>(window.size())) return false;
  double best = 0;
  for (int lag = rate / kHighestVoice; lag <= rate / kLowestVoice; ++lag) {
    best = std::max(best, likeness_after(window.data(), window.size(), static_cast<size_t>(lag)));
  }
  return best > kLeastLike && best <= kMostLike;
}

}  // namespace

void Voicing::feed(const int16_t *samples, size_t count, int rate) {
  const size_t whole = static_cast<size_t>(rate) * kWindowMs / 1000;
  window_.insert(window_.end(), samples, samples + count);
  if (window_.size() > whole) window_.erase(window_.begin(), window_.end() - static_cast<std::ptrdiff_t>(whole));
  const bool voice = window_.size() == whole && is_voice(window_, rate);
  pieces_.push_back(voice);
  voiced_ += voice ? 1 : 0;
}

void Voicing::forget(int kept_ms) {
  const size_t kept = std::min(pieces_.size(), static_cast<size_t>(kept_ms / kPieceMs));
  pieces_.erase(pieces_.begin(), pieces_.end() - static_cast<std::ptrdiff_t>(kept));
  voiced_ = static_cast<int>(std::count(pieces_.begin(), pieces_.end(), true));
}

}  // namespace quillbrook::pocketsphinx
