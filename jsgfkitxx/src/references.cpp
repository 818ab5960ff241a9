#include "references.h"

#include <algorithm>
#include <numeric>
#include <string>
#include <unordered_set>

#include "refusal.h"

namespace quillbrook::jsgf {

namespace {

std::string_view simple_name(std::string_view name) {
  return name.substr(name.rfind('.') + 1);
}

std::string bracketed(std::string_view name) {
  return "<" + std::string(name) + ">";
}

// The names under which the imports offer rules.
class ImportedNames {
public:
  explicit ImportedNames(const std::vector<std::string_view> &imports) {
    for (const std::string_view import : imports) {
      const size_t dot = import.rfind('.');
      const std::string_view grammar = import.substr(0, dot);
      if (import.substr(dot + 1) == "*") {
        whole_.insert({grammar, simple_name(grammar)});
        continue;
      }
      const size_t qualified = import.size() - import.substr(dot).size() - simple_name(grammar).size();
      names_.insert({import, import.substr(qualified), import.substr(dot + 1)});
    }
  }

  bool offer(std::string_view name) const {
    const size_t dot = name.rfind('.');
    const bool is_simple = dot == std::string_view::npos;
    return names_.count(name) != 0 || (is_simple ? !whole_.empty() : whole_.count(name.substr(0, dot)) != 0);
  }

private:
  std::unordered_set<std::string_view> names_;  // each rule's simple, qualified and full name
  std::unordered_set<std::string_view> whole_;  // grammars of which all rules are imported
};

void resolve_names(std::string_view source, const RuleIndex &index, Syntax &syntax) {
  const ImportedNames imported(syntax.imports);
  for (Symbol &symbol : syntax.symbols) {
    if (symbol.kind != SymbolKind::kReference) {
      continue;
    }
    Reference &reference = syntax.references[symbol.value];
    reference.target = index.find(reference.name);
    if (reference.target == RuleIndex::kNoRule) {
      if (!imported.offer(reference.name)) {
        refuse(source, reference.offset, "expected a defined rule, found " + bracketed(reference.name));
      }
      symbol.kind = SymbolKind::kVoid;
    }
  }
}

// Sets what stands behind each reference, going through a rule from its end.
void find_last_items(const RuleDefinition &rule, Syntax &syntax) {
  struct Behind {
    bool nothing;  // but tags
    bool tags;
  };
  Behind behind{true, false};
  std::vector<Behind> groups{behind};
  for (uint32_t at = rule.end; at-- > rule.begin;) {
    const Symbol symbol = syntax.symbols[at];
    switch (symbol.kind) {
      case SymbolKind::kTag:
        behind.tags = true;
        break;
      case SymbolKind::kGroupClose:
      case SymbolKind::kOptionalClose:
        groups.push_back(behind);
        break;
      case SymbolKind::kBar:
        behind = groups.back();
        break;
      case SymbolKind::kGroupOpen:
      case SymbolKind::kOptionalOpen:
        groups.pop_back();
        behind.nothing = false;
        break;
      case SymbolKind::kReference:
        syntax.references[symbol.value].last = behind.nothing;
        syntax.references[symbol.value].tagged = behind.tags;
        behind.nothing = false;
        break;
      case SymbolKind::kWeight:
      case SymbolKind::kRuleOpen:
        break;
      case SymbolKind::kStar:  // a repeated item has its next round behind it
      case SymbolKind::kPlus:
      case SymbolKind::kWord:
      case SymbolKind::kNull:
      case SymbolKind::kVoid:
        behind.nothing = false;
        break;
    }
  }
}

// Tarjan's algorithm (R. Tarjan, Depth-first search and linear graph algorithms, 1972) with a stack of its own.
class ComponentFinder {
public:
  explicit ComponentFinder(const Syntax &syntax)
      : syntax_(syntax), order_(syntax.rules.size(), 0), low_(syntax.rules.size(), 0) {
    components_.of_rule.assign(syntax.rules.size(), kOpen);
  }

  Components find() {
    for (uint32_t rule = 0; rule < syntax_.rules.size(); ++rule) {
      if (order_[rule] == 0) {
        visit_from(rule);
      }
    }
    return std::move(components_);
  }

private:
  struct Visit {
    uint32_t rule;
    uint32_t reference;
  };

  static constexpr uint32_t kOpen = UINT32_MAX;

