#include "oracle.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "match.h"
#include "program.h"
#include "viability.h"

namespace {

using oracle::Node;
using quillbrook::jsgf::LastWord;
using quillbrook::jsgf::Program;
using quillbrook::jsgf::RuleSharing;
using quillbrook::jsgf::Viability;

using Texts = std::vector<std::vector<std::string>>;

// As the oracle gives it.
std::string derivation(const Program &program, const std::string &text, size_t rule) {
  quillbrook::jsgf::Match match(program, text);
  const auto steps = match.derive(static_cast<uint32_t>(rule));
  std::string tags = steps ? "" : "no match";
  for (size_t i = 0; steps && i < steps->size(); ++i) {
    const quillbrook::jsgf::Step step = (*steps)[i];
    tags += step == quillbrook::jsgf::kWordStep ? "" : "{" + std::string(program.tags[step]) + "}";
  }
  return tags;
}

std::string joined(const std::vector<std::string> &words) {
  std::string text;
  for (const std::string &word : words) {
    text += word + " ";
  }
  return text;
}

// Compares the oracle with the library in all its ways of sharing rules.
struct Comparison {
  int refused = 0, compared = 0, matched = 0, exhausted = 0;
  std::array<int, 4> outlooks{};  // by Viability

  void compare(const oracle::Rules &rules, const Texts &texts) {
    const std::string source = oracle::to_jsgf(rules);
    programs_.clear();
    for (const RuleSharing sharing : {RuleSharing::kWhereItPays, RuleSharing::kNowhere, RuleSharing::kEverywhere}) {
      std::istringstream in(source);
      try {
        programs_.push_back(Program::load(in, sharing));
      } catch (const std::runtime_error &error) {
        ASSERT_NE(std::string(error.what()).find("since the rules are recursive"), std::string::npos) << error.what();
        ++refused;
        return;
      }
    }
    for (const auto &text : texts) {
      SCOPED_TRACE(source + "text " + joined(text));
      const std::optional<bool> fits = compare_derivations(rules, text);
      for (const LastWord last_word : {LastWord::kIsWhole, LastWord::kMayGrow}) {
        compare_viability(rules, text, fits, last_word);
      }
      if (testing::Test::HasFatalFailure()) {
        return;
      }
    }
  }

private:
  // Whether any public rule fits; nothing when the oracle can't tell.
  std::optional<bool> compare_derivations(const oracle::Rules &rules, const std::vector<std::string> &text) {
    bool is_known = true;
    bool fits = false;
    const auto compare_rule = [&](size_t rule) {
      const std::optional<std::string> expected = oracle::Matcher(rules, text).run(rule);
      ++(expected ? compared : exhausted);
      matched += expected && *expected != "no match" ? 1 : 0;
      is_known = is_known && expected;
      fits = fits || (expected && *expected != "no match");
      for (size_t i = 0; i < programs_.size() && expected; ++i) {
        ASSERT_EQ(derivation(*programs_[i], joined(text), rule), *expected) << "rule r" << rule << ", sharing " << i;
      }
    };
    for (size_t rule = 0; rule < rules.size(); ++rule) {
      if (rules[rule].is_public) {
        compare_rule(rule);
      }
    }
    return is_known ? std::optional<bool>(fits) : std::nullopt;
  }

  void compare_viability(const oracle::Rules &rules, const std::vector<std::string> &text, std::optional<bool> fits,
                         LastWord last_word) {
    std::optional<bool> can_go_on = fits ? std::optional<bool>(false) : std::nullopt;
    for (size_t rule = 0; rule < rules.size() && can_go_on && !*can_go_on; ++rule) {
      if (rules[rule].is_public) {
        can_go_on = oracle::Matcher(rules, text).can_go_on(rule, last_word == LastWord::kMayGrow);
      }
    }
    if (!can_go_on) {
      return;
    }
    const Viability expected = *can_go_on ? (*fits ? Viability::kCompleteSoFar : Viability::kBeginning)
                                          : (*fits ? Viability::kComplete : Viability::kImpossible);
    ++outlooks[static_cast<size_t>(expected)];
    std::string words = joined(text);
    words.pop_back();
    for (size_t i = 0; i < programs_.size(); ++i) {
      ASSERT_EQ(quillbrook::jsgf::viability_of(*programs_[i], words, last_word), expected)
          << "sharing " << i << ", last word " << static_cast<int>(last_word);
    }
  }

