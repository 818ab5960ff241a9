#pragma once

// A slow matcher over the written-out grammar, plain enough to be right: it tries all decisions depth first in written
// order, and between two words never comes back to a choice that it stands in.

#include <algorithm>
#include <cstddef>
#include <functional>
#include <numeric>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace oracle {

struct Node {
  // kSequence: the children, <NULL> for none; kChoice: one of them, <VOID> for none; the others: of the one child.
  enum Kind { kWord, kReference, kSequence, kChoice, kStar, kPlus, kTagged };
  Kind kind;
  std::string text = {};  // the word or the tag
  size_t rule = 0;        // of kReference
  std::vector<Node> children = {};
  std::vector<int> weights = {};  // of kChoice: none, or one for each child
};

inline Node optional(const Node &node) {
  return {Node::kChoice, "", 0, {node, {Node::kSequence}}};
}

// Rules are named r0, r1 and so on. Recursive references must be last items.
struct Rule {
  bool is_public;
  Node body;
};
using Rules = std::vector<Rule>;

inline std::string write(const Node &node) {
  const auto all = [&](const char *between) {
    std::string text;
    for (size_t i = 0; i < node.children.size(); ++i) {
      text += i == 0 ? "" : between;
      text += node.weights.empty() ? "" : "/" + std::to_string(node.weights[i]) + "/ ";
      text += write(node.children[i]);
    }
    return text;
  };
  const bool is_empty = node.children.empty();
  switch (node.kind) {
    case Node::kWord:
      return node.text;
    case Node::kReference:
      return "<r" + std::to_string(node.rule) + ">";
    case Node::kSequence:
      return is_empty ? "<NULL>" : all(" ");
    case Node::kChoice:
      if (node.children.size() == 2 && node.weights.empty() && write(node.children[1]) == "<NULL>") {
        return "[" + write(node.children[0]) + "]";
      }
      return is_empty ? "<VOID>" : "(" + all(" | ") + ")";
    case Node::kStar:
      return "(" + all("") + ")*";
    case Node::kPlus:
      return "(" + all("") + ")+";
    case Node::kTagged:
      return "(" + all("") + "){" + node.text + "}";
  }
  return {};
}

inline std::string to_jsgf(const Rules &rules) {
  std::string text = "#JSGF V1.0;\ngrammar g;\n";
  for (size_t i = 0; i < rules.size(); ++i) {
    text += (rules[i].is_public ? "public <r" : "<r") + std::to_string(i) + "> = " + write(rules[i].body) + ";\n";
  }
  return text;
}

class Matcher {
public:
  Matcher(const Rules &rules, const std::vector<std::string> &text)
      : rules_(rules), text_(text), leads_to_(rules.size(), std::vector<bool>(rules.size(), false)) {
    for (size_t rule = 0; rule < rules.size(); ++rule) {
      note_references(rules[rule].body, rule);
    }
  }

  // The tags of the first derivation in braces, or "no match"; nothing after too many steps.
  std::optional<std::string> run(size_t rule) {
    std::string tags = "no match";
    const bool fits = match(rules_[rule].body, rule, "", {}, [&](const State &state) {
      tags = state.position == text_.size() ? state.tags : tags;
      return state.position == text_.size();
    });
    return budget_ == 0 && !fits ? std::nullopt : std::optional<std::string>(tags);
  }

  // Whether a word or more can follow the text, or, if it may grow, the rest of its last word; nothing after too many
  // steps.
  std::optional<bool> can_go_on(size_t rule, bool may_grow) {
    budget_ = 20'000;
    is_open_ = true;
    may_grow_ = may_grow;
    const bool fits = match(rules_[rule].body, rule, "", {}, [&](const State &state) { return state.is_behind; });
    return budget_ == 0 && !fits ? std::nullopt : std::optional<bool>(fits);
  }

private:
  struct State {
    size_t position = 0;
    std::set<std::pair<std::string, const Node *>> passed = {};  // choices since the last word, with their calls
    std::string tags = {};
    bool is_behind = false;  // an open text: what is still to come has begun
  };
  using Continuation = std::function<bool(const State &)>;

