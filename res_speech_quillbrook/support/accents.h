// Letters without their accents.
#pragma once

#include <string>

// The text with the accented Latin letters and ligatures of Western European languages (U+00C0 to U+00FF, and U+0152
// and U+0153) replaced by plain lower-case letters. All other bytes are copied, also where they are not UTF-8; plain
// capitals keep their case.
std::string removeAccentsUTF8(const std::string &s);
