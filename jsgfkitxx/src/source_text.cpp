#include "source_text.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "refusal.h"
#include "utf8.h"

namespace quillbrook::jsgf {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// What windows-1252 has at 0x80 to 0x9F; 0 where it has nothing.
constexpr std::array<char16_t, 32> kWindows1252 = {0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                                   0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
                                                   0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                                   0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

enum class Encoding { kUtf8, kLatin1, kLatin9, kWindows1252, kUtf16, kUnknown };

struct EncodingName {
  std::string_view name;  // letters and digits only, in small letters
  Encoding encoding;
};

constexpr EncodingName kEncodingNames[] = {
    {"utf8", Encoding::kUtf8},
    {"unicode11utf8", Encoding::kUtf8},
    {"ascii", Encoding::kUtf8},
    {"usascii", Encoding::kUtf8},
    {"ansix341968", Encoding::kUtf8},
    {"iso646us", Encoding::kUtf8},
    {"iso88591", Encoding::kLatin1},
    {"88591", Encoding::kLatin1},
    {"iso885911987", Encoding::kLatin1},
    {"latin1", Encoding::kLatin1},
    {"l1", Encoding::kLatin1},
    {"isolatin1", Encoding::kLatin1},
    {"csisolatin1", Encoding::kLatin1},
    {"cp819", Encoding::kLatin1},
    {"ibm819", Encoding::kLatin1},
    {"iso885915", Encoding::kLatin9},
    {"885915", Encoding::kLatin9},
    {"iso8859151998", Encoding::kLatin9},
    {"latin9", Encoding::kLatin9},
    {"l9", Encoding::kLatin9},
    {"isolatin9", Encoding::kLatin9},
    {"csiso885915", Encoding::kLatin9},
    {"latin0", Encoding::kLatin9},
    {"windows1252", Encoding::kWindows1252},
    {"cp1252", Encoding::kWindows1252},
    {"win1252", Encoding::kWindows1252},
    {"1252", Encoding::kWindows1252},
    {"ibm1252", Encoding::kWindows1252},
    {"cswindows1252", Encoding::kWindows1252},
};

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

// Case and punctuation mean nothing in the name of an encoding.
Encoding encoding_of(std::string_view name) {
  std::string key;
  for (const char c : name) {
    const char lower = c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    if ((lower >= 'a' && lower <= 'z') || (lower >= '0' && lower <= '9')) {
      key.push_back(lower);
    }
  }
  if (key.compare(0, 5, "utf16") == 0) {
    return Encoding::kUtf16;
  }
  const auto *known = std::find_if(std::begin(kEncodingNames), std::end(kEncodingNames),
                                   [&](const EncodingName &row) { return row.name == key; });
  return known == std::end(kEncodingNames) ? Encoding::kUnknown : known->encoding;
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

// Checks `#JSGF version [encoding [locale]];` from `at` on. Sets `at` behind it, and the name of the encoding.
Encoding read_header(std::string_view bytes, size_t &at, std::string_view &name) {
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
  name = fields.size() < 2 ? std::string_view("UTF-8") : fields[1];
  return encoding_of(name);
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
  std::string_view name;
  const Encoding encoding = read_header(bytes, source.body, name);
  if (encoding == Encoding::kUtf16) {
    refuse_utf16(bytes);
  }
  if (encoding == Encoding::kUnknown && !marked) {
    const auto beyond_ascii = std::find_if(bytes.begin(), bytes.end(), [](unsigned char byte) { return byte >= 0x80; });
    if (beyond_ascii != bytes.end()) {
      refuse(bytes, static_cast<size_t>(name.data() - bytes.data()),
             "expected the name of an encoding that is known, since the file has more than ASCII; found " +
                 std::string(name));
    }
  } else if (encoding != Encoding::kUtf8 && !marked) {
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
