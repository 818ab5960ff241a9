#include "compiler.h"

#include <algorithm>
#include <stdexcept>

namespace quillbrook::jsgf {

namespace {

// A rule this small is copied: a call would cost more.
constexpr uint64_t kSmallRule = 24;

// Everything is copied while the program stays below this size, or below this multiple of the source's symbols.
constexpr uint64_t kSmallProgram = 16384;
constexpr uint64_t kCopyGrowth = 4;

constexpr uint32_t kMaxNumber = (1U << 28U) - 1;
constexpr uint32_t kEndOfText = 0;

uint64_t saturating_add(uint64_t a, uint64_t b) {
  constexpr uint64_t kMost = uint64_t{1} << 62U;
  return std::min(a + b, kMost);
}

}  // namespace

Compiler::Compiler(const Syntax &syntax, const Components &components, RuleSharing sharing, Program &program)
    : syntax_(syntax), components_(components), sharing_(sharing), program_(program) {}

void Compiler::compile() {
  const size_t rule_count = syntax_.rules.size();
  callee_of_rule_.assign(rule_count, kNowhere);
  public_entry_.assign(rule_count, kNowhere);
  entry_of_rule_.assign(rule_count, kNowhere);
  program_.places.reserve(syntax_.symbols.size());
  program_.tag_cells.reserve(syntax_.tags.size() + 1);
  program_.tag_cells.push_back({0, 0});
  program_.ends.push_back(add_place(PlaceKind::kEnd, 0, kNowhere));
  grow_word_slots();

  choose_called();
  find_referred();
  for (size_t component = 0; component < components_.list.size(); ++component) {
    if (called_[component] && referred_[component]) {
      compile_callees(components_.list[component]);
    }
  }
  program_.callees_end = static_cast<uint32_t>(program_.places.size());
  program_.rules.resize(rule_count);
  for (uint32_t rule = 0; rule < rule_count; ++rule) {
    program_.rules[rule].is_public = syntax_.rules[rule].is_public;
    if (syntax_.rules[rule].is_public) {
      program_.rules[rule].entry = compile_public(rule);
    }
  }
}

// Decides which components are called and which are copied to each place that refers to them.
void Compiler::choose_called() {
  const size_t count = components_.list.size();
  std::vector<uint64_t> size(count, 0);
  std::vector<uint32_t> uses(count, 0);
  called_.assign(count, false);
  const auto component = [&](uint32_t rule) { return components_.of_rule[rule]; };
  // Symbols after copying; a call is one.
  const auto measure = [&](uint32_t number) {
    uint64_t sum = 0;
    for (uint32_t i = 0; i < components_.list[number].count; ++i) {
      const uint32_t rule = components_.rules[components_.list[number].first + i];
      const RuleDefinition &definition = syntax_.rules[rule];
      for (uint32_t at = definition.begin; at < definition.end; ++at) {
        const Symbol symbol = syntax_.symbols[at];
        const bool is_reference = symbol.kind == SymbolKind::kReference;
        const uint32_t target = is_reference ? component(syntax_.references[symbol.value].target) : number;
        sum = saturating_add(sum, target == number || called_[target] ? 1 : size[target]);
      }
    }
    return sum;
  };
  uint64_t whole = 0;
  for (uint32_t number = 0; number < count; ++number) {
    called_[number] = sharing_ == RuleSharing::kEverywhere || components_.list[number].tags_after_recursion;
    size[number] = measure(number);
  }
  for (uint32_t rule = 0; rule < syntax_.rules.size(); ++rule) {
    if (syntax_.rules[rule].is_public) {
      whole = saturating_add(whole, size[component(rule)]);
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

void Compiler::find_referred() {
  referred_.assign(components_.list.size(), false);
  std::vector<bool> needed(components_.list.size(), false);
  for (uint32_t rule = 0; rule < syntax_.rules.size(); ++rule) {
    if (syntax_.rules[rule].is_public) {
      needed[components_.of_rule[rule]] = true;
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
        const uint32_t target = components_.of_rule[syntax_.references[syntax_.symbols[at].value].target];
        needed[target] = true;
        referred_[target] = referred_[target] || target != number;
      }
    }
  }
}

void Compiler::compile_callees(const Component &component) {
  const auto number = static_cast<uint32_t>(program_.ends.size());
  const uint32_t end = add_place(PlaceKind::kEnd, number, kNowhere);
  program_.ends.push_back(end);
  current_ = {end, 0};
  open_recursion(0);
  for (uint32_t i = 0; i < component.count; ++i) {
    const uint32_t rule = components_.rules[component.first + i];
    const auto callee = static_cast<uint32_t>(program_.callees.size());
    callee_of_rule_[rule] = callee;
    entry_of_rule_[rule] = add_place(PlaceKind::kEntry, add_branches(1), callee);
    program_.callees.push_back({entry_of_rule_[rule], number, false, false});
    entered_.push_back(rule);
  }
  continue_recursion();
  run();
}

Link Compiler::compile_public(uint32_t rule) {
  if (public_entry_[rule] != kNowhere) {
    return {public_entry_[rule], 0};
  }
  current_ = {kEndOfText, 0};
  enter_rule(rule, 0);
  run();
  return current_;
}

void Compiler::run() {
  while (!frames_.empty()) {
    read(syntax_.symbols[--position_]);
  }
}

void Compiler::read(Symbol symbol) {
  const bool is_dead = current_.place == kNowhere;
  switch (symbol.kind) {
    case SymbolKind::kWord:
      if (!is_dead) {
        current_.place = word_place(symbol.value, current_.place);
      }
      end_item();
      break;
    case SymbolKind::kReference:
      read_reference(syntax_.references[symbol.value]);
      break;
    case SymbolKind::kVoid:
      current_ = {};
      end_item();
      break;
    case SymbolKind::kNull:
      end_item();
      break;
    case SymbolKind::kTag:
      if (!is_dead) {
        program_.tag_cells.push_back({symbol.value, current_.tags});
        current_.tags = static_cast<uint32_t>(program_.tag_cells.size() - 1);
      }
      break;
    case SymbolKind::kStar:
      open_repeat(FrameKind::kStar);
      break;
    case SymbolKind::kPlus:
      open_repeat(FrameKind::kPlus);
      break;
    case SymbolKind::kBar:
      end_alternative();
      current_ = frames_.back().next;
      break;
    case SymbolKind::kWeight:
      weight_ = syntax_.weights[symbol.value];
      break;
    case SymbolKind::kGroupClose:
      open_group(FrameKind::kGroup);
      break;
    case SymbolKind::kOptionalClose:
      open_group(FrameKind::kOptional);
      break;
    case SymbolKind::kGroupOpen:
    case SymbolKind::kOptionalOpen:
      close_group();
      break;
    case SymbolKind::kRuleOpen:
      close_body();
      break;
  }
}

void Compiler::read_reference(const Reference &reference) {
  if (current_.place == kNowhere) {
    end_item();
    return;
  }
  if (components_.of_rule[reference.rule] == components_.of_rule[reference.target]) {
    // The last item of its rule: what follows is what follows the rule, behind the tags that were read.
    const Link next = frames_[recursions_.back()].next;
    const uint32_t entry = entry_in_recursion(reference.target);
    current_ = {current_ == next ? entry : add_place(PlaceKind::kJump, current_.tags, entry), 0};
    end_item();
    return;
  }
  if (!is_called(reference.target)) {
    enter_rule(reference.target, position_);
    return;
  }
  const uint32_t callee = callee_of_rule_[reference.target];
  if (program_.branches[program_.places[program_.callees[callee].entry].value].place == kNowhere) {
    current_ = {};
  } else {
    program_.calls.push_back({callee, current_, 0});
    current_ = {add_place(PlaceKind::kCall, program_.calls.size() - 1, kNowhere), 0};
  }
  end_item();
}

// Copies a rule to before current_.
void Compiler::enter_rule(uint32_t rule, uint32_t resume) {
  if (components_.list[components_.of_rule[rule]].is_recursive) {
    open_recursion(resume);
    entry_in_recursion(rule);
    continue_recursion();
  } else {
    open_body(rule, kNowhere, resume);
  }
}

void Compiler::open_recursion(uint32_t resume) {
  recursions_.push_back(static_cast<uint32_t>(frames_.size()));
  const auto base = static_cast<uint32_t>(entered_.size());
  frames_.push_back({FrameKind::kRecursion, current_, base, kNowhere, resume, base});
}

// The entry of a rule in the innermost recursion.
uint32_t Compiler::entry_in_recursion(uint32_t rule) {
  if (entry_of_rule_[rule] == kNowhere) {
    entry_of_rule_[rule] = add_place(PlaceKind::kAlternatives, add_branches(1), 1);
    entered_.push_back(rule);
  }
  return entry_of_rule_[rule];
}

void Compiler::continue_recursion() {
  Frame &frame = frames_.back();
  if (frame.done < entered_.size()) {
    const uint32_t rule = entered_[frame.done++];
    current_ = frame.next;
    open_body(rule, entry_of_rule_[rule], 0);
    return;
  }
  const Frame closed = frame;
  frames_.pop_back();
  recursions_.pop_back();
  current_ = {entry_of_rule_[entered_[closed.base]], 0};
  for (size_t i = closed.base; i < entered_.size(); ++i) {
    if (closed.next == Link{kEndOfText, 0}) {
      public_entry_[entered_[i]] = entry_of_rule_[entered_[i]];
    }
    entry_of_rule_[entered_[i]] = kNowhere;
  }
  entered_.resize(closed.base);
  if (!frames_.empty()) {
    position_ = closed.resume;
    end_item();
  }
}

void Compiler::open_body(uint32_t rule, uint32_t entry, uint32_t resume) {
  frames_.push_back({FrameKind::kRule, current_, static_cast<uint32_t>(alternatives_.size()), entry, resume, 0});
  position_ = syntax_.rules[rule].end;
}

void Compiler::close_body() {
  end_alternative();
  const Frame closed = frames_.back();
  const Link link = take_alternatives(closed);
  frames_.pop_back();
  if (closed.place != kNowhere) {
    program_.branches[program_.places[closed.place].value] = link;
    continue_recursion();
    return;
  }
  current_ = link;
  if (!frames_.empty()) {
    position_ = closed.resume;
    end_item();
  }
}

void Compiler::open_group(FrameKind kind) {
  frames_.push_back({kind, current_, static_cast<uint32_t>(alternatives_.size()), kNowhere, 0, 0});
}

void Compiler::close_group() {
  end_alternative();
  current_ = take_alternatives(frames_.back());
  frames_.pop_back();
  end_item();
}

void Compiler::end_alternative() {
  alternatives_.push_back({current_, weight_});
  weight_ = kNoWeight;
}

// The entry to the alternatives of a group or rule: a choice among those that can be spoken, the heavier ones first.
Link Compiler::take_alternatives(const Frame &frame) {
  ordered_.clear();
  bool is_weighted = false;
  for (size_t i = alternatives_.size(); i-- > frame.base;) {
    const Alternative &alternative = alternatives_[i];
    is_weighted = is_weighted || alternative.weight != kNoWeight;
    if (alternative.link.place != kNowhere && alternative.weight != 0) {
      ordered_.push_back(alternative);
    }
  }
  alternatives_.resize(frame.base);
  if (is_weighted) {
    std::stable_sort(ordered_.begin(), ordered_.end(),
                     [](const Alternative &a, const Alternative &b) { return a.weight > b.weight; });
  }
  if (frame.kind == FrameKind::kOptional && frame.next.place != kNowhere) {
    ordered_.push_back({frame.next, kNoWeight});
  }
  if (ordered_.size() <= 1) {
    return ordered_.empty() ? Link{} : ordered_.front().link;
  }
  const uint32_t first = add_branches(ordered_.size());
  for (size_t i = 0; i < ordered_.size(); ++i) {
    program_.branches[first + i] = ordered_[i].link;
  }
  return {add_place(PlaceKind::kAlternatives, first, ordered_.size()), 0};
}

void Compiler::open_repeat(FrameKind kind) {
  uint32_t place = kNowhere;
  const Link next = current_;
  if (next.place != kNowhere) {
    place = add_place(PlaceKind::kAlternatives, add_branches(2), 2);
    current_ = {place, 0};
  }
  frames_.push_back({kind, next, 0, place, 0, 0});
}

// An item and what leads up to it is read: the repeats of it are complete.
void Compiler::end_item() {
  while (frames_.back().kind == FrameKind::kStar || frames_.back().kind == FrameKind::kPlus) {
    const Frame repeat = frames_.back();
    frames_.pop_back();
    const bool is_star = repeat.kind == FrameKind::kStar;
    if (repeat.place == kNowhere) {
      continue;
    }
    Place &choice = program_.places[repeat.place];
    Link *branches = &program_.branches[choice.value];
    if (current_.place == kNowhere || current_.place == repeat.place) {
      // A body that can't be spoken, or only by saying nothing: there are no rounds to choose.
      choice.next = 1;
      branches[0] = repeat.next;
      current_ = is_star ? repeat.next : current_;
      continue;
    }
    branches[0] = current_;
    branches[1] = repeat.next;
    current_ = is_star ? Link{repeat.place, 0} : current_;
  }
}

uint32_t Compiler::add_place(PlaceKind kind, size_t value, size_t next) {
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

uint32_t Compiler::add_branches(size_t count) {
  const size_t first = program_.branches.size();
  program_.branches.resize(first + count);
  return static_cast<uint32_t>(first);
}

// The place for a word before `next`; the same one each time.
uint32_t Compiler::word_place(uint32_t word, uint32_t next) {
  if (word_places_ * 2 >= program_.word_slots.size()) {
    grow_word_slots();
  }
  const size_t mask = program_.word_slots.size() - 1;
  size_t slot = program_.word_slot(next, word) & mask;
  for (; program_.word_slots[slot] != 0; slot = (slot + 1) & mask) {
    const uint32_t known = program_.word_slots[slot] - 1;
    if (program_.places[known].value == word && program_.places[known].next == next) {
      return known;
    }
  }
  const uint32_t place = add_place(PlaceKind::kWord, word, next);
  program_.places[next].behind_word = 1;
  program_.word_slots[slot] = place + 1;
  ++word_places_;
  return place;
}

void Compiler::grow_word_slots() {
  const size_t least = std::max<size_t>(16, program_.word_slots.size() * 2);
  const std::vector<uint32_t> old = std::move(program_.word_slots);
  program_.word_slots.assign(least, 0);
  const size_t mask = least - 1;
  for (const uint32_t entry : old) {
    if (entry != 0) {
      const Place &place = program_.places[entry - 1];
      size_t slot = program_.word_slot(place.next, place.value) & mask;
      while (program_.word_slots[slot] != 0) {
        slot = (slot + 1) & mask;
      }
      program_.word_slots[slot] = entry;
    }
  }
}

}  // namespace quillbrook::jsgf
