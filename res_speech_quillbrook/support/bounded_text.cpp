#include "bounded_text.h"

namespace {

bool is_continuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

bool is_lead(char byte) {
  return static_cast<unsigned char>(byte) >= 0xC0;
}

// The largest place, up to `limit`, at which `text` can be cut without dividing a character.
size_t cut_place(const char *text, size_t limit) {
  constexpr size_t kLongestTail = 3;
  size_t place = limit;
  while (place > 0 && limit - place < kLongestTail && is_continuation(text[place])) {
    --place;
  }
  return is_lead(text[place]) ? place : limit;
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
