#include "case_folding.h"

#include <utf8proc.h>

#include "utf8.h"

namespace quillbrook::jsgf {

// The library folds in full: "ß" to "ss". What would get longer keeps its length by the other way, its small letter.
char32_t fold_case(char32_t character) {
  if (character < 0x80) {
    return character >= 'A' && character <= 'Z' ? character + ('a' - 'A') : character;
  }
  if (character >= kInvalidByte) {
    return character;
  }
  const auto value = static_cast<utf8proc_int32_t>(character);
  utf8proc_int32_t folded[4];
  int boundary = 0;
  const utf8proc_ssize_t length = utf8proc_decompose_char(value, folded, 4, UTF8PROC_CASEFOLD, &boundary);
  return static_cast<char32_t>(length == 1 ? folded[0] : utf8proc_tolower(value));
}

}  // namespace quillbrook::jsgf
