#include "oracle.h"

#include <array>
#include <cstdlib>
#include <random>
#include <sstream>

#include <gtest/gtest.h>

#include "match.h"
#include "program.h"

namespace {

using jsgf::Program;
using jsgf::RuleSharing;
using oracle::Node;

using Tags = std::optional<std::vector<std::string>>;

Tags tagsOf(const Program &program, const std::string &text, size_t rule) {
  const auto steps = jsgf::Match(program, text).derive(static_cast<uint32_t>(rule));
  if (!steps) {
    return std::nullopt;
  }
  std::vector<std::string> tags;
  for (const jsgf::Step step : *steps) {
    if (step != jsgf::kWordStep) {
      tags.emplace_back(program.tags[step]);
    }
  }
  return tags;
}

std::string shown(const Tags &tags) {
  std::string text = tags ? "" : "no match";
  for (const std::string &tag : tags.value_or(std::vector<std::string>())) {
    text += "{" + tag + "}";
  }
  return text;
}

std::string joined(const std::vector<std::string> &words) {
  std::string text;
  for (const std::string &word : words) {
    text += word + " ";
  }
  return text;
}

// Compares the oracle with the library in all its ways of sharing rules.
class Comparison {
public:
  void compare(const oracle::Rules &rules, const std::vector<std::vector<std::string>> &texts) {
    const std::string source = oracle::toJsgf(rules);
    std::array<std::shared_ptr<const Program>, 3> programs;
    for (size_t i = 0; i < programs.size(); ++i) {
      std::istringstream in(source);
      constexpr RuleSharing kSharings[] = {RuleSharing::kWhereItPays, RuleSharing::kNowhere, RuleSharing::kEverywhere};
      try {
        programs[i] = Program::load(in, kSharings[i]);
      } catch (const std::runtime_error &error) {
        ASSERT_NE(std::string(error.what()).find("since the rules are recursive"), std::string::npos) << error.what();
        ++refused;
        return;
      }
    }
    for (size_t rule = 0; rule < rules.size(); ++rule) {
      for (const auto &text : texts) {
        if (!rules[rule].isPublic) {
          continue;
        }
        const oracle::Result expected = oracle::match(rules, rule, text);
        if (expected.isExhausted) {
          ++exhausted;
          continue;
        }
        ++compared;
        matched += expected.tags ? 1 : 0;
        for (size_t i = 0; i < programs.size(); ++i) {
          ASSERT_EQ(shown(tagsOf(*programs[i], joined(text), rule)), shown(expected.tags))
              << source << "rule r" << rule << ", text " << joined(text) << ", sharing " << i;
        }
      }
    }
  }

  size_t refused = 0;
  size_t compared = 0;
  size_t matched = 0;
  size_t exhausted = 0;
};

std::vector<std::vector<std::string>> allTexts(const std::vector<std::string> &words, size_t longest) {
  std::vector<std::vector<std::string>> texts{{}};
  for (size_t from = 0; from < texts.size(); ++from) {
    for (size_t i = 0; texts[from].size() < longest && i < words.size(); ++i) {
      texts.push_back(texts[from]);
      texts.back().push_back(words[i]);
    }
  }
  texts.erase(texts.begin());
  return texts;
}

// All expansions of two levels of operators over two words and nothing, against all texts of up to three words.
TEST(Oracle, AgreesOnAllSmallGrammars) {
  std::vector<Node> all{{Node::kTagged, "A", 0, {{Node::kWord, "a"}}},
                        {Node::kTagged, "B", 0, {{Node::kWord, "b"}}},
                        {Node::kTagged, "N", 0, {{Node::kNull}}}};
  for (int level = 0; level < 2; ++level) {
    const std::vector<Node> below = all;
    for (const Node &inner : below) {
      for (const Node::Kind kind : {Node::kOptional, Node::kStar, Node::kPlus}) {
        all.push_back({kind, "", 0, {inner}});
      }
      for (const Node &other : below) {
        all.push_back({Node::kSequence, "", 0, {inner, other}});
        all.push_back({Node::kChoice, "", 0, {inner, other}});
      }
    }
  }
  const auto texts = allTexts({"a", "b"}, 3);
  Comparison comparison;
  for (const Node &body : all) {
    // Once as the rule itself, once through a rule that is used twice.
    const Node use{Node::kReference, "", 1};
    comparison.compare({{true, {Node::kSequence, "", 0, {use, {Node::kOptional, "", 0, {use}}}}}, {true, body}}, texts);
    ASSERT_FALSE(HasFatalFailure());
  }
  RecordProperty("compared", static_cast<int>(comparison.compared));
  EXPECT_GT(comparison.matched, comparison.compared / 10);
  EXPECT_LT(comparison.exhausted, comparison.compared / 100);
}

class Generator {
public:
  explicit Generator(unsigned seed) : random_(seed) {}

