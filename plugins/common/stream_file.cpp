#include "stream_file.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "failure.h"

namespace quillbrook::common {

namespace {

// Samples a second of the raw linear formats, by extension.
constexpr struct {
  const char *format;
  int rate;
} kLinearFormats[] = {{"sln", 8000},    {"slin", 8000},   {"raw", 8000},    {"sln12", 12000}, {"sln16", 16000},
                      {"sln24", 24000}, {"sln32", 32000}, {"sln44", 44100}, {"sln48", 48000}};

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
  if (format == "wav" || format == "wav16") {
    has_header_ = true;
  } else if (format == "ulaw" || format == "ul" || format == "mu" || format == "pcm") {
    coding_ = Coding::kMuLaw;
  } else if (format == "alaw" || format == "al") {
    coding_ = Coding::kALaw;
  } else {
    rate_ = 0;
    for (const auto &linear : kLinearFormats) {
      if (format == linear.format) rate_ = linear.rate;
    }
    if (rate_ == 0) throw Failure("audio of the format '" + format + "' cannot be sent: use wav, ulaw, alaw or sln");
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
      if (at + 8 + kFormatSize > size) return false;
      const uint8_t *format = header + at + 8;
      rate_ = static_cast<int>(little_endian(format + 4, 4));
      if (little_endian(format, 2) != 1 || little_endian(format + 2, 2) != 1 || little_endian(format + 14, 2) != 16 ||
          rate_ < 4000 || rate_ > 192000) {
        throw Failure("the stream file is no WAV file of 16-bit linear samples in one channel");
      }
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

size_t StreamFile::read(size_t count, bool rest, std::string &audio) {
  const size_t width = coding_ == Coding::kLinear ? 2 : 1;
  audio.clear();
  buffer_.resize(count * width);
  const ssize_t got = pread(file_.get(), buffer_.data(), buffer_.size(), static_cast<off_t>(data_ + position_ * width));
  // A sample that is only half there stays for the next time.
  const size_t samples = got > 0 ? static_cast<size_t>(got) / width : 0;
  if (samples == 0 || (samples < count && !rest)) return 0;
  if (coding_ == Coding::kLinear) {
    audio.assign(reinterpret_cast<const char *>(buffer_.data()), samples * width);
  } else {
    for (size_t i = 0; i < samples; ++i) {
      const int16_t sample = coding_ == Coding::kMuLaw ? from_mu_law(buffer_[i]) : from_a_law(buffer_[i]);
      audio += static_cast<char>(sample & 0xff);
      audio += static_cast<char>(sample >> 8 & 0xff);
    }
  }
  position_ += samples;
  return samples;
}

}  // namespace quillbrook::common