  std::vector<std::shared_ptr<const Program>> programs_;
};

// Of up to three words.
Texts all_texts() {
  Texts texts{{}};
  for (size_t from = 0; texts[from].size() < 3; ++from) {
    for (const char *word : {"a", "b"}) {
      texts.push_back(texts[from]);
      texts.back().emplace_back(word);
    }
  }
  texts.erase(texts.begin());
  return texts;
}

// All expansions of two levels of operators over two words and nothing, against all texts of up to three words.
TEST(Oracle, AgreesOnAllSmallGrammars) {
  std::vector<Node> all{{Node::kTagged, "A", 0, {{Node::kWord, "a"}}},
                        {Node::kTagged, "B", 0, {{Node::kWord, "b"}}},
                        {Node::kTagged, "N", 0, {{Node::kSequence}}}};
  for (int level = 0; level < 2; ++level) {
    const std::vector<Node> below = all;
    for (const Node &inner : below) {
      all.push_back(oracle::optional(inner));
      all.push_back({Node::kStar, "", 0, {inner}});
      all.push_back({Node::kPlus, "", 0, {inner}});
      for (const Node &other : below) {
        all.push_back({Node::kSequence, "", 0, {inner, other}});
        all.push_back({Node::kChoice, "", 0, {inner, other}});
      }
    }
  }
  const Texts texts = all_texts();
  Comparison comparison;
  for (const Node &body : all) {
    // Once as the rule itself, once through a rule that is used twice.
    const Node use{Node::kReference, "", 1};
    comparison.compare({{true, {Node::kSequence, "", 0, {use, oracle::optional(use)}}}, {true, body}}, texts);
    ASSERT_FALSE(HasFatalFailure());
  }
  EXPECT_GT(comparison.matched, comparison.compared / 10);
  EXPECT_LT(comparison.exhausted, comparison.compared / 100);
}

class Generator {
public:
  explicit Generator(unsigned seed, std::array<const char *, 6> vocabulary = {"a", "a", "a", "b", "b", "bc"})
      : random_(seed), vocabulary_(vocabulary) {}

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
    std::generate(words.begin(), words.end(), [&] { return word(); });
    return words;
  }

  size_t below(size_t limit) { return random_() % limit; }

private:
  std::string word() { return vocabulary_[below(6)]; }

  Node node(int depth, size_t rule, size_t rule_count, bool is_last) {
    const size_t kind = below(depth == 0 ? 8 : 20);
    const auto child = [&](bool last) { return node(depth - 1, rule, rule_count, last); };
    if (kind == 0 && below(2) == 0) {
      return {below(3) == 0 ? Node::kChoice : Node::kSequence};
    }
    if (kind == 1 && is_last) {
      return {Node::kReference, "", below(3) == 0 ? below(rule_count) : rule};
    }
    if (kind <= 2 && rule + 1 < rule_count) {
      return {Node::kReference, "", rule + 1 + below(rule_count - rule - 1)};
    }
    if (kind < 8) {
      return {Node::kWord, word()};
    }
    if (kind < 16) {
      const bool is_choice = kind >= 13;
      const bool is_weighted = is_choice && below(4) == 0;
      Node several{is_choice ? Node::kChoice : Node::kSequence};
      for (size_t items = 2 + below(2); items-- > 0;) {
        several.children.push_back(child(is_last && (is_choice || items == 0)));
        if (is_weighted) {
          several.weights.push_back(items == 0 ? 2 : static_cast<int>(below(4)));
        }
      }
      return several;
    }
    if (kind == 16) {
      return oracle::optional(child(is_last));
    }
    if (kind < 19) {
      return {kind == 17 ? Node::kStar : Node::kPlus, "", 0, {child(false)}};
    }
    return {Node::kTagged, std::to_string(++tags_), 0, {child(is_last)}};
  }

