#ifndef JSGF_TESTS_ORACLE_H
#define JSGF_TESTS_ORACLE_H

// A slow matcher over the written-out grammar, plain enough to be right: it tries all decisions depth first in written
// order, and between two words never comes back to a choice that it stands in.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace oracle {

struct Node {
  // kSequence: the children; kChoice: one of them; kOptional, kStar, kPlus, kTagged: of the one child.
  enum Kind { kWord, kNull, kVoid, kReference, kSequence, kChoice, kOptional, kStar, kPlus, kTagged };
  Kind kind;
  std::string text = {};  // the word or the tag
  size_t rule = 0;        // of kReference
  std::vector<Node> children = {};
  std::vector<double> weights = {};  // of kChoice: none, or one for each child
};

struct Rule {
  bool isPublic;
  Node body;
};

// Rules are named r0, r1 and so on. Recursive references must be last items.
using Rules = std::vector<Rule>;

std::string toJsgf(const Rules &rules);

struct Result {
  bool isExhausted = false;  // too many steps: no answer
  std::optional<std::vector<std::string>> tags;
};

Result match(const Rules &rules, size_t rule, const std::vector<std::string> &text);

}  // namespace oracle

#endif
