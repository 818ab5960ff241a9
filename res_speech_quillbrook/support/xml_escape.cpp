#include "xml_escape.h"

namespace {

constexpr char kBlank[] = " ";
constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD

// The bytes that belong together at one place of a text, and what stands for them; null when they stand for themselves.
struct Piece {
  size_t length;
  const char *replacement;
};

Piece ascii(unsigned char byte) {
  switch (byte) {
    case '&':
      return {1, "&amp;"};
    case '<':
      return {1, "&lt;"};
    case '>':
      return {1, "&gt;"};
    case '"':
      return {1, "&quot;"};
    case '\'':
      return {1, "&apos;"};
    case '\t':
    case '\n':
    case '\r':
      return {1, nullptr};
    default:
      return {1, byte < 0x20 ? kBlank : nullptr};
  }
}

// How many bytes follow a lead byte, and what the first of them may be: overlong forms, surrogates and what lies beyond
// U+10FFFF are no UTF-8. 0 when the byte leads nothing.
struct Tail {
  size_t length;
  unsigned char least, most;
};
Tail tail_of(unsigned char lead) {
  if (lead < 0xC2 || lead > 0xF4) {
    return {0, 0, 0};
  }
  if (lead < 0xE0) {
    return {1, 0x80, 0xBF};
  }
  if (lead < 0xF0) {
    return {2, static_cast<unsigned char>(lead == 0xE0 ? 0xA0 : 0x80),
            static_cast<unsigned char>(lead == 0xED ? 0x9F : 0xBF)};
  }
  return {3, static_cast<unsigned char>(lead == 0xF0 ? 0x90 : 0x80),
          static_cast<unsigned char>(lead == 0xF4 ? 0x8F : 0xBF)};
}

// The terminator fits no tail, so nothing behind it is looked at.
Piece beyond_ascii(const unsigned char *s) {
  const Tail tail = tail_of(s[0]);
  if (!tail.length || s[1] < tail.least || s[1] > tail.most) {
    return {1, kReplacement};
  }
  for (size_t index = 2; index <= tail.length; ++index) {
    if ((s[index] & 0xC0) != 0x80) {
      return {1, kReplacement};
    }
  }
  const bool forbidden = s[0] == 0xEF && s[1] == 0xBF && s[2] >= 0xBE;  // U+FFFE, U+FFFF
  return {tail.length + 1, forbidden ? kBlank : nullptr};
}

Piece piece_at(const char *s) {
  const auto *bytes = reinterpret_cast<const unsigned char *>(s);
  return bytes[0] < 0x80 ? ascii(bytes[0]) : beyond_ascii(bytes);
}

}  // namespace

void xml_fputs_escaped(FILE *out, const char *s) {
  if (!out || !s) {
    return;
  }
  const char *plain = s;  // start of the bytes that are not yet written and stand for themselves
  while (*s) {
    const Piece piece = piece_at(s);
    if (piece.replacement) {
      fwrite(plain, 1, static_cast<size_t>(s - plain), out);
      fputs(piece.replacement, out);
      plain = s + piece.length;
    }
    s += piece.length;
  }
  fwrite(plain, 1, static_cast<size_t>(s - plain), out);
}
