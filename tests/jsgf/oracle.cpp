#include "oracle.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <set>
#include <utility>

namespace oracle {

namespace {

struct State {
  size_t position = 0;
  std::set<std::pair<std::string, const Node *>> passed = {};  // choices since the last word, with their calls
  std::vector<std::string> tags = {};
};

using Continuation = std::function<bool(const State &)>;

class Matcher {
public:
  Matcher(const Rules &rules, const std::vector<std::string> &text)
      : rules_(rules), text_(text), leadsTo_(rules.size(), std::vector<bool>(rules.size(), false)) {
    for (size_t rule = 0; rule < rules.size(); ++rule) {
      noteReferences(rules[rule].body, rule);
    }
  }

  Result run(size_t rule) {
    Result result;
    const bool fits = match(rules_[rule].body, rule, "", {}, [&](const State &state) {
      if (state.position == text_.size()) {
        result.tags = state.tags;
      }
      return result.tags.has_value();
    });
    result.isExhausted = budget_ == 0 && !fits;
    return result;
  }

private:
  void noteReferences(const Node &node, size_t from) {
    for (const Node &child : node.children) {
      noteReferences(child, from);
    }
    if (node.kind == Node::kReference && !leadsTo_[from][node.rule]) {
      leadsTo_[from][node.rule] = true;
      noteReferences(rules_[node.rule].body, from);
    }
  }

  bool match(const Node &node, size_t rule, const std::string &calls, const State &state, const Continuation &next) {
    if (budget_ == 0 || --budget_ == 0) {
      return false;
    }
    switch (node.kind) {
      case Node::kWord:
        return state.position < text_.size() && text_[state.position] == node.text &&
               next({state.position + 1, {}, state.tags});
      case Node::kNull:
        return next(state);
      case Node::kVoid:
        return false;
      case Node::kReference: {
        if (leadsTo_[node.rule][rule]) {  // right recursion goes on within the same call
          return choose(node, calls, state, [&](const State &passed) {
            return match(rules_[node.rule].body, node.rule, calls, passed, next);
          });
        }
        const std::string inside = calls + "/" + std::to_string(reinterpret_cast<size_t>(&node));
        return match(rules_[node.rule].body, node.rule, inside, state, next);
      }
      case Node::kSequence:
        return matchFrom(node, 0, rule, calls, state, next);
      case Node::kChoice:
        return choose(node, calls, state, [&](const State &passed) {
          for (const size_t child : order(node)) {
            if (match(node.children[child], rule, calls, passed, next)) {
              return true;
            }
          }
          return false;
        });
      case Node::kOptional:
        return choose(node, calls, state, [&](const State &passed) {
          return match(node.children[0], rule, calls, passed, next) || next(passed);
        });
      case Node::kStar:
        return repeat(node, rule, calls, state, next);
      case Node::kPlus:
        return match(node.children[0], rule, calls, state,
                     [&](const State &after) { return repeat(node, rule, calls, after, next); });
      case Node::kTagged:
        return match(node.children[0], rule, calls, state, [&](const State &after) {
          State tagged = after;
          tagged.tags.push_back(node.text);
          return next(tagged);
        });
    }
    return false;
  }

  static std::vector<size_t> order(const Node &node) {
    std::vector<size_t> children(node.children.size());
    std::iota(children.begin(), children.end(), 0);
    if (!node.weights.empty()) {
      const auto isSilent = [&](size_t child) { return node.weights[child] == 0; };
      children.erase(std::remove_if(children.begin(), children.end(), isSilent), children.end());
      std::stable_sort(children.begin(), children.end(),
                       [&](size_t a, size_t b) { return node.weights[a] > node.weights[b]; });
    }
    return children;
  }

  static bool choose(const Node &node, const std::string &calls, const State &state, const Continuation &decide) {
    State passed = state;
    return passed.passed.insert({calls, &node}).second && decide(passed);
  }

  bool matchFrom(const Node &node, size_t child, size_t rule, const std::string &calls, const State &state,
                 const Continuation &next) {
    return child == node.children.size() ? next(state)
                                         : match(node.children[child], rule, calls, state, [&](const State &after) {
                                             return matchFrom(node, child + 1, rule, calls, after, next);
                                           });
  }

  bool repeat(const Node &node, size_t rule, const std::string &calls, const State &state, const Continuation &next) {
    return choose(node, calls, state, [&](const State &passed) {
      const Continuation again = [&](const State &after) { return repeat(node, rule, calls, after, next); };
      return match(node.children[0], rule, calls, passed, again) || next(passed);
    });
  }

  const Rules &rules_;
  const std::vector<std::string> &text_;
  std::vector<std::vector<bool>> leadsTo_;  // rule to rule, by references
  size_t budget_ = 100'000;
};

std::string write(const Node &node) {
  const auto child = [&] { return "(" + write(node.children[0]) + ")"; };
  std::string text;
  switch (node.kind) {
    case Node::kWord:
      return node.text;
    case Node::kNull:
      return "<NULL>";
    case Node::kVoid:
      return "<VOID>";
    case Node::kReference:
      return "<r" + std::to_string(node.rule) + ">";
    case Node::kSequence:
      for (const Node &item : node.children) {
        text += (text.empty() ? "" : " ") + (item.kind == Node::kChoice ? "(" + write(item) + ")" : write(item));
      }
      return text;
    case Node::kChoice:
      for (size_t i = 0; i < node.children.size(); ++i) {
        text += i == 0 ? "" : " | ";
        text += node.weights.empty() ? "" : "/" + std::to_string(node.weights[i]) + "/ ";
        text += "(" + write(node.children[i]) + ")";
      }
      return text;
    case Node::kOptional:
      return "[" + write(node.children[0]) + "]";
    case Node::kStar:
      return child() + "*";
    case Node::kPlus:
      return child() + "+";
    case Node::kTagged:
      return child() + "{" + node.text + "}";
  }
  return text;
}

}  // namespace

std::string toJsgf(const Rules &rules) {
  std::string text = "#JSGF V1.0;\ngrammar g;\n";
  for (size_t i = 0; i < rules.size(); ++i) {
    text += (rules[i].isPublic ? "public <r" : "<r") + std::to_string(i) + "> = " + write(rules[i].body) + ";\n";
  }
  return text;
}

Result match(const Rules &rules, size_t rule, const std::vector<std::string> &text) {
  return Matcher(rules, text).run(rule);
}

}  // namespace oracle