  void note_references(const Node &node, size_t from) {
    for (const Node &child : node.children) {
      note_references(child, from);
    }
    if (node.kind == Node::kReference && !leads_to_[from][node.rule]) {
      leads_to_[from][node.rule] = true;
      note_references(rules_[node.rule].body, from);
    }
  }

  bool match(const Node &node, size_t rule, const std::string &calls, const State &state, const Continuation &next) {
    if (budget_ == 0 || --budget_ == 0) {
      return false;
    }
    const auto match_in = [&](const Node &part, const State &from, const Continuation &then) {
      return match(part, rule, calls, from, then);
    };
    // Decides at this place, unless the derivation stands in it since the last word.
    const auto choose = [&](const State &from, const Continuation &decide) {
      State passed = from;
      return passed.passed.insert({calls, &node}).second && decide(passed);
    };
    switch (node.kind) {
      case Node::kWord:
        if (state.is_behind) {  // any word will do; choices stay passed, so that this ends
          return next(state);
        }
        if (is_open_ && (state.position == text_.size() || grows_to(node.text, state.position))) {
          return next({text_.size(), {}, "", true});
        }
        return state.position < text_.size() && text_[state.position] == node.text &&
               next({state.position + 1, {}, state.tags});
      case Node::kReference: {
        const Node &body = rules_[node.rule].body;
        if (leads_to_[node.rule][rule]) {  // right recursion goes on within the same call
          return choose(state, [&](const State &passed) { return match(body, node.rule, calls, passed, next); });
        }
        return match(body, node.rule, calls + "/" + std::to_string(reinterpret_cast<size_t>(&node)), state, next);
      }
      case Node::kSequence:
        return match_from(node, 0, rule, calls, state, next);
      case Node::kChoice:
        return choose(state, [&](const State &passed) {
          const std::vector<size_t> children = order(node);
          return std::any_of(children.begin(), children.end(),
                             [&](size_t child) { return match_in(node.children[child], passed, next); });
        });
      case Node::kStar:
      case Node::kPlus: {
        const Continuation repeat = [&](const State &from) {
          return choose(
              from, [&](const State &passed) { return match_in(node.children[0], passed, repeat) || next(passed); });
        };
        return node.kind == Node::kStar ? repeat(state) : match_in(node.children[0], state, repeat);
      }
      case Node::kTagged:
        return match_in(node.children[0], state, [&](const State &after) {
          State tagged = after;
          tagged.tags += "{" + node.text + "}";
          return next(tagged);
        });
    }
    return false;
  }

  bool match_from(const Node &node, size_t child, size_t rule, const std::string &calls, const State &state,
                  const Continuation &next) {
    return child == node.children.size() ? next(state)
                                         : match(node.children[child], rule, calls, state, [&](const State &after) {
                                             return match_from(node, child + 1, rule, calls, after, next);
                                           });
  }

  bool grows_to(const std::string &word, size_t position) const {
    const std::string &begun = text_.back();
    return may_grow_ && position + 1 == text_.size() && word.size() > begun.size() &&
           word.compare(0, begun.size(), begun) == 0;
  }

  static std::vector<size_t> order(const Node &node) {
    std::vector<size_t> children(node.children.size());
    std::iota(children.begin(), children.end(), 0);
    if (!node.weights.empty()) {
      const auto is_silent = [&](size_t child) { return node.weights[child] == 0; };
      children.erase(std::remove_if(children.begin(), children.end(), is_silent), children.end());
      std::stable_sort(children.begin(), children.end(),
                       [&](size_t a, size_t b) { return node.weights[a] > node.weights[b]; });
    }
    return children;
  }

  const Rules &rules_;
  const std::vector<std::string> &text_;
  std::vector<std::vector<bool>> leads_to_;  // rule to rule, by references
  size_t budget_ = 100'000;
  bool is_open_ = false;
  bool may_grow_ = false;
};

}  // namespace oracle
