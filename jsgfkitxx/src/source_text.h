#pragma once

#include <cstddef>
#include <istream>
#include <string>

namespace quillbrook::jsgf {

// For all files of a grammar together. Places are numbered with 28 bits, and a byte of source makes at most one.
constexpr size_t kMaxSourceBytes = size_t{1} << 27U;

// A grammar file behind its self-identifying header.
struct SourceText {
  std::string utf8;  // the whole file without a byte order mark; bytes that are no UTF-8 are kept
  size_t body = 0;   // where the header ends
};

// Reads the stream to its end, checks the header and converts from the encoding that it names.
SourceText read_source(std::istream &in);

}  // namespace quillbrook::jsgf
