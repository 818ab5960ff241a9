#include "confidence.h"

#include <algorithm>
#include <cmath>

namespace pocketsphinx_plugin {
namespace {

/* The logistic curve that gives the share of right answers at a shortfall. Fitted by the calibration tool. */
constexpr double even_chance = 2.0; /* the shortfall at which an answer is as likely right as wrong */
constexpr double steepness = 1.5;
constexpr double hopeless = 100.0;

}  // namespace

double shortfall(const std::vector<Segment> &words, const std::vector<Segment> &phones) {
  std::vector<double> free; /* the phones' score, frame by frame */
  for (const Segment &phone : phones) {
    if (phone.last_frame < phone.first_frame) continue;
    double each = phone.score / (phone.last_frame - phone.first_frame + 1);
    free.resize(std::max<size_t>(free.size(), static_cast<size_t>(phone.last_frame) + 1), 0.0);
    std::fill(free.begin() + phone.first_frame, free.begin() + phone.last_frame + 1, each);
  }

  bool any = false;
  double worst = 0;
  for (const Segment &word : words) {
    if (word.is_filler || word.last_frame < word.first_frame) continue;
    double difference = -word.score;
    for (int frame = word.first_frame; frame <= word.last_frame && frame < static_cast<int>(free.size()); ++frame) {
      difference += free[frame];
    }
    difference /= word.last_frame - word.first_frame + 1;
    worst = any ? std::max(worst, difference) : difference;
    any = true;
  }
  return any ? worst : hopeless;
}

int confidence(double shortfall) {
  double likely = 1.0 / (1.0 + std::exp(steepness * (shortfall - even_chance)));
  return std::clamp(static_cast<int>(std::lround(100.0 * likely)), 1, 100);
}

}  // namespace pocketsphinx_plugin
