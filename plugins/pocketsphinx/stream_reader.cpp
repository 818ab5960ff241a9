#include "stream_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace quillbrook::pocketsphinx {
namespace {

constexpr size_t kLongestHeader = 65536;  // a WAV file whose samples begin later than this is refused
constexpr int kLowestRate = 8000;
constexpr int kHighestRate = 48000;

// WAVE format tags (Microsoft's multimedia registrations).
constexpr unsigned kTagLinear = 1;
constexpr unsigned kTagAlaw = 6;
constexpr unsigned kTagUlaw = 7;

unsigned little_endian(const uint8_t *bytes, int count) {
  unsigned value = 0;
  for (int i = 0; i < count; ++i) value |= static_cast<unsigned>(bytes[i]) << (8 * i);
  return value;
}

// ITU-T G.711: sign, 3 bits of exponent, 4 bits of mantissa; all bits inverted.
int16_t from_ulaw(uint8_t code) {
  code = static_cast<uint8_t>(~code);
  int magnitude = ((((code & 0x0F) << 3) + 0x84) << ((code & 0x70) >> 4)) - 0x84;
  return static_cast<int16_t>((code & 0x80) != 0 ? -magnitude : magnitude);
}

// ITU-T G.711: as above, with every other bit inverted and the lowest segment linear.
int16_t from_alaw(uint8_t code) {
  code ^= 0x55;
  int exponent = (code & 0x70) >> 4;
  int magnitude = ((code & 0x0F) << 4) + 8;
  if (exponent > 0) magnitude = (magnitude + 0x100) << (exponent - 1);
  return static_cast<int16_t>((code & 0x80) != 0 ? magnitude : -magnitude);
}

bool is_any_of(std::string_view text, std::initializer_list<std::string_view> names) {
  return std::find(names.begin(), names.end(), text) != names.end();
}

}  // namespace

StreamReader::StreamReader(const std::string &path, std::string_view format) {
  struct Linear {
    std::string_view name;
    int rate;
  };
  static constexpr Linear kLinear[] = {{"sln", 8000},    {"raw", 8000},    {"slin", 8000},
                                       {"sln12", 12000}, {"sln16", 16000}, {"sln24", 24000},
                                       {"sln32", 32000}, {"sln44", 44100}, {"sln48", 48000}};
  if (format == "wav" || format == "wav16") {
    header_ = Header::kRiff;
  } else if (is_any_of(format, {"ulaw", "ul", "mu", "ulw", "pcm"})) {
    encoding_ = Encoding::kUlaw;
    sample_rate_ = 8000;
  } else if (is_any_of(format, {"alaw", "al", "alw"})) {
    encoding_ = Encoding::kAlaw;
    sample_rate_ = 8000;
  } else {
    const auto *found = std::find_if(std::begin(kLinear), std::end(kLinear),
                                     [format](const Linear &candidate) { return candidate.name == format; });
    if (found == std::end(kLinear)) {
      throw std::runtime_error("the stream format '" + std::string(format.substr(0, 32)) +
                               "' is not supported: set format to wav, ulaw, alaw or sln");
    }
    sample_rate_ = found->rate;
  }

  file_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file_ < 0) {
    throw std::runtime_error("the stream file " + path +
                             " cannot be opened: " + std::generic_category().message(errno));
  }
}

StreamReader::~StreamReader() {
  close(file_);
}

// Reads until buffer_ holds `wanted` bytes. False when the file does not have that many yet.
bool StreamReader::fill(size_t wanted) {
  while (held_ < wanted) {
    ssize_t got = ::read(file_, buffer_.data() + held_, wanted - held_);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw std::runtime_error("the stream file cannot be read: " + std::generic_category().message(errno));
    if (got == 0) return false;
    held_ += static_cast<size_t>(got);
  }
  return true;
}