  std::minstd_rand random_;
  const std::array<const char *, 6> vocabulary_;
  int tags_ = 0;
};

// JSGF_TEST_SEED picks other grammars than those of every run, JSGF_TEST_ROUNDS more or fewer of them.
unsigned setting(const char *name, unsigned otherwise) {
  const char *value = std::getenv(name);
  return value == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(value, nullptr, 10));
}

constexpr unsigned kRounds = 800;  // some 15 s with the address sanitizer

TEST(Oracle, AgreesOnRandomGrammars) {
  const unsigned seed = setting("JSGF_TEST_SEED", 1);
  Comparison comparison;
  for (unsigned round = 0; round < setting("JSGF_TEST_ROUNDS", kRounds); ++round) {
    Generator generator(seed * 1'000'003 + round);
    const oracle::Rules rules = generator.rules();
    Texts texts(12);
    std::generate(texts.begin(), texts.end(), [&] { return generator.text(); });
    comparison.compare(rules, texts);
    ASSERT_FALSE(HasFatalFailure()) << "round " << round;
  }
  EXPECT_GT(comparison.matched, comparison.compared / 20);
  EXPECT_LT(comparison.exhausted, comparison.compared / 20);
  EXPECT_GT(comparison.refused, 0);
  for (const int outlook : comparison.outlooks) {
    EXPECT_GT(outlook, comparison.compared / 40);
  }
}

void note_words(const Node &node, std::set<std::string> &words) {
  if (node.kind == Node::kWord) {
    words.insert(node.text);
  }
  for (const Node &child : node.children) {
    note_words(child, words);
  }
}

// The words of a text in figures and colons: what the grammar has counts whole, then what stands between colons, and
// then each figure.
std::vector<std::string> read_figures(const std::string &text, const std::set<std::string> &known) {
  std::vector<std::string> words;
  std::istringstream written(text);
  for (std::string word; written >> word;) {
    word.erase(word.find_last_not_of(':') + 1);
    word.erase(0, word.find_first_not_of(':'));
    std::istringstream parts(word);
    for (std::string part; known.count(word) == 0 && std::getline(parts, part, ':');) {
      if (known.count(part) != 0) {
        words.push_back(part);
        continue;
      }
      for (const char figure : part) {
        words.emplace_back(1, figure);
      }
    }
    if (known.count(word) != 0) {
      words.push_back(word);
    }
  }
  return words;
}

// The grammars of the test above over figures, and texts that recognisers write together.
TEST(Oracle, AgreesOnFigures) {
  const unsigned seed = setting("JSGF_TEST_SEED", 1);
  int compared = 0, matched = 0;
  for (unsigned round = 0; round < setting("JSGF_TEST_ROUNDS", kRounds) / 4; ++round) {
    Generator generator(seed * 1'000'003 + round, {"1", "1", "2", "12", "2:1", "111"});
    const oracle::Rules rules = generator.rules();
    std::set<std::string> known;
    for (const oracle::Rule &rule : rules) {
      note_words(rule.body, known);
    }
    std::shared_ptr<const Program> program;
    std::istringstream in(oracle::to_jsgf(rules));
    try {
      program = Program::load(in);
    } catch (const std::runtime_error &) {
      continue;
    }
    for (int i = 0; i < 12; ++i) {
      std::string text;
      for (const std::string &word : generator.text()) {
        text += word + std::array{"", "", " ", ":"}[generator.below(4)];
      }
      const auto expected = oracle::Matcher(rules, read_figures(text, known)).run(0);
      ++compared;
      matched += expected && *expected != "no match" ? 1 : 0;
      ASSERT_EQ(derivation(*program, text, 0), expected.value_or(derivation(*program, text, 0)))
          << oracle::to_jsgf(rules) << text << ", round " << round;
    }
  }
  EXPECT_GT(matched, compared / 40);
}

}  // namespace
