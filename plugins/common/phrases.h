// The words and phrases to expect.
#pragma once

#include <string>
#include <vector>

namespace quillbrook::common {

// The record's `phrases`, separated by commas there; without the blanks around each. The record cuts a long list at
// its end: the last phrase may then be half a word, and is left out.
std::vector<std::string> phrases_of(const std::string &text);

}  // namespace quillbrook::common
