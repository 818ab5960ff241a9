#include "jsgfkitxx.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "match.h"
#include "program.h"

class Rule {
public:
  std::shared_ptr<const jsgf::Program> program;
  uint32_t index;
};

class MatchInfo {
public:
  std::string_view tag;  // in the program; "" for a word
};

namespace {

// All steps of a match in one block, which the pointers to them share.
struct MatchBlock {
  std::shared_ptr<const jsgf::Program> program;
  std::vector<MatchInfo> steps;
};

}  // namespace

Grammar::Grammar(std::istream &in) : program_(jsgf::Program::load(in)) {
  name_ = program_->grammarName;
}

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
  const jsgf::Match match(*program_, text);
  uint32_t found = jsgf::RuleIndex::kNoRule;
  for (uint32_t rule = 0; rule < program_->rules.size(); ++rule) {
    const auto steps = match.derive(rule);
    if (!steps) {
      continue;
    }
    if (std::any_of(steps->begin(), steps->end(),
                    [&](jsgf::Step step) { return step != jsgf::kWordStep && !program_->tags[step].empty(); })) {
      found = rule;
      break;
    }
    found = std::min(found, rule);
  }
  return found == jsgf::RuleIndex::kNoRule ? std::string() : std::string(program_->ruleIndex.nameOf(found));
}

std::shared_ptr<Rule> Grammar::getRule(const std::string &name) const {
  std::string_view simple = name;
  if (simple.size() > 2 && simple.front() == '<' && simple.back() == '>') {
    simple = simple.substr(1, simple.size() - 2);
  }
  const uint32_t rule = program_->ruleIndex.find(simple);
  return rule == jsgf::RuleIndex::kNoRule ? nullptr : std::make_shared<Rule>(Rule{program_, rule});
}

MatchVector Grammar::matchesRule(std::shared_ptr<Rule> rule, const std::string &text) const {
  MatchVector result;
  if (rule == nullptr || rule->program != program_) {
    return result;
  }
  const auto steps = jsgf::Match(*program_, text).derive(rule->index);
  if (!steps) {
    return result;
  }
  const auto block = std::make_shared<MatchBlock>();
  block->program = program_;
  block->steps.reserve(steps->size());
  result.reserve(steps->size());
  for (const jsgf::Step step : *steps) {
    block->steps.push_back({step == jsgf::kWordStep ? std::string_view() : program_->tags[step]});
    result.emplace_back(block, &block->steps.back());
  }
  return result;
}

std::vector<std::string> Grammar::getMatchingTags(std::vector<std::shared_ptr<MatchInfo>> steps) {
  std::vector<std::string> tags;
  tags.reserve(steps.size());
  for (const auto &step : steps) {
    tags.emplace_back(step == nullptr ? std::string_view() : step->tag);
  }
  return tags;
}

std::vector<std::string> Grammar::getAllWords() const {
  std::vector<std::string> words;
  words.reserve(program_->tokens.size());
  for (uint32_t token = 0; token < program_->tokens.size(); ++token) {
    words.emplace_back(program_->tokens[token]);
  }
  return words;
}
