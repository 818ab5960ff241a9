// Reads a stream file while the module still appends to it, as 16-bit linear samples, one channel.
//
// The sizes in the header of a growing WAV file are not set yet: the data begins at its "data" chunk and goes on to
// the end of the file, wherever that is at the moment.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "descriptor.h"

namespace quillbrook::common {

class StreamFile {
public:
  // `format` is the file's extension as the PBX knows it. Throws Failure for a format that cannot be decoded, and when
  // the file does not open.
  StreamFile(const std::string &path, const std::string &format);

  // False while the header has not been written in full; then there is no rate and nothing to read. Throws Failure
  // when the header cannot be that of a usable file.
  bool ready();
  // Samples a second, 8000 to 48000.
  int rate() const { return rate_; }

  // Puts `count` samples behind those in `samples`. With fewer in the file: all of them when `rest` is set, else none.
  // Returns the number of samples put there, and moves on by as many.
  size_t read(size_t count, bool rest, std::vector<int16_t> &samples);
  // How long the file of a call in real time needs until the latest read gets all that it asked for.
  std::chrono::milliseconds missing() const;
  // The next sample to be read, counted from the first of the file.
  size_t position() const { return position_; }
  void seek(size_t sample) { position_ = sample; }

private:
  enum class Coding { kLinear, kMuLaw, kALaw };

  bool parse_header();
  void take_format(const uint8_t *format);

  Descriptor file_;
  Coding coding_ = Coding::kLinear;
  int rate_ = 8000;
  bool has_header_ = false;
  size_t data_ = 0;  // where the samples begin; 0 before a WAV header was found
  size_t position_ = 0;
  size_t short_by_ = 0;  // samples, of the latest read
  std::vector<uint8_t> codes_;
};

}  // namespace quillbrook::common
