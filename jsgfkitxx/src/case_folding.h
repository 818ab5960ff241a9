#pragma once

namespace quillbrook::jsgf {

// Simple case folding, one character to one, of all scripts.
char32_t fold_case(char32_t character);

}  // namespace quillbrook::jsgf
