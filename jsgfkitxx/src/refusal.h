#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quillbrook::jsgf {

// Throws the std::runtime_error for a grammar that can't be loaded: "line L, column C: " of the byte at `offset` of the
// source, then the reason.
[[noreturn]] void refuse(std::string_view source, size_t offset, const std::string &reason);

// The character at `offset` as an error shows it: in quotes, "a line end" or "the end of the file".
std::string describe_character(std::string_view source, size_t offset);

}  // namespace quillbrook::jsgf