void StreamReader::begin_chunk() {
  size_t size = little_endian(buffer_.data() + 4, 4);
  held_ = 0;
  if (memcmp(buffer_.data(), "data", 4) == 0) {
    if (sample_rate_ == 0) throw std::runtime_error("the stream file has no 'fmt ' chunk ahead of its samples");
    header_ = Header::kNone;
  } else if (memcmp(buffer_.data(), "fmt ", 4) == 0) {
    if (size < 16 || size > 1024) throw std::runtime_error("the stream file has a bad 'fmt ' chunk");
    format_size_ = size + size % 2;
    header_ = Header::kFormat;
  } else {
    to_skip_ = static_cast<uint64_t>(size) + size % 2;
    header_ = Header::kSkip;
  }
}

void StreamReader::take_format() {
  unsigned tag = little_endian(buffer_.data(), 2);
  unsigned channels = little_endian(buffer_.data() + 2, 2);
  unsigned rate = little_endian(buffer_.data() + 4, 4);
  unsigned bits = little_endian(buffer_.data() + 14, 2);
  if (tag == kTagLinear && bits == 16) {
    encoding_ = Encoding::kLinear;
  } else if (tag == kTagUlaw && bits == 8) {
    encoding_ = Encoding::kUlaw;
  } else if (tag == kTagAlaw && bits == 8) {
    encoding_ = Encoding::kAlaw;
  } else {
    throw std::runtime_error("the stream file holds format " + std::to_string(tag) + " with " + std::to_string(bits) +
                             " bits: 16-bit linear, mu-law and A-law can be read");
  }
  if (channels != 1 || rate < kLowestRate || rate > kHighestRate) {
    throw std::runtime_error("the stream file has " + std::to_string(channels) + " channels at " +
                             std::to_string(rate) + " Hz: one channel at 8000 to 48000 Hz can be read");
  }
  sample_rate_ = static_cast<int>(rate);
  held_ = 0;
  header_ = Header::kChunk;
}

// True when the samples come next.
bool StreamReader::read_header() {
  while (header_ != Header::kNone) {
    size_t wanted = header_ == Header::kRiff     ? 12
                    : header_ == Header::kChunk  ? 8
                    : header_ == Header::kFormat ? format_size_
                                                 : std::min<uint64_t>(to_skip_, buffer_.size());
    if (!fill(wanted)) return false;
    header_bytes_ += wanted;
    if (header_bytes_ > kLongestHeader) throw std::runtime_error("the stream file has no 'data' chunk in its header");

    switch (header_) {
      case Header::kRiff:
        if (memcmp(buffer_.data(), "RIFF", 4) != 0 || memcmp(buffer_.data() + 8, "WAVE", 4) != 0) {
          throw std::runtime_error("the stream file is no WAV file");
        }
        held_ = 0;
        header_ = Header::kChunk;
        break;
      case Header::kChunk:
        begin_chunk();
        break;
      case Header::kFormat:
        take_format();
        break;
      case Header::kSkip:
        held_ = 0;
        to_skip_ -= wanted;
        if (to_skip_ == 0) header_ = Header::kChunk;
        break;
      case Header::kNone:
        break;
    }
  }
  return true;
}

size_t StreamReader::read(std::vector<int16_t> &samples, size_t most) {
  if (!read_header()) return 0;

  size_t width = bytes_per_sample();
  size_t count = 0;
  while (count < most) {
    fill(std::min(buffer_.size(), (most - count) * width));
    size_t whole = held_ / width;
    if (whole == 0) break;
    for (size_t i = 0; i < whole; ++i) {
      const uint8_t *bytes = buffer_.data() + i * width;
      samples.push_back(encoding_ == Encoding::kLinear ? static_cast<int16_t>(little_endian(bytes, 2))
                        : encoding_ == Encoding::kUlaw ? from_ulaw(*bytes)
                                                       : from_alaw(*bytes));
    }
    count += whole;
    held_ -= whole * width;
    memmove(buffer_.data(), buffer_.data() + whole * width, held_);  // half a sample at most
  }
  return count;
}

}  // namespace quillbrook::pocketsphinx
