// Copies of texts into fixed buffers.
#pragma once

#include "../host.h"

// Copies `text` into the `size` bytes at `target`, always terminated. A longer text is cut on a UTF-8 boundary, so that
// no half character is left at the end; bytes that are not UTF-8 are cut anywhere. Null counts as empty.
void copy_text(char *target, size_t size, const char *text);

// The same into an array, by its own size.
template <size_t Size>
void copy_text(char (&target)[Size], const char *text) {
  copy_text(target, Size, text);
}
