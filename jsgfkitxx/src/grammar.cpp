#include "jsgfkitxx.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include "match.h"
#include "program.h"
#include "text_words.h"
#include "viability.h"

class Rule {
public:
  std::shared_ptr<const quillbrook::jsgf::Program> program;
  uint32_t index;
};

class MatchInfo {
public:
  std::string_view tag;  // in the program; "" for a word
};

namespace quillbrook::jsgf {

// What getMatchingPublicRule found last. Callers go on with matchesRule for the same text and rule, which then has its
// answer here: matching costs one pass instead of two.
class LastMatch {
public:
  void set(std::string text, uint32_t rule, const Steps &steps) {
    if (steps.size() > kMaxSteps) {
      return;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    text_ = std::move(text);
    rule_ = rule;
    steps_.assign(steps.begin(), steps.end());
  }

  std::optional<std::vector<Step>> get(const std::string &text, uint32_t rule) const {
    const std::lock_guard<std::mutex> guard(lock_);
    if (rule != rule_ || text != text_) {
      return std::nullopt;
    }
    return steps_;
  }

private:
  static constexpr size_t kMaxSteps = size_t{1} << 18U;  // longer ones are matched again rather than kept

  mutable std::mutex lock_;  // guards all below; held for copies only, and nothing else is taken under it
  std::string text_;
  uint32_t rule_ = RuleIndex::kNoRule;
  std::vector<Step> steps_;
};

}  // namespace quillbrook::jsgf

namespace {

using quillbrook::jsgf::Step;

// What callers make of the steps is the match's, too: pointers, the tags as texts of their own, and these joined.
template <typename Steps>
size_t bytes_for_caller(const quillbrook::jsgf::Program &program, const Steps &steps) {
  size_t bytes = 0;
  for (const Step step : steps) {
    const size_t tag = step == quillbrook::jsgf::kWordStep ? 0 : program.tags[step].size() + 1;
    bytes += sizeof(MatchInfo) + sizeof(MatchVector::value_type) + sizeof(std::string) + 2 * tag;
  }
  return bytes;
}

// All steps of a match in one block, which the pointers to them share.
struct MatchBlock {
  std::shared_ptr<const quillbrook::jsgf::Program> program;
  std::vector<MatchInfo> steps;
};

bool has_tag(const quillbrook::jsgf::Program &program, const quillbrook::jsgf::Steps &steps) {
  return std::any_of(steps.begin(), steps.end(),
                     [&](Step step) { return step != quillbrook::jsgf::kWordStep && !program.tags[step].empty(); });
}

template <typename Steps>
MatchVector to_match_vector(const std::shared_ptr<const quillbrook::jsgf::Program> &program, const Steps &steps) {
  MatchVector result;
  const auto block = std::make_shared<MatchBlock>();
  block->program = program;
  block->steps.reserve(steps.size());
  result.reserve(steps.size());
  for (const Step step : steps) {
    block->steps.push_back({step == quillbrook::jsgf::kWordStep ? std::string_view() : program->tags[step]});
    result.emplace_back(block, &block->steps.back());
  }
  return result;
}

}  // namespace

Grammar::Grammar(std::istream &in)
    : program_(quillbrook::jsgf::Program::load(in)), last_match_(std::make_unique<quillbrook::jsgf::LastMatch>()) {
  name_ = program_->grammar_name;
}

Grammar::Grammar(std::istream &in, const quillbrook::jsgf::ImportFolders &imports)
    : program_(quillbrook::jsgf::Program::load(in, quillbrook::jsgf::RuleSharing::kWhereItPays, &imports)),
      last_match_(std::make_unique<quillbrook::jsgf::LastMatch>()) {
  name_ = program_->grammar_name;
}

Grammar::Grammar(const Grammar &other)
    : name_(other.name_), program_(other.program_), last_match_(std::make_unique<quillbrook::jsgf::LastMatch>()) {}

Grammar::~Grammar() = default;

void Grammar::setName(const std::string &name) {
  name_ = name;
}

std::string Grammar::getName() const {
  return name_;
}

std::string Grammar::getText() const {
  std::string text = program_->source;
  std::replace_if(
      text.begin(), text.end(), [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; }, ' ');
  return text;
}

std::string Grammar::getMatchingPublicRule(std::string text) const {
  quillbrook::jsgf::Match match(*program_, text);
  uint32_t found = quillbrook::jsgf::RuleIndex::kNoRule;
  std::optional<quillbrook::jsgf::Steps> steps;
  for (uint32_t rule = 0; rule < program_->rules.size(); ++rule) {
    auto derivation = match.derive(rule);
    if (!derivation) {
      continue;
    }
    const bool is_tagged = has_tag(*program_, *derivation);
    if (is_tagged || found == quillbrook::jsgf::RuleIndex::kNoRule) {
      found = rule;
      steps = std::move(derivation);
    }
    if (is_tagged) {
      break;
    }
  }
  if (found == quillbrook::jsgf::RuleIndex::kNoRule) {
    return {};
  }
  last_match_->set(std::move(text), found, *steps);
  return std::string(program_->rule_index.name_of(found));
}

quillbrook::jsgf::Viability Grammar::getViability(const std::string &text, quillbrook::jsgf::LastWord last_word) const {
  return quillbrook::jsgf::viability_of(*program_, text, last_word);
}

std::vector<std::string> Grammar::getWords(const std::string &text) const {
  std::vector<std::string> words;
  quillbrook::jsgf::TextWords reader(program_->words, text);
  while (reader.next()) {
    words.emplace_back(reader.word());
  }
  return words;
}

std::shared_ptr<Rule> Grammar::getRule(const std::string &name) const {
  std::string_view simple = name;
  if (simple.size() > 2 && simple.front() == '<' && simple.back() == '>') {
    simple = simple.substr(1, simple.size() - 2);
  }
  const uint32_t rule = program_->rule_index.find(simple);
  return rule == quillbrook::jsgf::RuleIndex::kNoRule ? nullptr : std::make_shared<Rule>(Rule{program_, rule});
}

// Callers' signature: the pointers come by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
MatchVector Grammar::matchesRule(std::shared_ptr<Rule> rule, const std::string &text) const {
  if (rule == nullptr || rule->program != program_) {
    return {};
  }
  if (const auto known = last_match_->get(text, rule->index)) {
    quillbrook::jsgf::Meter meter;
    meter.take(bytes_for_caller(*program_, *known));
    return to_match_vector(program_, *known);
  }
  quillbrook::jsgf::Match match(*program_, text);
  const auto steps = match.derive(rule->index);
  if (!steps) {
    return {};
  }
  match.take(bytes_for_caller(*program_, *steps));
  return to_match_vector(program_, *steps);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param)
std::vector<std::string> Grammar::getMatchingTags(std::vector<std::shared_ptr<MatchInfo>> steps) {
  std::vector<std::string> tags;
  tags.reserve(steps.size());
  for (const auto &step : steps) {
    tags.emplace_back(step == nullptr ? std::string_view() : step->tag);
  }
  return tags;
}

std::vector<std::string> Grammar::getImportedFiles() const {
  return program_->imported_files;
}

std::vector<std::string> Grammar::getAllWords() const {
  std::vector<std::string> words;
  words.reserve(program_->tokens.size());
  for (uint32_t token = 0; token < program_->tokens.size(); ++token) {
    words.emplace_back(program_->tokens[token]);
  }
  return words;
}
