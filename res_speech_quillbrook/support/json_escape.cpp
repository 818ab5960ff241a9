#include "../host.h"

#include "json_escape.h"

namespace {

constexpr uint32_t kLastOfBasicPlane = 0xFFFF;
constexpr uint32_t kLastCodePoint = 0x10FFFF;

// Reads one UTF-8 sequence of a terminated string: 1 with the code point and the bytes it took, or 0 when the bytes
// have not the form of one. Only the form is tested: overlong sequences, surrogates and values above U+10FFFF pass.
int utf8_decode(const unsigned char *s, uint32_t *codepoint, size_t *consumed) {
  size_t length = 0;
  uint32_t value = 0;
  if (s[0] < 0x80) {
    length = 1;
    value = s[0];
  } else if (s[0] >= 0xC0 && s[0] <= 0xDF) {
    length = 2;
    value = s[0] & 0x1FU;
  } else if (s[0] >= 0xE0 && s[0] <= 0xEF) {
    length = 3;
    value = s[0] & 0x0FU;
  } else if (s[0] >= 0xF0 && s[0] <= 0xF7) {
    length = 4;
    value = s[0] & 0x07U;
  } else {
    return 0;
  }
  for (size_t i = 1; i < length; ++i) {
    if ((s[i] & 0xC0) != 0x80) {
      return 0;  // also the terminator, so nothing behind it is read
    }
    value = (value << 6) | (s[i] & 0x3FU);
  }
  *codepoint = value;
  *consumed = length;
  return 1;
}

// Copies `src` to `dst` at `*pos` and moves `*pos` behind it. 0 when it does not fit with a byte to spare for a
// terminator, which is not written; the bytes that fit are then there.
int append_str(char *dst, size_t dst_size, size_t *pos, const char *src) {
  for (; *src; ++src) {
    if (*pos + 1 >= dst_size) {
      return 0;
    }
    dst[(*pos)++] = *src;
  }
  return 1;
}

// What JSON has for a byte below 0x80: a short escape, \uXXXX or, in `buffer`, the byte itself.
const char *ascii_form(unsigned char byte, char (&buffer)[16]) {
  switch (byte) {
    case '"':
      return "\\\"";
    case '\\':
      return "\\\\";
    case '\b':
      return "\\b";
    case '\f':
      return "\\f";
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      snprintf(buffer, sizeof(buffer), byte < 0x20 ? "\\u%04X" : "%c", byte);
      return buffer;
  }
}

}  // namespace

int json_escape_unicode_copy(char *dst, const char *src, size_t dst_size) {
  if (!dst || !src || !dst_size) {
    return 0;
  }
  size_t pos = 0;
  const auto *s = reinterpret_cast<const unsigned char *>(src);
  while (*s) {
    char buffer[16];
    const char *form = buffer;
    size_t consumed = 1;
    if (*s < 0x80) {
      form = ascii_form(*s, buffer);
    } else {
      uint32_t codepoint = 0;
      if (!utf8_decode(s, &codepoint, &consumed) || codepoint > kLastCodePoint) {
        return 0;
      }
      if (codepoint <= kLastOfBasicPlane) {
        snprintf(buffer, sizeof(buffer), "\\u%04X", codepoint);
      } else {
        const uint32_t offset = codepoint - (kLastOfBasicPlane + 1);
        snprintf(buffer, sizeof(buffer), "\\u%04X\\u%04X", 0xD800 + (offset >> 10), 0xDC00 + (offset & 0x3FF));
      }
    }
    if (!append_str(dst, dst_size, &pos, form)) {
      return 0;
    }
    s += consumed;
  }
  dst[pos] = '\0';
  return 1;
}
