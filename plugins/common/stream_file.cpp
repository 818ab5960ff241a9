#include "stream_file.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "failure.h"

namespace quillbrook::common {

namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "samples are read as they stand in the file");

// Samples a second of the raw linear formats, by extension.
constexpr struct {
  const char *format;
  int rate;
} kLinearFormats[] = {{"sln", 8000},    {"slin", 8000},   {"raw", 8000},    {"sln12", 12000}, {"sln16", 16000},
                      {"sln24", 24000}, {"sln32", 32000}, {"sln44", 44100}, {"sln48", 48000}};
constexpr int kLowestRate = 8000;
constexpr int kHighestRate = 48000;

uint32_t little_endian(const uint8_t *bytes, int count) {
  uint32_t value = 0;
  for (int i = count - 1; i >= 0; --i) value = value << 8 | bytes[i];
  return value;
}

// ITU-T G.711: segments of 16 steps, each step twice as wide as in the segment below.
int16_t from_mu_law(uint8_t code) {
  constexpr int kBias = 0x84;
  const int inverted = ~code & 0xff;
  const int magnitude = ((((inverted & 0x0f) << 3) + kBias) << (inverted >> 4 & 7)) - kBias;
  return static_cast<int16_t>((inverted & 0x80) != 0 ? -magnitude : magnitude);
}

int16_t from_a_law(uint8_t code) {
  const int inverted = code ^ 0x55;
  const int segment = inverted >> 4 & 7;
  const int step = (inverted & 0x0f) << 4;
  const int magnitude = segment == 0 ? step + 8 : (step + 0x108) << (segment - 1);
  return static_cast<int16_t>((inverted & 0x80) != 0 ? magnitude : -magnitude);
}

}  // namespace

StreamFile::StreamFile(const std::string &path, const std::string &format) {
  const auto is_any_of = [&format](std::initializer_list<const char *> names) {
    return std::find(names.begin(), names.end(), format) != names.end();
  };
  if (is_any_of({"wav", "wav16"})) {
    has_header_ = true;
  } else if (is_any_of({"ulaw", "ul", "mu", "ulw", "pcm"})) {
    coding_ = Coding::kMuLaw;
  } else if (is_any_of({"alaw", "al", "alw"})) {
    coding_ = Coding::kALaw;
  } else {
    rate_ = 0;
    for (const auto &linear : kLinearFormats) {
      if (format == linear.format) rate_ = linear.rate;
    }
    if (rate_ == 0) {
      throw Failure("audio of the format '" + format.substr(0, 32) + "' cannot be read: use wav, ulaw, alaw or sln");
    }
  }
  // The file lies in a folder that everybody can write to: a link in its place is not followed.
  file_ = Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (file_.get() < 0) throw Failure("the stream file " + path + " does not open: " + strerror(errno));
}

bool StreamFile::ready() {
  return !has_header_ || data_ != 0 || parse_header();
}

bool StreamFile::parse_header() {
  constexpr size_t kHeaderLimit = 4096;
  constexpr size_t kFormatSize = 16;
  uint8_t header[kHeaderLimit];
  const ssize_t got = pread(file_.get(), header, sizeof header, 0);
  const size_t size = got > 0 ? static_cast<size_t>(got) : 0;
  if (size < 12) return false;
  if (memcmp(header, "RIFF", 4) != 0 || memcmp(header + 8, "WAVE", 4) != 0) {
    throw Failure("the stream file is no WAV file");
  }
  bool described = false;
  size_t at = 12;
  while (at + 8 <= size && memcmp(header + at, "data", 4) != 0) {
    const size_t length = little_endian(header + at + 4, 4);
    if (memcmp(header + at, "fmt ", 4) == 0) {
      if (length < kFormatSize) throw Failure("the stream file's WAV header does not describe its samples");
      if (at + 8 + kFormatSize > size) return false;
      take_format(header + at + 8);
      described = true;
    }
    at += 8 + length + (length & 1);
  }
  if (at + 8 > size) {
    if (at >= kHeaderLimit - 8) throw Failure("the stream file's WAV header has no data chunk");
    return false;
  }
  if (!described) throw Failure("the stream file's WAV header does not describe its samples");
  data_ = at + 8;
  return true;
}

// Tags of the WAVE format: Microsoft's multimedia registrations.
void StreamFile::take_format(const uint8_t *format) {
  constexpr uint32_t kLinear = 1;
  constexpr uint32_t kALaw = 6;
  constexpr uint32_t kMuLaw = 7;
  const uint32_t tag = little_endian(format, 2);
  const uint32_t channels = little_endian(format + 2, 2);
  const uint32_t rate = little_endian(format + 4, 4);
  const uint32_t bits = little_endian(format + 14, 2);
  if (tag == kLinear && bits == 16) {
    coding_ = Coding::kLinear;
  } else if (tag == kMuLaw && bits == 8) {
    coding_ = Coding::kMuLaw;
  } else if (tag == kALaw && bits == 8) {
    coding_ = Coding::kALaw;
  } else {
    throw Failure("the stream file holds format " + std::to_string(tag) + " with " + std::to_string(bits) +
                  " bits: 16-bit linear samples, mu-law and A-law can be read");
  }
  if (channels != 1 || rate < kLowestRate || rate > kHighestRate) {
    throw Failure("the stream file has " + std::to_string(channels) + " channels at " + std::to_string(rate) +
                  " Hz: one channel at 8000 to 48000 Hz can be read");
  }
  rate_ = static_cast<int>(rate);
}

std::chrono::milliseconds StreamFile::missing() const {
  return std::chrono::milliseconds(short_by_ * 1000 / static_cast<size_t>(rate_));
}

size_t StreamFile::read(size_t count, bool rest, std::vector<int16_t> &samples) {
  const bool linear = coding_ == Coding::kLinear;
  const size_t width = linear ? 2 : 1;
  const size_t before = samples.size();
  samples.resize(before + count);
  codes_.resize(linear ? 0 : count);
  void *target = linear ? static_cast<void *>(samples.data() + before) : codes_.data();
  const ssize_t got = pread(file_.get(), target, count * width, static_cast<off_t>(data_ + position_ * width));
  // A sample that is only half there stays for the next time.
  size_t taken = got > 0 ? static_cast<size_t>(got) / width : 0;
  short_by_ = count - taken;
  if (taken < count && !rest) taken = 0;
  samples.resize(before + taken);
  if (!linear) {
    std::transform(codes_.begin(), codes_.begin() + static_cast<std::ptrdiff_t>(taken),
                   samples.begin() + static_cast<std::ptrdiff_t>(before),
                   coding_ == Coding::kMuLaw ? from_mu_law : from_a_law);
  }
  position_ += taken;
  return taken;
}

}  // namespace quillbrook::common
