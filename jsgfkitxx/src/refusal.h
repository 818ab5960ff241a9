#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "syntax.h"

namespace quillbrook::jsgf {

// "line L, column C: " of the byte at `offset` of a source; and throws the std::runtime_error for a grammar that can't
// be loaded, which says that and the reason.
std::string position_in(std::string_view source, size_t offset);
[[noreturn]] void refuse(std::string_view source, size_t offset, const std::string &reason);

// Runs `work` on an imported file: what it throws becomes a fault of the import at `offset` of the importer's source.
template <typename Work>
void in_import(std::string_view importer, size_t offset, const std::string &path, const Work &work) {
  try {
    work();
  } catch (const std::runtime_error &fault) {
    refuse(importer, offset, "in " + path + ", " + fault.what());
  }
}

// The same for a file of a syntax, up to the file that everything is imported for.
template <typename Work>
void in_file(const Syntax &syntax, uint32_t file, const Work &work) {
  try {
    work();
  } catch (const std::runtime_error &fault) {
    std::string reason = fault.what();
    for (; file != 0; file = syntax.files[file].importer) {
      const GrammarFile &in = syntax.files[file];
      std::string outer = position_in(syntax.files[in.importer].source, in.import_offset);
      outer.append("in ").append(in.path).append(", ").append(reason);
      reason = std::move(outer);
    }
    throw std::runtime_error(reason);
  }
}

// The character at `offset` as an error shows it: in quotes, "a line end" or "the end of the file".
std::string describe_character(std::string_view source, size_t offset);

}  // namespace quillbrook::jsgf
