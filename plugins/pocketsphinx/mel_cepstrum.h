// Cepstral coefficients of a stretch of sound, on the mel scale: S. B. Davis and P. Mermelstein, "Comparison of
// parametric representations for monosyllabic word recognition in continuously spoken sentences", IEEE Trans. ASSP,
// 1980. In the units and with the rounding that the recogniser's models are trained with.
#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quillbrook::pocketsphinx {

constexpr int kFrameMs = 10;
constexpr int kModelRate = 16000;

using Cepstrum = std::array<float, 13>;

struct MelSettings {
  double lowest_hz;
  double highest_hz;
  size_t filters;
  double emphasis;       // of high sounds: the share of the sample before that is taken away from each
  double window_length;  // in seconds
  size_t lifter;         // 0 for none
};

class MelCepstrum {
public:
  // Throws std::runtime_error when the settings make no sense.
  explicit MelCepstrum(const MelSettings &settings);

  // Samples of one frame, and from one to the next.
  size_t window() const { return shape_.size(); }
  static constexpr size_t kStep = size_t{kModelRate} / 1000 * kFrameMs;

  // samples: window() of them, and `before` is the one before the first.
  Cepstrum compute(const int16_t *samples, int16_t before);

private:
  static constexpr size_t kPoints = 512;

  struct Filter {
    size_t first;  // point of the spectrum
    std::vector<float> weights;
  };

  void make_filters(const MelSettings &settings);
  void make_cosines(const MelSettings &settings);
  void transform();

  float emphasis_;
  std::vector<float> shape_;  // of the window
  std::vector<Filter> filters_;
  std::vector<Cepstrum> cosines_;  // of each filter's share in each coefficient
  std::array<std::complex<float>, kPoints> points_{};
  std::array<std::complex<float>, kPoints / 2> turns_{};
};

}  // namespace quillbrook::pocketsphinx
