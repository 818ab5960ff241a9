#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quillbrook::jsgf {

// A byte that belongs to no well-formed sequence is a character of its own: this base plus the byte.
constexpr char32_t kInvalidByte = 0x110000;

// The character at `at`, which is below the text's size. Sets `length` to its bytes, 1 to 4.
char32_t decode_utf8(std::string_view text, size_t at, size_t &length);

// Appends the character; an invalid byte goes back to that byte.
void append_utf8(std::string &text, char32_t character);

}  // namespace quillbrook::jsgf
