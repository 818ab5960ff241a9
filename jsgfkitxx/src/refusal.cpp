#include "refusal.h"

#include "utf8.h"

namespace quillbrook::jsgf {

std::string position_in(std::string_view source, size_t offset) {
  size_t line = 1;
  size_t column = 1;
  size_t length = 1;
  for (size_t at = 0; at < offset && at < source.size(); at += length) {
    length = 1;
    const bool carriage_return = source[at] == '\r';
    if (carriage_return && at + 1 < source.size() && source[at + 1] == '\n') {
      continue;  // the line feed behind it ends the line
    }
    if (carriage_return || source[at] == '\n') {
      ++line;
      column = 1;
    } else {
      decode_utf8(source, at, length);
      ++column;
    }
  }
  return "line " + std::to_string(line) + ", column " + std::to_string(column) + ": ";
}

void refuse(std::string_view source, size_t offset, const std::string &reason) {
  throw std::runtime_error(position_in(source, offset) + reason);
}

std::string describe_character(std::string_view source, size_t offset) {
  if (offset >= source.size()) {
    return "the end of the file";
  }
  const char c = source[offset];
  if (c == '\n' || c == '\r') {
    return "a line end";
  }
  size_t length = 0;
  const char32_t value = decode_utf8(source, offset, length);
  if (value < 0x20 || value == 0x7F || value >= kInvalidByte) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    return std::string("the byte 0x") + kDigits[byte >> 4U] + kDigits[byte & 0xFU];
  }
  return "'" + std::string(source.substr(offset, length)) + "'";
}

}  // namespace quillbrook::jsgf
