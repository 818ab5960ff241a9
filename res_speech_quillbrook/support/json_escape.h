// JSON strings in pure ASCII.
#pragma once

#include <cstddef>

// Writes `src` (UTF-8) to `dst` as the inside of a JSON string: quotes, backslashes and control characters escaped, and
// all that is not ASCII as \uXXXX, above U+FFFF as a surrogate pair (RFC 8259, section 7). 1 on success. 0 when it does
// not fit into `dst_size` bytes with a terminator, or when `src` is not UTF-8; `dst` is then not terminated and of no
// use. Exported by the module for its plugins.
extern "C" __attribute__((visibility("default"))) int json_escape_unicode_copy(char *dst, const char *src,
                                                                               size_t dst_size);
