#include "source_text.h"

#include <array>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "refusal.h"
#include "utf8.h"

namespace quillbrook::jsgf {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Places are numbered with 28 bits, and a byte of source makes at most one.
constexpr size_t kMaxSourceBytes = size_t{1} << 27U;

// What windows-1252 has at 0x80 to 0x9F; 0 where it has nothing.
constexpr std::array<char16_t, 32> kWindows1252 = {0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                                   0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
                                                   0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                                   0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

enum class Encoding { kUtf8, kLatin1, kLatin9, kWindows1252, kUtf16 };

char32_t decode_byte(Encoding encoding, unsigned char byte) {
  if (encoding == Encoding::kWindows1252 && byte >= 0x80 && byte < 0xA0 && kWindows1252[byte - 0x80U] != 0) {
    return kWindows1252[byte - 0x80U];
  }
  if (encoding == Encoding::kLatin9) {
    switch (byte) {
      case 0xA4:
        return 0x20AC;
      case 0xA6:
        return 0x160;
      case 0xA8:
        return 0x161;
      case 0xB4:
        return 0x17D;
      case 0xB8:
        return 0x17E;
      case 0xBC:
        return 0x152;
      case 0xBD:
        return 0x153;
      case 0xBE:
        return 0x178;
      default:
        break;
    }
  }
  return byte;
}

// Hyphens and case mean nothing in the name of an encoding; unknown names count as UTF-8.
Encoding encoding_of(std::string_view name) {
  std::string key;
  for (const char c : name) {
    if (c != '-' && c != '_') {
      key.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c);
    }
  }
  return key == "iso88591"                 ? Encoding::kLatin1
         : key == "iso885915"              ? Encoding::kLatin9
         : key == "windows1252"            ? Encoding::kWindows1252
         : key.compare(0, 5, "utf16") == 0 ? Encoding::kUtf16
                                           : Encoding::kUtf8;
}

std::string read_all(std::istream &in) {
  std::string bytes;
  std::streambuf *buffer = in.rdbuf();
  if (!in || buffer == nullptr) {
    throw std::runtime_error("line 1, column 1: the stream cannot be read");
  }
  constexpr size_t kFirstChunk = 4096;
  size_t used = 0;
  for (;;) {
    if (used == bytes.size()) {
      bytes.resize(used == 0 ? kFirstChunk : used * 2);
    }
    const std::streamsize got = buffer->sgetn(&bytes[used], static_cast<std::streamsize>(bytes.size() - used));
    if (got <= 0) {
      break;
    }
    used += static_cast<size_t>(got);
    if (used > kMaxSourceBytes) {
      throw std::runtime_error("line 1, column 1: the grammar is larger than 128 MiB");
    }
  }
  bytes.resize(used);
  return bytes;
}

[[noreturn]] void refuse_utf16(std::string_view bytes) {
  refuse(bytes, 0, "the file is UTF-16; expected UTF-8 or a single-byte encoding that the header names");
}

bool is_blank(char c) {
  return c == ' ' || c == '\t';
}

// Checks `#JSGF version [encoding [locale]];` from `at` on. Sets `at` behind it.
Encoding read_header(std::string_view bytes, size_t &at) {
  constexpr std::string_view kMagic = "#JSGF";
  const auto skip_blanks = [&] {
    while (at < bytes.size() && is_blank(bytes[at])) {
      ++at;
    }
  };
  while (at < bytes.size() && (is_blank(bytes[at]) || bytes[at] == '\n' || bytes[at] == '\r' || bytes[at] == '\f')) {
    ++at;
  }
  if (bytes.compare(at, kMagic.size(), kMagic) != 0) {
    refuse(bytes, at, "expected the header '#JSGF V1.0;', found " + describe_character(bytes, at));
  }
  at += kMagic.size();
  std::vector<std::string_view> fields;
  for (skip_blanks(); at < bytes.size() && bytes[at] != ';'; skip_blanks()) {
    const size_t begin = at;
    while (at < bytes.size() && bytes[at] > ' ' && bytes[at] < 0x7F && bytes[at] != ';') {
      ++at;
    }
    constexpr size_t kMaxFields = 3;
    if (begin == at || fields.size() == kMaxFields || (fields.empty() && !is_blank(bytes[begin - 1]))) {
      refuse(bytes, begin, "expected ';' at the end of the header, found " + describe_character(bytes, begin));
    }
    fields.push_back(bytes.substr(begin, at - begin));
    if (fields.size() == 1 && fields[0].substr(0, 2) != "V1") {
      refuse(bytes, begin, "expected the version V1.0, found " + std::string(fields[0]));
    }
  }
  if (fields.empty() || at == bytes.size()) {
    refuse(bytes, at, fields.empty() ? "expected a version in the header" : "expected ';' at the end of the header");
  }
  ++at;
  return fields.size() < 2 ? Encoding::kUtf8 : encoding_of(fields[1]);
}

}  // namespace

SourceText read_source(std::istream &in) {
  SourceText source;
  source.utf8 = read_all(in);
  std::string &bytes = source.utf8;
  const bool marked = bytes.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0;
  if (marked) {
    bytes.erase(0, kByteOrderMark.size());
  }
  const std::string_view start = std::string_view(bytes).substr(0, 2);
  if (start == "\xFE\xFF" || start == "\xFF\xFE" || start.find('\0') != std::string_view::npos) {
    refuse_utf16(bytes);
  }
  const Encoding encoding = read_header(bytes, source.body);
  if (encoding == Encoding::kUtf16) {
    refuse_utf16(bytes);
  }
  if (encoding != Encoding::kUtf8 && !marked) {
    std::string converted;
    converted.reserve(bytes.size() + bytes.size() / 4);
    for (const char c : bytes) {
      append_utf8(converted, decode_byte(encoding, static_cast<unsigned char>(c)));
    }
    bytes = std::move(converted);
  }
  bytes.shrink_to_fit();
  return source;
}

}  // namespace quillbrook::jsgf
