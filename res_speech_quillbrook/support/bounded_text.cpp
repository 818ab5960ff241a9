#include "bounded_text.h"

namespace {

bool is_continuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

size_t sequence_length(char lead) {
  const auto byte = static_cast<unsigned char>(lead);
  if (byte >= 0xF0 && byte <= 0xF7) {
    return 4;
  }
  if (byte >= 0xE0) {
    return 3;
  }
  return byte >= 0xC0 ? 2 : 1;
}

// The largest place, up to `limit`, at which `text` can be cut without dividing a character.
size_t cut_place(const char *text, size_t limit) {
  constexpr size_t LONGEST_TAIL = 3;
  for (size_t back = 1; back <= LONGEST_TAIL && back <= limit; ++back) {
    const char byte = text[limit - back];
    if (!is_continuation(byte)) {
      return sequence_length(byte) > back && is_continuation(text[limit]) ? limit - back : limit;
    }
  }
  return limit;
}

}  // namespace

void copy_text(char *target, size_t size, const char *text) {
  if (!size) {
    return;
  }
  size_t length = text ? strnlen(text, size) : 0;
  if (length == size) {
    length = cut_place(text, size - 1);
  }
  if (length) {
    memmove(target, text, length);
  }
  target[length] = '\0';
}
