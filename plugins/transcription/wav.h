// Samples as a WAV file in memory.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quillbrook::transcription {

// 16-bit linear, one channel, at the rate of the samples. With a higher target_rate (0: none) the samples between two
// are put on a straight line.
std::string to_wav(const std::vector<int16_t> &samples, int rate, int target_rate = 0);

}  // namespace quillbrook::transcription
