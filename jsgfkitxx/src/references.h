#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "syntax.h"

namespace quillbrook::jsgf {

// Finds the rules of one file by name.
class RuleIndex {
public:
  static constexpr uint32_t kNoRule = UINT32_MAX;

  RuleIndex() = default;
  // Throws std::runtime_error when two rules share a name.
  RuleIndex(const Syntax &syntax, uint32_t file);

  // Of a simple name, or one qualified by the grammar's simple or full name. No brackets.
  uint32_t find(std::string_view name) const;

  // Of the first file.
  std::string_view name_of(uint32_t rule) const { return names_[rule]; }

private:
  std::string_view grammar_name_;
  uint32_t first_rule_ = 0;
  std::vector<std::string_view> names_;  // by rule, from the file's first one on
  std::vector<uint32_t> by_name_;        // rules, ordered by name
};

// Rules that can reach one another, directly or through others: a strongly connected component of the references.
struct Component {
  uint32_t first;  // its rules, a range of Components::rules
  uint32_t count;
  bool is_recursive;
  bool tags_after_recursion;  // a recursive reference has tags behind it
};

struct Components {
  std::vector<Component> list;  // a component stands behind those that it refers to
  std::vector<uint32_t> rules;
  std::vector<uint32_t> of_rule;
};

// Sets Reference::target, last and tagged. A reference that only an import could serve that wasn't followed becomes a
// kVoid symbol. Throws std::runtime_error for a name that nothing defines, or several imports, for an import that
// offers nothing, and for recursion that isn't right recursion.
Components resolve_references(const std::vector<RuleIndex> &indexes, Syntax &syntax);

}  // namespace quillbrook::jsgf
