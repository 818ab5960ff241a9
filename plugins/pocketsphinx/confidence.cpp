#include "confidence.h"

#include <algorithm>
#include <cmath>

namespace quillbrook::pocketsphinx {
namespace {

// The logistic curve that gives the share of right answers at a shortfall, when half of the answers are right. Fitted
// with bench/pocketsphinx/calibrate.
constexpr double kEvenChance = 2.93;
constexpr double kSteepness = 1.88;
constexpr double kHopeless = 100.0;

}  // namespace

double shortfall(const std::vector<Segment> &words, const std::vector<Segment> &phones) {
  std::vector<double> free;  // the phones' score, frame by frame
  double all = 0;
  for (const Segment &phone : phones) {
    if (phone.last_frame < phone.first_frame) continue;
    double each = phone.score / (phone.last_frame - phone.first_frame + 1);
    free.resize(std::max<size_t>(free.size(), static_cast<size_t>(phone.last_frame) + 1), 0.0);
    std::fill(free.begin() + phone.first_frame, free.begin() + phone.last_frame + 1, each);
    all += phone.score;
  }

  int word_frames = 0;
  double worst = -kHopeless;
  for (const Segment &word : words) {
    all -= word.score;
    int length = word.last_frame - word.first_frame + 1;
    if (word.is_filler || length <= 0) continue;
    double own = -word.score;
    for (int frame = word.first_frame; frame <= word.last_frame && frame < static_cast<int>(free.size()); ++frame) {
      own += free[frame];
    }
    worst = std::max(worst, own / length);
    word_frames += length;
  }
  return word_frames == 0 ? kHopeless : std::max(worst, all / word_frames);
}

int confidence(double shortfall) {
  double likely = 1.0 / (1.0 + std::exp(kSteepness * (shortfall - kEvenChance)));
  return std::clamp(static_cast<int>(std::lround(100.0 * likely)), 1, 100);
}

}  // namespace quillbrook::pocketsphinx
