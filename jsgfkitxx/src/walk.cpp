#include "walk.h"

#include <algorithm>

namespace quillbrook::jsgf {

namespace {

// Steps beyond the ones that each word needs. Only rules that can be empty, doubled again and again, come near.
constexpr uint64_t kBudget = 4'000'000;
constexpr uint64_t kBudgetOfWord = 64;

constexpr size_t kFirstStoreLimit = size_t{1} << 16U;  // words

constexpr uint32_t kNoPosition = UINT32_MAX;

uint64_t mix(uint64_t value) {
  value *= 0x9E3779B97F4A7C15U;
  return (value ^ value >> 29U) * 0xBF58476D1CE4E5B9U;
}

}  // namespace

Walk::Walk(const Program &program, const Chart &chart, Meter &meter)
    : program_(program),
      chart_(chart),
      meter_(meter),
      steps_(counted<Step>(meter)),
      frames_(counted<Frame>(meter)),
      pending_(counted<PendingTags>(meter)),
      store_limit_(kFirstStoreLimit),
      builder_(meter),
      choices_(counted<Choice>(meter)),
      marks_(counted<Mark>(meter)),
      budget_(kBudget + kBudgetOfWord * chart.text_length()) {}

Steps Walk::derive(Link entry, uint32_t item) {
  steps_.reserve(chart_.text_length() + 8);
  state_ = {item, 0, 0, kNoEnds};
  stores_[store_].emplace(meter_);
  give(entry.tags);
  bool goes_on = true;
  bool is_complete = false;
  while (goes_on && !is_complete && budget_-- > 0) {
    const Place &place = place_of(state_.item);
    meter_.work();
    switch (static_cast<PlaceKind>(place.kind)) {
      case PlaceKind::kWord:
        consume_word();
        break;
      case PlaceKind::kAlternatives:
        goes_on = choose();
        break;
      case PlaceKind::kEntry:
        give(program_.branches[place.value].tags);
        follow();
        break;
      case PlaceKind::kJump:
        pending_.push_back({place.value, state_.pending});
        state_.pending = static_cast<uint32_t>(pending_.size());
        follow();
        break;
      case PlaceKind::kCall:
        call();
        break;
      case PlaceKind::kEnd:
        is_complete = end();
        break;
    }
  }
  if (!is_complete) {
    steps_.assign(chart_.text_length(), kWordStep);
  }
  return std::move(steps_);
}

void Walk::give(uint32_t tags) {
  for (; tags != 0; tags = program_.tag_cells[tags].next) {
    steps_.push_back(program_.tag_cells[tags].tag);
  }
}

void Walk::consume_word() {
  steps_.push_back(kWordStep);
  follow();
  ++position_;
  mark_count_ = 0;
  choices_.clear();
  if (stores_[store_]->words_kept() > store_limit_) {
    drop_unused_sets();
  }
}

// Drops the sets that nothing leads back to. There must be no choices.
void Walk::drop_unused_sets() {
  EndSetStore &kept = stores_[1 - store_].emplace(meter_);
  state_.goals = kept.copy(state_.goals);
  for (uint32_t frame = state_.frame; frame != 0; frame = frames_[frame - 1].caller.frame) {
    frames_[frame - 1].caller.goals = kept.copy(frames_[frame - 1].caller.goals);
  }
  stores_[store_].reset();
  store_ = 1 - store_;
  store_limit_ = std::max(kFirstStoreLimit, 2 * kept.words_kept());
}

// Takes the first branch that leads to a goal.
bool Walk::choose() {
  const Way way = first_way();
  if (program_.has_empty_cycles) {
    if (!mark(identity_of(state_.frame), item().place)) {
      return step_back();
    }
    choices_.push_back({state_, way.branch + 1, steps_.size()});
  }
  take(way.branch, way.target);
  return true;
}

Way Walk::first_way() const {
  return item().ends == kTextEnd ? Way{item().branch, item().target, 0} : lowest_way(state_, 0);
}

// The way of the lowest branch of a callee's item, from the given one on, that leads to a goal; its target is 0 when
// there is none.
Way Walk::lowest_way(const State &state, uint32_t from_branch) const {
  Way lowest{UINT32_MAX, 0, 0};
  for (uint32_t number = chart_.item(state.item).target; number != 0;) {
    meter_.work();
    const Way &way = chart_.way(number);
    if (way.branch >= from_branch && way.branch < lowest.branch &&
        have_common_end(state.goals, chart_.ends_of(chart_.item(way.target)))) {
      lowest = way;
    }
    number = way.next;
  }
  return lowest;
}

void Walk::take(uint32_t branch, uint32_t target) {
  const uint32_t first_branch = place_of(state_.item).value;
  state_.item = target;
  narrow_goals();
  give(program_.branches[first_branch + branch].tags);
}

void Walk::narrow_goals() {
  if (item().ends != kTextEnd) {
    state_.goals = stores_[store_]->intersect(state_.goals, chart_.ends_of(item()));
  }
}

// The next way to try at a choice; its target is 0 when there is none.
Way Walk::next_way(const Choice &choice) {
  if (chart_.item(choice.state.item).ends != kTextEnd) {
    return lowest_way(choice.state, choice.next_branch);
  }
  if (!table_ || table_position_ != position_) {
    if (!table_) {
      table_.emplace(meter_, chart_.items());
    }
    chart_.fill_table(position_, *table_);
    table_position_ = position_;
  }
  const Place &place = place_of(choice.state.item);
  for (uint32_t branch = choice.next_branch; branch < place.next; ++branch) {
    meter_.work();
    const uint32_t target = table_->find(program_.branches[place.value + branch].place);
    if (target != 0) {
      return {branch, target, 0};
    }
  }
  return {0, 0, 0};
}

// Goes back to the last choice behind the last word that has another branch that leads to a goal, and takes that.
bool Walk::step_back() {
  while (!choices_.empty() && budget_ > 0) {
    --budget_;
    Choice &choice = choices_.back();
    const Way way = next_way(choice);
    if (way.target != 0) {
      choice.next_branch = way.branch + 1;
      steps_.resize(choice.steps);
      state_ = choice.state;
      take(way.branch, way.target);
      return true;
    }
    choices_.pop_back();
  }
  return false;
}

// False when the place was marked since the last word.
bool Walk::mark(uint64_t frame, uint32_t place) {
  if ((mark_count_ + 1) * 2 > marks_.size()) {
    grow_marks();
  }
  const size_t mask = marks_.size() - 1;
  for (size_t slot = mix(frame + place) & mask;; slot = (slot + 1) & mask) {
    if (marks_[slot].words_before != position_) {
      marks_[slot] = {frame, place, position_};
      ++mark_count_;
      return true;
    }
    if (marks_[slot].frame == frame && marks_[slot].place == place) {
      return false;
    }
  }
}

void Walk::grow_marks() {
  auto old = counted(meter_, std::max<size_t>(64, marks_.size() * 2), Mark{0, 0, kNoPosition});
  old.swap(marks_);
  mark_count_ = 0;
  for (const Mark &present : old) {
    if (present.words_before == position_) {
      mark(present.frame, present.place);
    }
  }
}

void Walk::call() {
  const uint32_t place = item().place;
  const Call &made = program_.calls[program_.places[place].value];
  const Callee &callee = program_.callees[made.callee];
  const uint32_t entry = item().target;
  // The callee may end wherever the caller can go on.
  builder_.clear();
  uint32_t back = 0;
  chart_.for_each_return(made, chart_.ends_of(chart_.item(entry)), position_, [&](const Return &found) {
    const Item &there = chart_.item(found.item);
    if (there.ends == kTextEnd || have_common_end(state_.goals, chart_.ends_of(there))) {
      back = back == 0 ? found.item : back;
      builder_.add({found.position, found.position, nullptr});
    }
    return true;
  });
  const bool ends_here = builder_.set().high == position_;
  if (ends_here && !callee.empty_has_tags) {
    come_back(made, back);
    return;
  }
  frames_.push_back({state_, mix(identity_of(state_.frame) + place)});
  state_ = {entry, static_cast<uint32_t>(frames_.size()), 0, stores_[store_]->copy(builder_.set())};
}

// Leaves the frame. True at the end of the rule that is matched.
bool Walk::end() {
  for (uint32_t pending = state_.pending; pending != 0; pending = pending_[pending - 1].next) {
    give(pending_[pending - 1].tags);
  }
  if (state_.frame == 0) {
    return true;
  }
  state_ = frames_[state_.frame - 1].caller;
  const Call &made = program_.calls[place_of(state_.item).value];
  uint32_t back = 0;
  chart_.for_each_return(made, {position_, position_, nullptr}, position_, [&](const Return &found) {
    back = found.item;
    return false;
  });
  come_back(made, back);
  return false;
}

// Goes on behind a call. Of the goals those stay that can be reached from there.
void Walk::come_back(const Call &call, uint32_t item) {
  give(call.back.tags);
  state_.item = item;
  narrow_goals();
}

}  // namespace quillbrook::jsgf