  oracle::Rules rules() {
    oracle::Rules rules;
    const size_t count = 1 + below(5);
    for (size_t rule = 0; rule < count; ++rule) {
      rules.push_back({rule == 0 || below(3) == 0, node(3, rule, count, true)});
    }
    return rules;
  }

  std::vector<std::string> text() {
    std::vector<std::string> words(1 + below(6));
    for (std::string &word : words) {
      word = std::string(1, "aaabbc"[below(6)]);
    }
    return words;
  }

private:
  size_t below(size_t limit) { return random_() % limit; }

  Node node(int depth, size_t rule, size_t ruleCount, bool isLast) {
    const size_t kind = below(depth == 0 ? 8 : 20);
    const auto child = [&](bool last) { return node(depth - 1, rule, ruleCount, last); };
    if (kind == 0 && below(2) == 0) {
      return {below(3) == 0 ? Node::kVoid : Node::kNull};
    }
    if (kind == 1 && isLast) {
      return {Node::kReference, "", below(3) == 0 ? below(ruleCount) : rule};
    }
    if (kind <= 2 && rule + 1 < ruleCount) {
      return {Node::kReference, "", rule + 1 + below(ruleCount - rule - 1)};
    }
    if (kind < 8) {
      return {Node::kWord, std::string(1, "aaabbc"[below(6)])};
    }
    if (kind < 13) {
      Node sequence{Node::kSequence};
      for (size_t items = 2 + below(2); items-- > 0;) {
        sequence.children.push_back(child(isLast && items == 0));
      }
      return sequence;
    }
    if (kind < 16) {
      Node choice{Node::kChoice};
      const bool isWeighted = below(4) == 0;
      for (size_t items = 2 + below(2); items-- > 0;) {
        choice.children.push_back(child(isLast));
        if (isWeighted) {
          choice.weights.push_back(items == 0 ? 2 : static_cast<double>(below(4)));
        }
      }
      return choice;
    }
    if (kind == 16) {
      return {Node::kOptional, "", 0, {child(isLast)}};
    }
    if (kind < 19) {
      return {kind == 17 ? Node::kStar : Node::kPlus, "", 0, {child(false)}};
    }
    return {Node::kTagged, std::to_string(++tags_), 0, {child(isLast)}};
  }

  std::minstd_rand random_;
  int tags_ = 0;
};

// JSGF_TEST_SEED picks other grammars than those of every run, JSGF_TEST_ROUNDS more of them.
unsigned setting(const char *name, unsigned otherwise) {
  const char *value = std::getenv(name);
  return value == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(value, nullptr, 10));
}

TEST(Oracle, AgreesOnRandomGrammars) {
  const unsigned seed = setting("JSGF_TEST_SEED", 1);
  Comparison comparison;
  for (unsigned round = 0; round < setting("JSGF_TEST_ROUNDS", 2000); ++round) {
    Generator generator(seed * 1'000'003 + round);
    const oracle::Rules rules = generator.rules();
    std::vector<std::vector<std::string>> texts(12);
    for (auto &text : texts) {
      text = generator.text();
    }
    comparison.compare(rules, texts);
    ASSERT_FALSE(HasFatalFailure()) << "round " << round;
  }
  RecordProperty("compared", static_cast<int>(comparison.compared));
  EXPECT_GT(comparison.matched, comparison.compared / 20);
  EXPECT_LT(comparison.exhausted, comparison.compared / 20);
  EXPECT_GT(comparison.refused, 0U);
}

}  // namespace
