// Reads the stream file while another thread appends to it, as 16-bit mono samples.
//
// The file has no end mark, and the sizes in its WAV header stay unset until it is closed: only the header's format
// and the place where the samples begin are taken from it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quillbrook::pocketsphinx {

class StreamReader {
public:
  // format is the host's name for the file: "wav", "wav16", "ulaw" (also "ul", "mu", "ulw", "pcm"), "alaw" ("al",
  // "alw"), "sln" ("raw", "slin"), "sln12", "sln16", "sln24", "sln32", "sln44", "sln48".
  // Throws std::runtime_error with a sentence for the operator when the format is none of them or the file cannot be
  // opened.
  StreamReader(const std::string &path, std::string_view format);
  ~StreamReader();
  StreamReader(const StreamReader &) = delete;
  StreamReader &operator=(const StreamReader &) = delete;

  // Appends at most `most` samples to `samples`, as many as the file holds by now, and returns how many: 0 when there
  // is nothing new. Throws std::runtime_error when the file cannot be read or its header is none that we understand.
  size_t read(std::vector<int16_t> &samples, size_t most);

  // Samples a second. Known from the first sample on; 0 while the header has not been seen.
  int sample_rate() const { return sample_rate_; }

private:
  enum class Encoding { kLinear, kUlaw, kAlaw };
  enum class Header { kNone, kRiff, kChunk, kFormat, kSkip };

  bool read_header();
  bool fill(size_t wanted);
  void begin_chunk();
  void take_format();
  size_t bytes_per_sample() const { return encoding_ == Encoding::kLinear ? 2 : 1; }

  int file_ = -1;
  Encoding encoding_ = Encoding::kLinear;
  int sample_rate_ = 0;
  Header header_ = Header::kNone;  // what of the header comes next; none: the samples
  std::array<uint8_t, 8192> buffer_{};
  size_t held_ = 0;       // bytes in buffer_ that are not used yet: a part of the header or of a sample
  uint64_t to_skip_ = 0;  // bytes of an unknown chunk that are still to come
  size_t format_size_ = 0;
  size_t header_bytes_ = 0;  // bytes of header seen, to give up on a file that is all header
};

}  // namespace quillbrook::pocketsphinx