  uint32_t references_end(uint32_t rule) const {
    return static_cast<uint32_t>(rule + 1 < syntax_.rules.size() ? syntax_.rules[rule + 1].first_reference
                                                                 : syntax_.references.size());
  }

  void enter(uint32_t rule) {
    order_[rule] = low_[rule] = ++visited_;
    unassigned_.push_back(rule);
    visits_.push_back({rule, syntax_.rules[rule].first_reference});
  }

  void visit_from(uint32_t start) {
    enter(start);
    while (!visits_.empty()) {
      Visit &visit = visits_.back();
      const uint32_t rule = visit.rule;
      if (visit.reference < references_end(rule)) {
        const uint32_t target = syntax_.references[visit.reference++].target;
        if (target == RuleIndex::kNoRule) {
          continue;
        }
        if (order_[target] == 0) {
          enter(target);
        } else if (components_.of_rule[target] == kOpen) {
          low_[rule] = std::min(low_[rule], order_[target]);
        }
        continue;
      }
      visits_.pop_back();
      if (!visits_.empty()) {
        low_[visits_.back().rule] = std::min(low_[visits_.back().rule], low_[rule]);
      }
      if (low_[rule] == order_[rule]) {
        close(rule);
      }
    }
  }

  void close(uint32_t root) {
    const auto number = static_cast<uint32_t>(components_.list.size());
    const auto first = static_cast<uint32_t>(components_.rules.size());
    for (uint32_t rule = kOpen; rule != root;) {
      rule = unassigned_.back();
      unassigned_.pop_back();
      components_.of_rule[rule] = number;
      components_.rules.push_back(rule);
    }
    components_.list.push_back({first, static_cast<uint32_t>(components_.rules.size()) - first, false, false});
  }

  const Syntax &syntax_;
  Components components_;
  std::vector<uint32_t> order_;
  std::vector<uint32_t> low_;
  std::vector<uint32_t> unassigned_;
  std::vector<Visit> visits_;
  uint32_t visited_ = 0;
};

}  // namespace

RuleIndex::RuleIndex(std::string_view source, const Syntax &syntax) : grammar_name_(syntax.grammar_name) {
  names_.reserve(syntax.rules.size());
  for (const RuleDefinition &rule : syntax.rules) {
    names_.push_back(rule.name);
  }
  by_name_.resize(names_.size());
  std::iota(by_name_.begin(), by_name_.end(), 0);
  std::sort(by_name_.begin(), by_name_.end(),
            [&](uint32_t a, uint32_t b) { return names_[a] != names_[b] ? names_[a] < names_[b] : a < b; });
  const auto same = std::adjacent_find(by_name_.begin(), by_name_.end(),
                                       [&](uint32_t a, uint32_t b) { return names_[a] == names_[b]; });
  if (same != by_name_.end()) {
    refuse(source, syntax.rules[same[1]].offset,
           "expected a new rule name, found " + bracketed(names_[*same]) + ", which is defined already");
  }
}

uint32_t RuleIndex::find(std::string_view name) const {
  const size_t dot = name.rfind('.');
  if (dot != std::string_view::npos) {
    const std::string_view grammar = name.substr(0, dot);
    if (grammar != grammar_name_ && grammar != simple_name(grammar_name_)) {
      return kNoRule;
    }
    name = name.substr(dot + 1);
  }
  const auto found = std::lower_bound(by_name_.begin(), by_name_.end(), name,
                                      [&](uint32_t rule, std::string_view wanted) { return names_[rule] < wanted; });
  return found != by_name_.end() && names_[*found] == name ? *found : kNoRule;
}

Components resolve_references(std::string_view source, const RuleIndex &index, Syntax &syntax) {
  resolve_names(source, index, syntax);
  Components components = ComponentFinder(syntax).find();
  for (const RuleDefinition &rule : syntax.rules) {
    find_last_items(rule, syntax);
  }
  for (const Reference &reference : syntax.references) {
    if (reference.target == RuleIndex::kNoRule ||
        components.of_rule[reference.rule] != components.of_rule[reference.target]) {
      continue;
    }
    Component &component = components.list[components.of_rule[reference.rule]];
    component.is_recursive = true;
    component.tags_after_recursion = component.tags_after_recursion || reference.tagged;
    if (!reference.last) {
      refuse(source, reference.offset,
             "expected " + bracketed(reference.name) + " as the last item of " +
                 bracketed(syntax.rules[reference.rule].name) + ", since the rules are recursive");
    }
  }
  return components;
}

}  // namespace quillbrook::jsgf
