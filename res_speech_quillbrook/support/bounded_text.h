// Copies of texts into fixed buffers.
#ifndef QUILLBROOK_SUPPORT_BOUNDED_TEXT_H
#define QUILLBROOK_SUPPORT_BOUNDED_TEXT_H

#include "../host.h"

// Copies `text` into the `size` bytes at `target`, always terminated. A longer text is cut on a UTF-8 boundary, so that
// no half character is left at the end; bytes that are not UTF-8 are cut anywhere. Null counts as empty.
void copy_text(char *target, size_t size, const char *text);

// The same into an array, by its own size.
template <size_t Size>
void copy_text(char (&target)[Size], const char *text) {
  copy_text(target, Size, text);
}

#endif
