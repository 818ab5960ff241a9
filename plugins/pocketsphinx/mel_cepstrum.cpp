#include "mel_cepstrum.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace quillbrook::pocketsphinx {
namespace {

constexpr double kPi = 3.14159265358979323846;
// Added to the energy of each filter, whose logarithm is taken.
constexpr float kLeastEnergy = 1e-4F;

double mel_of(double hz) {
  return 2595.0 * std::log10(1.0 + hz / 700.0);
}

double hz_of(double mel) {
  return 700.0 * (std::pow(10.0, mel / 2595.0) - 1.0);
}

}  // namespace

MelCepstrum::MelCepstrum(const MelSettings &settings) : emphasis_(static_cast<float>(settings.emphasis)) {
  const auto window = static_cast<size_t>(std::lround(settings.window_length * kModelRate));
  if (window < kStep || window > kPoints || settings.filters < Cepstrum().size() || settings.filters > kPoints / 2 ||
      settings.lowest_hz < 0 || settings.lowest_hz >= settings.highest_hz || settings.highest_hz > kModelRate / 2.0) {
    throw std::runtime_error("the acoustic model has feature settings that cannot be used");
  }
  for (size_t i = 0; i < window; ++i) {
    const double turn = 2 * kPi * static_cast<double>(i) / static_cast<double>(window - 1);
    shape_.push_back(static_cast<float>(0.54 - 0.46 * std::cos(turn)));
  }
  for (size_t i = 0; i < turns_.size(); ++i) {
    turns_[i] = std::polar(1.0F, static_cast<float>(-2 * kPi * static_cast<double>(i) / kPoints));
  }
  make_filters(settings);
  make_cosines(settings);
}

// Triangles that overlap by half, equally wide on the mel scale and of equal area, their corners on points of the
// spectrum.
void MelCepstrum::make_filters(const MelSettings &settings) {
  constexpr double kHzAPoint = static_cast<double>(kModelRate) / kPoints;
  const double lowest = mel_of(settings.lowest_hz);
  const double width = (mel_of(settings.highest_hz) - lowest) / static_cast<double>(settings.filters + 1);
  auto corner = [&](size_t number) {
    return static_cast<size_t>(std::lround(hz_of(lowest + static_cast<double>(number) * width) / kHzAPoint));
  };
  for (size_t number = 0; number < settings.filters; ++number) {
    const size_t left = corner(number);
    const size_t top = corner(number + 1);
    const size_t right = corner(number + 2);
    Filter filter{left, {}};
    for (size_t point = left; point <= right; ++point) {
      const double up = top == left ? 1.0 : static_cast<double>(point - left) / static_cast<double>(top - left);
      const double down = right == top ? 1.0 : static_cast<double>(right - point) / static_cast<double>(right - top);
      const double area = static_cast<double>(right - left) * kHzAPoint / 2;
      filter.weights.push_back(area == 0 ? 0.0F : static_cast<float>(std::min(up, down) / area));
    }
    filters_.push_back(std::move(filter));
  }
}

// The cosine transform of the filters' logarithms, each coefficient raised as the lifter wants it.
void MelCepstrum::make_cosines(const MelSettings &settings) {
  const auto count = static_cast<double>(settings.filters);
  const auto lifter = static_cast<double>(settings.lifter);
  for (size_t filter = 0; filter < settings.filters; ++filter) {
    Cepstrum row;
    for (size_t i = 0; i < row.size(); ++i) {
      const auto order = static_cast<double>(i);
      const double cosine = std::cos(kPi * order * (static_cast<double>(filter) + 0.5) / count);
      const double lift = lifter == 0 ? 1.0 : 1.0 + lifter / 2 * std::sin(order * kPi / lifter);
      row[i] = static_cast<float>(std::sqrt((i == 0 ? 1.0 : 2.0) / count) * cosine * lift);
    }
    cosines_.push_back(row);
  }
}

// The discrete Fourier transform of the points, in place: J. W. Cooley and J. W. Tukey, "An algorithm for the machine
// calculation of complex Fourier series", Math. Comp., 1965.
void MelCepstrum::transform() {
  for (size_t i = 1, reversed = 0; i < kPoints; ++i) {
    size_t bit = kPoints / 2;
    for (; (reversed & bit) != 0; bit /= 2) reversed ^= bit;
    reversed ^= bit;
    if (i < reversed) std::swap(points_[i], points_[reversed]);
  }
  for (size_t size = 2; size <= kPoints; size *= 2) {
    for (size_t begin = 0; begin < kPoints; begin += size) {
      for (size_t i = 0; i < size / 2; ++i) {
        const std::complex<float> even = points_[begin + i];
        const std::complex<float> factor = points_[begin + i + size / 2];
        const std::complex<float> turn = turns_[i * (kPoints / size)];
        // Written out: the operator looks after infinities, which there are none of, and takes five times as long.
        const std::complex<float> odd(factor.real() * turn.real() - factor.imag() * turn.imag(),
                                      factor.real() * turn.imag() + factor.imag() * turn.real());
        points_[begin + i] = even + odd;
        points_[begin + i + size / 2] = even - odd;
      }
    }
  }
}

Cepstrum MelCepstrum::compute(const int16_t *samples, int16_t before) {
  points_.fill({});
  for (size_t i = 0; i < shape_.size(); ++i) {
    const int16_t previous = i == 0 ? before : samples[i - 1];
    const float sample = static_cast<float>(samples[i]) - emphasis_ * static_cast<float>(previous);
    points_[i] = sample * shape_[i];
  }
  transform();
  Cepstrum cepstrum{};
  for (size_t number = 0; number < filters_.size(); ++number) {
    const Filter &filter = filters_[number];
    float energy = kLeastEnergy;
    for (size_t i = 0; i < filter.weights.size(); ++i)
      energy += filter.weights[i] * std::norm(points_[filter.first + i]);
    const float logarithm = std::log(energy);
    for (size_t i = 0; i < cepstrum.size(); ++i) cepstrum[i] += logarithm * cosines_[number][i];
  }
  return cepstrum;
}

}  // namespace quillbrook::pocketsphinx
