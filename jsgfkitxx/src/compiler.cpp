#include "compiler.h"

#include <algorithm>
#include <stdexcept>

namespace jsgf {

namespace {

// A rule this small is copied: a call would cost more.
constexpr uint64_t kSmallRule = 24;

// Everything is copied while the program stays below this size, or below this multiple of the source's symbols.
constexpr uint64_t kSmallProgram = 16384;
constexpr uint64_t kCopyGrowth = 4;

constexpr uint32_t kMaxNumber = (1U << 28U) - 1;
constexpr uint32_t kEndOfText = 0;

uint64_t saturatingAdd(uint64_t a, uint64_t b) {
  constexpr uint64_t kMost = uint64_t{1} << 62U;
  return std::min(a + b, kMost);
}

}  // namespace

Compiler::Compiler(const Syntax &syntax, const Components &components, RuleSharing sharing, Program &program)
    : syntax_(syntax), components_(components), sharing_(sharing), program_(program) {}

void Compiler::compile() {
  const size_t ruleCount = syntax_.rules.size();
  calleeOfRule_.assign(ruleCount, kNowhere);
  publicEntry_.assign(ruleCount, kNowhere);
  entryOfRule_.assign(ruleCount, kNowhere);
  program_.places.reserve(syntax_.symbols.size());
  program_.tagCells.reserve(syntax_.tags.size() + 1);
  program_.tagCells.push_back({0, 0});
  program_.ends.push_back(addPlace(PlaceKind::kEnd, 0, kNowhere));
  growWordSlots();

  chooseCalled();
  findReferred();
  for (size_t component = 0; component < components_.list.size(); ++component) {
    if (called_[component] && referred_[component]) {
      compileCallees(components_.list[component]);
    }
  }
  program_.rules.resize(ruleCount);
  for (uint32_t rule = 0; rule < ruleCount; ++rule) {
    program_.rules[rule].isPublic = syntax_.rules[rule].isPublic;
    if (syntax_.rules[rule].isPublic) {
      program_.rules[rule].entry = compilePublic(rule);
    }
  }
}

// Decides which components are called and which are copied to each place that refers to them.
void Compiler::chooseCalled() {
  const size_t count = components_.list.size();
  std::vector<uint64_t> size(count, 0);
  std::vector<uint32_t> uses(count, 0);
  called_.assign(count, false);
  const auto component = [&](uint32_t rule) { return components_.ofRule[rule]; };
  // Symbols after copying; a call is one.
  const auto measure = [&](uint32_t number) {
    uint64_t sum = 0;
    for (uint32_t i = 0; i < components_.list[number].count; ++i) {
      const uint32_t rule = components_.rules[components_.list[number].first + i];
      const RuleDefinition &definition = syntax_.rules[rule];
      for (uint32_t at = definition.begin; at < definition.end; ++at) {
        const Symbol symbol = syntax_.symbols[at];
        const bool isReference = symbol.kind == SymbolKind::kReference;
        const uint32_t target = isReference ? component(syntax_.references[symbol.value].target) : number;
        sum = saturatingAdd(sum, target == number || called_[target] ? 1 : size[target]);
      }
    }
    return sum;
  };
  uint64_t whole = 0;
  for (uint32_t number = 0; number < count; ++number) {
    called_[number] = sharing_ == RuleSharing::kEverywhere || components_.list[number].tagsAfterRecursion;
    size[number] = measure(number);
  }
  for (uint32_t rule = 0; rule < syntax_.rules.size(); ++rule) {
    if (syntax_.rules[rule].isPublic) {
      whole = saturatingAdd(whole, size[component(rule)]);
      ++uses[component(rule)];
    }
  }
  if (sharing_ != RuleSharing::kWhereItPays ||
      whole <= std::max<uint64_t>(kSmallProgram, kCopyGrowth * syntax_.symbols.size())) {
    return;
  }
  for (const Reference &reference : syntax_.references) {
    if (reference.target != RuleIndex::kNoRule && component(reference.target) != component(reference.rule)) {
      ++uses[component(reference.target)];
    }
  }
  for (uint32_t number = 0; number < count; ++number) {
    size[number] = measure(number);
    called_[number] = called_[number] || (uses[number] > 1 && size[number] > kSmallRule);
  }
}

void Compiler::findReferred() {
  referred_.assign(components_.list.size(), false);
  std::vector<bool> needed(components_.list.size(), false);
  for (uint32_t rule = 0; rule < syntax_.rules.size(); ++rule) {
    if (syntax_.rules[rule].isPublic) {
      needed[components_.ofRule[rule]] = true;
    }
  }
  // A component stands behind those that it refers to.
  for (size_t number = components_.list.size(); number-- > 0;) {
    for (uint32_t i = 0; needed[number] && i < components_.list[number].count; ++i) {
      const RuleDefinition &rule = syntax_.rules[components_.rules[components_.list[number].first + i]];
      for (uint32_t at = rule.begin; at < rule.end; ++at) {
        if (syntax_.symbols[at].kind != SymbolKind::kReference) {
          continue;
        }
        const uint32_t target = components_.ofRule[syntax_.references[syntax_.symbols[at].value].target];
        needed[target] = true;
        referred_[target] = referred_[target] || target != number;
      }
    }
  }
}

void Compiler::compileCallees(const Component &component) {
  const auto number = static_cast<uint32_t>(program_.ends.size());
  const uint32_t end = addPlace(PlaceKind::kEnd, number, kNowhere);
  program_.ends.push_back(end);
  current_ = {end, 0};
  openRecursion(0);
  for (uint32_t i = 0; i < component.count; ++i) {
    const uint32_t rule = components_.rules[component.first + i];
    const auto callee = static_cast<uint32_t>(program_.callees.size());
    calleeOfRule_[rule] = callee;
    entryOfRule_[rule] = addPlace(PlaceKind::kEntry, addBranches(1), callee);
    program_.callees.push_back({entryOfRule_[rule], number, false, false});
    entered_.push_back(rule);
  }
  continueRecursion();
  run();
}

Link Compiler::compilePublic(uint32_t rule) {
  if (publicEntry_[rule] != kNowhere) {
    return {publicEntry_[rule], 0};
  }
  current_ = {kEndOfText, 0};
  enterRule(rule, 0);
  run();
  return current_;
}

void Compiler::run() {
  while (!frames_.empty()) {
    read(syntax_.symbols[--position_]);
  }
}

void Compiler::read(Symbol symbol) {
  const bool isDead = current_.place == kNowhere;
  switch (symbol.kind) {
    case SymbolKind::kWord:
      if (!isDead) {
        current_.place = wordPlace(symbol.value, current_.place);
      }
      endItem();
      break;
    case SymbolKind::kReference:
      readReference(syntax_.references[symbol.value]);
      break;
    case SymbolKind::kVoid:
      current_ = {};
      endItem();
      break;
    case SymbolKind::kNull:
      endItem();
      break;
    case SymbolKind::kTag:
      if (!isDead) {
        program_.tagCells.push_back({symbol.value, current_.tags});
        current_.tags = static_cast<uint32_t>(program_.tagCells.size() - 1);
      }
      break;
    case SymbolKind::kStar:
      openRepeat(FrameKind::kStar);
      break;
    case SymbolKind::kPlus:
      openRepeat(FrameKind::kPlus);
      break;
    case SymbolKind::kBar:
      endAlternative();
      current_ = frames_.back().next;
      break;
    case SymbolKind::kWeight:
      weight_ = syntax_.weights[symbol.value];
      break;
    case SymbolKind::kGroupClose:
      openGroup(FrameKind::kGroup);
      break;
    case SymbolKind::kOptionalClose:
      openGroup(FrameKind::kOptional);
      break;
    case SymbolKind::kGroupOpen:
    case SymbolKind::kOptionalOpen:
      closeGroup();
      break;
    case SymbolKind::kRuleOpen:
      closeBody();
      break;
  }
}

void Compiler::readReference(const Reference &reference) {
  if (current_.place == kNowhere) {
    endItem();
    return;
  }
  if (components_.ofRule[reference.rule] == components_.ofRule[reference.target]) {
    // The last item of its rule: what follows is what follows the rule, behind the tags that were read.
    const Link next = frames_[recursions_.back()].next;
    const uint32_t entry = entryInRecursion(reference.target);
    current_ = {current_ == next ? entry : addPlace(PlaceKind::kJump, current_.tags, entry), 0};
    endItem();
    return;
  }
  if (!isCalled(reference.target)) {
    enterRule(reference.target, position_);
    return;
  }
  const uint32_t callee = calleeOfRule_[reference.target];
  if (program_.branches[program_.places[program_.callees[callee].entry].value].place == kNowhere) {
    current_ = {};
  } else {
    program_.calls.push_back({callee, current_});
    current_ = {addPlace(PlaceKind::kCall, program_.calls.size() - 1, kNowhere), 0};
  }
  endItem();
}

// Copies a rule to before current_.
void Compiler::enterRule(uint32_t rule, uint32_t resume) {
  if (components_.list[components_.ofRule[rule]].isRecursive) {
    openRecursion(resume);
    entryInRecursion(rule);
    continueRecursion();
  } else {
    openBody(rule, kNowhere, resume);
  }
}

void Compiler::openRecursion(uint32_t resume) {
  recursions_.push_back(static_cast<uint32_t>(frames_.size()));
  const auto base = static_cast<uint32_t>(entered_.size());
  frames_.push_back({FrameKind::kRecursion, current_, base, kNowhere, resume, base});
}

// The entry of a rule in the innermost recursion.
uint32_t Compiler::entryInRecursion(uint32_t rule) {
  if (entryOfRule_[rule] == kNowhere) {
    entryOfRule_[rule] = addPlace(PlaceKind::kAlternatives, addBranches(1), 1);
    entered_.push_back(rule);
  }
  return entryOfRule_[rule];
}

void Compiler::continueRecursion() {
  Frame &frame = frames_.back();
  if (frame.done < entered_.size()) {
    const uint32_t rule = entered_[frame.done++];
    current_ = frame.next;
    openBody(rule, entryOfRule_[rule], 0);
    return;
  }
  const Frame closed = frame;
  frames_.pop_back();
  recursions_.pop_back();
  current_ = {entryOfRule_[entered_[closed.base]], 0};
  for (size_t i = closed.base; i < entered_.size(); ++i) {
    if (closed.next == Link{kEndOfText, 0}) {
      publicEntry_[entered_[i]] = entryOfRule_[entered_[i]];
    }
    entryOfRule_[entered_[i]] = kNowhere;
  }
  entered_.resize(closed.base);
  if (!frames_.empty()) {
    position_ = closed.resume;
    endItem();
  }
}

void Compiler::openBody(uint32_t rule, uint32_t entry, uint32_t resume) {
  frames_.push_back({FrameKind::kRule, current_, static_cast<uint32_t>(alternatives_.size()), entry, resume, 0});
  position_ = syntax_.rules[rule].end;
}

void Compiler::closeBody() {
  endAlternative();
  const Frame closed = frames_.back();
  const Link link = takeAlternatives(closed);
  frames_.pop_back();
  if (closed.place != kNowhere) {
    program_.branches[program_.places[closed.place].value] = link;
    continueRecursion();
    return;
  }
  current_ = link;
  if (!frames_.empty()) {
    position_ = closed.resume;
    endItem();
  }
}

void Compiler::openGroup(FrameKind kind) {
  frames_.push_back({kind, current_, static_cast<uint32_t>(alternatives_.size()), kNowhere, 0, 0});
}

void Compiler::closeGroup() {
  endAlternative();
  current_ = takeAlternatives(frames_.back());
  frames_.pop_back();
  endItem();
}

void Compiler::endAlternative() {
  alternatives_.push_back({current_, weight_});
  weight_ = kNoWeight;
}

// The entry to the alternatives of a group or rule: a choice among those that can be spoken, the heavier ones first.
Link Compiler::takeAlternatives(const Frame &frame) {
  ordered_.clear();
  bool isWeighted = false;
  for (size_t i = alternatives_.size(); i-- > frame.base;) {
    const Alternative &alternative = alternatives_[i];
    isWeighted = isWeighted || alternative.weight != kNoWeight;
    if (alternative.link.place != kNowhere && alternative.weight != 0) {
      ordered_.push_back(alternative);
    }
  }
  alternatives_.resize(frame.base);
  if (isWeighted) {
    std::stable_sort(ordered_.begin(), ordered_.end(),
                     [](const Alternative &a, const Alternative &b) { return a.weight > b.weight; });
  }
  if (frame.kind == FrameKind::kOptional && frame.next.place != kNowhere) {
    ordered_.push_back({frame.next, kNoWeight});
  }
  if (ordered_.size() <= 1) {
    return ordered_.empty() ? Link{} : ordered_.front().link;
  }
  const uint32_t first = addBranches(ordered_.size());
  for (size_t i = 0; i < ordered_.size(); ++i) {
    program_.branches[first + i] = ordered_[i].link;
  }
  return {addPlace(PlaceKind::kAlternatives, first, ordered_.size()), 0};
}

void Compiler::openRepeat(FrameKind kind) {
  uint32_t place = kNowhere;
  const Link next = current_;
  if (next.place != kNowhere) {
    place = addPlace(PlaceKind::kAlternatives, addBranches(2), 2);
    current_ = {place, 0};
  }
  frames_.push_back({kind, next, 0, place, 0, 0});
}

// An item and what leads up to it is read: the repeats of it are complete.
void Compiler::endItem() {
  while (frames_.back().kind == FrameKind::kStar || frames_.back().kind == FrameKind::kPlus) {
    const Frame repeat = frames_.back();
    frames_.pop_back();
    const bool isStar = repeat.kind == FrameKind::kStar;
    if (repeat.place == kNowhere) {
      continue;
    }
    Place &choice = program_.places[repeat.place];
    Link *branches = &program_.branches[choice.value];
    if (current_.place == kNowhere || current_.place == repeat.place) {
      // A body that can't be spoken, or only by saying nothing: there are no rounds to choose.
      choice.next = 1;
      branches[0] = repeat.next;
      current_ = isStar ? repeat.next : current_;
      continue;
    }
    branches[0] = current_;
    branches[1] = repeat.next;
    current_ = isStar ? Link{repeat.place, 0} : current_;
  }
}

uint32_t Compiler::addPlace(PlaceKind kind, size_t value, size_t next) {
  if (program_.places.size() >= kMaxNumber || value > kMaxNumber) {
    throw std::runtime_error("line 1, column 1: the grammar is too large");
  }
  Place place{};
  place.kind = static_cast<uint32_t>(kind);
  place.value = static_cast<uint32_t>(value) & kMaxNumber;
  place.next = static_cast<uint32_t>(next);
  program_.places.push_back(place);
  return static_cast<uint32_t>(program_.places.size() - 1);
}

uint32_t Compiler::addBranches(size_t count) {
  const size_t first = program_.branches.size();
  program_.branches.resize(first + count);
  return static_cast<uint32_t>(first);
}

// The place for a word before `next`; the same one each time.
uint32_t Compiler::wordPlace(uint32_t word, uint32_t next) {
  if (wordPlaces_ * 2 >= program_.wordSlots.size()) {
    growWordSlots();
  }
  const size_t mask = program_.wordSlots.size() - 1;
  size_t slot = program_.wordSlot(next, word) & mask;
  for (; program_.wordSlots[slot] != 0; slot = (slot + 1) & mask) {
    const uint32_t known = program_.wordSlots[slot] - 1;
    if (program_.places[known].value == word && program_.places[known].next == next) {
      return known;
    }
  }
  const uint32_t place = addPlace(PlaceKind::kWord, word, next);
  program_.places[next].behindWord = 1;
  program_.wordSlots[slot] = place + 1;
  ++wordPlaces_;
  return place;
}

void Compiler::growWordSlots() {
  const size_t least = std::max<size_t>(16, program_.wordSlots.size() * 2);
  const std::vector<uint32_t> old = std::move(program_.wordSlots);
  program_.wordSlots.assign(least, 0);
  const size_t mask = least - 1;
  for (const uint32_t entry : old) {
    if (entry != 0) {
      const Place &place = program_.places[entry - 1];
      size_t slot = program_.wordSlot(place.next, place.value) & mask;
      while (program_.wordSlots[slot] != 0) {
        slot = (slot + 1) & mask;
      }
      program_.wordSlots[slot] = entry;
    }
  }
}

}  // namespace jsgf
