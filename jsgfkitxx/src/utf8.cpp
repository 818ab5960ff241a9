#include "utf8.h"

namespace quillbrook::jsgf {

char32_t decode_utf8(std::string_view text, size_t at, size_t &length) {
  const auto byte = [&](size_t offset) { return static_cast<unsigned char>(text[at + offset]); };
  const unsigned char lead = byte(0);
  length = 1;
  if (lead < 0x80) {
    return lead;
  }
  const size_t wanted = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() - at < wanted) {
    return kInvalidByte + lead;
  }
  char32_t value = lead & (0x7FU >> wanted);
  for (size_t i = 1; i < wanted; ++i) {
    if ((byte(i) & 0xC0U) != 0x80) {
      return kInvalidByte + lead;
    }
    value = value << 6U | (byte(i) & 0x3FU);
  }
  const bool too_long = (wanted == 3 && value < 0x800) || (wanted == 4 && value < 0x10000);
  if (too_long || (value >= 0xD800 && value < 0xE000) || value > 0x10FFFF) {
    return kInvalidByte + lead;
  }
  length = wanted;
  return value;
}

void append_utf8(std::string &text, char32_t character) {
  const auto push = [&](char32_t byte) { text.push_back(static_cast<char>(byte)); };
  const auto push_tail = [&](char32_t bits) { push(0x80U | (bits & 0x3FU)); };
  if (character >= kInvalidByte) {
    push(character - kInvalidByte);
  } else if (character < 0x80) {
    push(character);
  } else if (character < 0x800) {
    push(0xC0U | character >> 6U);
    push_tail(character);
  } else if (character < 0x10000) {
    push(0xE0U | character >> 12U);
    push_tail(character >> 6U);
    push_tail(character);
  } else {
    push(0xF0U | character >> 18U);
    push_tail(character >> 12U);
    push_tail(character >> 6U);
    push_tail(character);
  }
}

}  // namespace quillbrook::jsgf
