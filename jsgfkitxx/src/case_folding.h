#pragma once

namespace jsgf {

// Simple case folding, one character to one: Latin, Greek, Cyrillic, Armenian and the full-width Latin letters. Others
// come back unchanged.
char32_t foldCase(char32_t character);

}  // namespace jsgf
