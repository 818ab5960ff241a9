#include "near_miss.h"

namespace {

constexpr size_t kLongestCompared = 64;

char folded(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

// Letters that were added, left out, replaced or exchanged with their neighbour.
size_t slips_between(std::string_view one, std::string_view other) {
  std::vector<size_t> before_last(other.size() + 1);
  std::vector<size_t> last(other.size() + 1);
  std::vector<size_t> row(other.size() + 1);
  for (size_t j = 0; j <= other.size(); ++j) {
    row[j] = j;
  }
  for (size_t i = 1; i <= one.size(); ++i) {
    before_last.swap(last);
    last.swap(row);
    row[0] = i;
    for (size_t j = 1; j <= other.size(); ++j) {
      const char here = folded(one[i - 1]);
      const char there = folded(other[j - 1]);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (here == there ? 0 : 1)});
      if (i > 1 && j > 1 && here == folded(other[j - 2]) && folded(one[i - 2]) == there) {
        row[j] = std::min(row[j], before_last[j - 2] + 1);
      }
    }
  }
  return row[other.size()];
}

}  // namespace

std::string near_miss(std::string_view word, const std::vector<std::string> &candidates) {
  constexpr size_t kLettersForASlip = 6;
  size_t least = std::min<size_t>(word.size() / kLettersForASlip, 2) + 2;
  std::string nearest;
  for (const std::string &candidate : candidates) {
    if (word.size() > kLongestCompared || candidate.size() > kLongestCompared) {
      continue;
    }
    if (const size_t slips = slips_between(word, candidate); slips < least) {
      least = slips;
      nearest = candidate;
    }
  }
  return nearest;
}
