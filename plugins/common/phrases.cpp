#include "phrases.h"

#include <algorithm>

#include "quillbrook.h"

namespace quillbrook::common {

std::vector<std::string> phrases_of(const std::string &text) {
  const bool cut = text.size() + 1 >= QUILLBROOK_TEXT_SIZE;
  std::vector<std::string> phrases;
  size_t from = 0;
  while (from < text.size()) {
    const size_t comma = text.find(',', from);
    if (comma == std::string::npos && cut && !phrases.empty()) break;
    const size_t end = std::min(comma, text.size());
    const size_t first = std::min(text.find_first_not_of(" \t\r\n", from), end);
    const size_t last = text.find_last_not_of(" \t\r\n", end - 1);
    if (first < end) phrases.push_back(text.substr(first, last + 1 - first));
    from = end + 1;
  }
  return phrases;
}

}  // namespace quillbrook::common
