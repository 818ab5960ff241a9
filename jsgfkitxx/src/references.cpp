#include "references.h"

#include <algorithm>
#include <numeric>
#include <string>
#include <unordered_map>
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

// The names under which imports offer rules that weren't followed.
class ImportedNames {
public:
  explicit ImportedNames(const std::vector<Import> &imports) {
    for (const Import &statement : imports) {
      if (statement.file != Import::kNotFollowed) {
        continue;
      }
      const std::string_view import = statement.name;
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

// The rules that one file's imports offer.
class ImportedRules {
public:
  // Throws std::runtime_error for an import of a rule that its grammar doesn't offer.
  ImportedRules(const std::vector<RuleIndex> &indexes, const Syntax &syntax, uint32_t file)
      : indexes_(indexes), syntax_(syntax) {
    for (const Import &import : syntax.files[file].imports) {
      if (import.file == Import::kNotFollowed) {
        continue;
      }
      if (simple_name(import.name) == "*") {
        whole_.push_back(import.file);
        continue;
      }
      const uint32_t rule = indexes[import.file].find(simple_name(import.name));
      if (!is_offered(rule)) {
        refuse(syntax.files[file].source, import.offset,
               "expected a public rule of that grammar, found " + bracketed(import.name));
      }
      single_.emplace(simple_name(import.name), rule);
    }
    std::sort(whole_.begin(), whole_.end());
    whole_.erase(std::unique(whole_.begin(), whole_.end()), whole_.end());
  }

  // Throws std::runtime_error when the name means rules of several grammars.
  uint32_t find(const Reference &reference, std::string_view source) const {
    const size_t dot = reference.name.rfind('.');
    const auto names = [&](uint32_t file) {
      const std::string_view grammar = syntax_.files[file].grammar_name;
      const std::string_view qualifier = reference.name.substr(0, dot);
      return dot == std::string_view::npos || qualifier == grammar || qualifier == simple_name(grammar);
    };
    uint32_t found = RuleIndex::kNoRule;
    const auto note = [&](uint32_t file, uint32_t rule) {
      if (!names(file) || !is_offered(rule) || rule == found) {
        return;
      }
      if (found != RuleIndex::kNoRule) {
        refuse(source, reference.offset,
               "expected one rule of that name, found " + bracketed(reference.name) + " in " + grammar_of(found) +
                   " and in " + grammar_of(rule));
      }
      found = rule;
    };
    const auto [first, last] = single_.equal_range(simple_name(reference.name));
    for (auto single = first; single != last; ++single) {
      note(syntax_.rules[single->second].file, single->second);
    }
    for (const uint32_t file : whole_) {
      note(file, indexes_[file].find(simple_name(reference.name)));
    }
    return found;
  }

private:
  bool is_offered(uint32_t rule) const { return rule != RuleIndex::kNoRule && syntax_.rules[rule].is_public; }
  std::string grammar_of(uint32_t rule) const {
    return std::string(syntax_.files[syntax_.rules[rule].file].grammar_name);
  }

  const std::vector<RuleIndex> &indexes_;
  const Syntax &syntax_;
  std::unordered_multimap<std::string_view, uint32_t> single_;  // rules by simple name
  std::vector<uint32_t> whole_;                                 // files of which all is imported
};

void resolve_names_of(uint32_t file, const std::vector<RuleIndex> &indexes, Syntax &syntax) {
  const GrammarFile &names = syntax.files[file];
  const ImportedNames not_followed(names.imports);
  const ImportedRules imported(indexes, syntax, file);
  const uint32_t begin = names.first_rule < names.rules_end ? syntax.rules[names.first_rule].begin : 0;
  const uint32_t end = names.first_rule < names.rules_end ? syntax.rules[names.rules_end - 1].end : 0;
  for (uint32_t at = begin; at < end; ++at) {
    Symbol &symbol = syntax.symbols[at];
    if (symbol.kind != SymbolKind::kReference) {
      continue;
    }
    Reference &reference = syntax.references[symbol.value];
    reference.target = indexes[file].find(reference.name);
    if (reference.target == RuleIndex::kNoRule) {
      reference.target = imported.find(reference, names.source);
    }
    if (reference.target == RuleIndex::kNoRule) {
      if (!not_followed.offer(reference.name)) {
        refuse(names.source, reference.offset, "expected a defined rule, found " + bracketed(reference.name));
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

RuleIndex::RuleIndex(const Syntax &syntax, uint32_t file)
    : grammar_name_(syntax.files[file].grammar_name), first_rule_(syntax.files[file].first_rule) {
  const uint32_t end = syntax.files[file].rules_end;
  names_.reserve(end - first_rule_);
  for (uint32_t rule = first_rule_; rule < end; ++rule) {
    names_.push_back(syntax.rules[rule].name);
  }
  by_name_.resize(names_.size());
  std::iota(by_name_.begin(), by_name_.end(), 0);
  std::sort(by_name_.begin(), by_name_.end(),
            [&](uint32_t a, uint32_t b) { return names_[a] != names_[b] ? names_[a] < names_[b] : a < b; });
  const auto same = std::adjacent_find(by_name_.begin(), by_name_.end(),
                                       [&](uint32_t a, uint32_t b) { return names_[a] == names_[b]; });
  if (same != by_name_.end()) {
    refuse(syntax.files[file].source, syntax.rules[first_rule_ + same[1]].offset,
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
  return found != by_name_.end() && names_[*found] == name ? first_rule_ + *found : kNoRule;
}

Components resolve_references(const std::vector<RuleIndex> &indexes, Syntax &syntax) {
  for (uint32_t file = 0; file < syntax.files.size(); ++file) {
    in_file(syntax, file, [&] { resolve_names_of(file, indexes, syntax); });
  }
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
      const RuleDefinition &rule = syntax.rules[reference.rule];
      in_file(syntax, rule.file, [&] {
        refuse(syntax.files[rule.file].source, reference.offset,
               "expected " + bracketed(reference.name) + " as the last item of " + bracketed(rule.name) +
                   ", since the rules are recursive");
      });
    }
  }
  return components;
}

}  // namespace quillbrook::jsgf
