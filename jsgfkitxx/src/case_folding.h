#pragma once

namespace quillbrook::jsgf {

// Simple case folding, one character to one: Latin, Greek, Cyrillic, Armenian and the full-width Latin letters. Others
// come back unchanged.
char32_t fold_case(char32_t character);

}  // namespace quillbrook::jsgf
