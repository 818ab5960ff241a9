#include "wav.h"

#include <algorithm>

namespace quillbrook::transcription {

namespace {

void put(std::string &bytes, uint32_t value, int count) {
  for (int i = 0; i < count; ++i) bytes += static_cast<char>(value >> (8 * i));
}

int16_t between(const std::vector<int16_t> &samples, uint64_t position, uint64_t unit) {
  const size_t index = position / unit;
  const auto share = static_cast<int64_t>(position % unit);
  const int64_t here = samples[index];
  const int64_t next = samples[std::min(index + 1, samples.size() - 1)];
  return static_cast<int16_t>(here + (next - here) * share / static_cast<int64_t>(unit));
}

}  // namespace

std::string to_wav(const std::vector<int16_t> &samples, int rate, int target_rate) {
  constexpr uint32_t kHeaderSize = 44;
  const auto from = static_cast<uint64_t>(rate);
  const auto to = static_cast<uint64_t>(std::max(rate, target_rate));
  const size_t count = samples.size() * to / from;
  const auto size = static_cast<uint32_t>(count * 2);
  std::string bytes;
  bytes.reserve(kHeaderSize + size);
  bytes += "RIFF";
  put(bytes, kHeaderSize - 8 + size, 4);
  bytes += "WAVEfmt ";
  put(bytes, 16, 4);
  put(bytes, 1, 2);  // linear
  put(bytes, 1, 2);  // channels
  put(bytes, static_cast<uint32_t>(to), 4);
  put(bytes, static_cast<uint32_t>(to * 2), 4);
  put(bytes, 2, 2);
  put(bytes, 16, 2);
  bytes += "data";
  put(bytes, size, 4);
  for (size_t i = 0; i < count; ++i) put(bytes, static_cast<uint16_t>(between(samples, i * from, to)), 2);
  return bytes;
}

}  // namespace quillbrook::transcription
