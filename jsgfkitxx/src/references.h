#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "syntax.h"

namespace quillbrook::jsgf {

// Finds rules by name.
class RuleIndex {
public:
  static constexpr uint32_t kNoRule = UINT32_MAX;

  RuleIndex() = default;
  // Throws std::runtime_error when two rules share a name.
  RuleIndex(std::string_view source, const Syntax &syntax);

  // Of a simple name, or one qualified by the grammar's simple or full name. No brackets.
  uint32_t find(std::string_view name) const;

  std::string_view name_of(uint32_t rule) const { return names_[rule]; }

private:
  std::string_view grammar_name_;
  std::vector<std::string_view> names_;  // by rule
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

// Sets Reference::target, last and tagged. A reference that only an import could serve becomes a kVoid symbol. Throws
// std::runtime_error for a name that nothing defines and for recursion that isn't right recursion.
Components resolve_references(std::string_view source, const RuleIndex &index, Syntax &syntax);

}  // namespace quillbrook::jsgf
