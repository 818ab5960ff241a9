#include "walk.h"

#include <algorithm>

namespace quillbrook::jsgf {

namespace {

// Steps beyond the ones that each word needs. Only rules that can be empty, doubled again and again, come near.
constexpr uint64_t kBudget = 4'000'000;
constexpr uint64_t kBudgetOfWord = 64;

constexpr size_t kFirstSetsLimit = size_t{1} << 16U;

constexpr uint32_t kNoPosition = UINT32_MAX;

uint64_t mix(uint64_t value) {
  value *= 0x9E3779B97F4A7C15U;
  return (value ^ value >> 29U) * 0xBF58476D1CE4E5B9U;
}

}  // namespace

Walk::Walk(const Program &program, const Chart &chart)
    : program_(program),
      chart_(chart),
      sets_limit_(kFirstSetsLimit),
      budget_(kBudget + kBudgetOfWord * chart.text_length()) {}

std::vector<Step> Walk::derive(Link entry, uint32_t item) {
  steps_.reserve(chart_.text_length() + 8);
  state_ = {{item, 1}, 0, 0};
  give(entry.tags);
  bool goes_on = true;
  bool is_complete = false;
  while (goes_on && !is_complete && budget_-- > 0) {
    const Place &place = place_of(state_.items);
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

// The items that `nextOf` gives for the set's items; 0 stands for none.
template <typename NextOf>
Walk::ItemSet Walk::collect(ItemSet from, const NextOf &next_of) {
  if (from.count == 1) {
    const uint32_t item = next_of(from.first);
    return {item, item == 0 ? 0U : 1U};
  }
  const auto first = static_cast<uint32_t>(sets_.size());
  for (uint32_t i = 0; i < from.count; ++i) {
    const uint32_t item = next_of(sets_[from.first + i]);
    if (item != 0) {
      sets_.push_back(item);
    }
  }
  const auto count = static_cast<uint32_t>(sets_.size() - first);
  if (count == 1) {
    const uint32_t item = sets_.back();
    sets_.pop_back();
    return {item, 1};
  }
  return {first, count};
}

void Walk::follow() {
  state_.items = collect(state_.items, [&](uint32_t item) { return chart_.item(item).target; });
}

void Walk::consume_word() {
  steps_.push_back(kWordStep);
  follow();
  ++position_;
  mark_count_ = 0;
  choices_.clear();
  if (sets_.size() > sets_limit_) {
    compact_sets();
  }
}

// Drops the sets that nothing leads back to. There must be no choices.
void Walk::compact_sets() {
  std::vector<uint32_t> kept;
  const auto keep = [&](ItemSet &set) {
    if (set.count > 1) {
      const auto from = sets_.begin() + set.first;
      set.first = static_cast<uint32_t>(kept.size());
      kept.insert(kept.end(), from, from + set.count);
    }
  };
  keep(state_.items);
  for (uint32_t frame = state_.frame; frame != 0; frame = frames_[frame - 1].caller.frame) {
    keep(frames_[frame - 1].caller.items);
  }
  sets_ = std::move(kept);
  sets_limit_ = std::max(kFirstSetsLimit, 2 * sets_.size());
}

// Takes the first branch that leads to a goal.
bool Walk::choose() {
  uint32_t best = UINT32_MAX;
  for (uint32_t i = 0; i < state_.items.count; ++i) {
    best = std::min(best, chart_.item(item_of(state_.items, i)).branch);
  }
  if (program_.has_empty_cycles) {
    if (!mark(identity_of(state_.frame), chart_.item(item_of(state_.items, 0)).place)) {
      return step_back();
    }
    choices_.push_back({state_, best + 1, steps_.size()});
  }
  const Place &place = place_of(state_.items);
  state_.items = collect(
      state_.items, [&](uint32_t item) { return chart_.item(item).branch == best ? chart_.item(item).target : 0; });
  give(program_.branches[place.value + best].tags);
  return true;
}

// Goes back to the last choice behind the last word that has another branch that leads to a goal, and takes that.
bool Walk::step_back() {
  if (!table_ || table_position_ != position_) {
    if (!table_) {
      table_.emplace(chart_.items());
    }
    chart_.fill_table(position_, *table_);
    table_position_ = position_;
  }
  while (!choices_.empty()) {
    Choice &choice = choices_.back();
    const Place &place = place_of(choice.state.items);
    while (choice.next_branch < place.next && budget_ > 0) {
      --budget_;
      const Link branch = program_.branches[place.value + choice.next_branch++];
      const ItemSet items = collect(choice.state.items,
                                    [&](uint32_t item) { return table_->find(branch.place, chart_.item(item).goal); });
      if (items.count != 0) {
        steps_.resize(choice.steps);
        state_ = choice.state;
        state_.items = items;
        give(branch.tags);
        return true;
      }
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
  std::vector<Mark> old(std::max<size_t>(64, marks_.size() * 2), Mark{0, 0, kNoPosition});
  old.swap(marks_);
  mark_count_ = 0;
  for (const Mark &present : old) {
    if (present.words_before == position_) {
      mark(present.frame, present.place);
    }
  }
}

bool Walk::can_only_be_empty(const Callee &callee) const {
  if (!callee.can_be_empty) {
    return false;
  }
  for (uint32_t i = 0; i < state_.items.count; ++i) {
    const Item &item = chart_.item(item_of(state_.items, i));
    for (uint32_t join = item.target; join != 0; join = chart_.join(join).next) {
      if (chart_.goal_end(chart_.item(chart_.join(join).entry).goal) != position_) {
        return false;
      }
    }
  }
  return true;
}

void Walk::call() {
  const uint32_t place = chart_.item(item_of(state_.items, 0)).place;
  const Call &made = program_.calls[program_.places[place].value];
  const Callee &callee = program_.callees[made.callee];
  if (!callee.empty_has_tags && can_only_be_empty(callee)) {
    give(made.back.tags);
    state_.items = collect(state_.items, [&](uint32_t item) { return chart_.join(chart_.item(item).target).back; });
    return;
  }
  const auto first = static_cast<uint32_t>(sets_.size());
  for (uint32_t i = 0; i < state_.items.count; ++i) {
    const Item &item = chart_.item(item_of(state_.items, i));
    for (uint32_t join = item.target; join != 0; join = chart_.join(join).next) {
      sets_.push_back(chart_.join(join).entry);
    }
  }
  std::sort(sets_.begin() + first, sets_.end());
  sets_.erase(std::unique(sets_.begin() + first, sets_.end()), sets_.end());
  ItemSet entries{first, static_cast<uint32_t>(sets_.size()) - first};
  if (entries.count == 1) {
    entries.first = sets_.back();
    sets_.pop_back();
  }
  frames_.push_back({state_, mix(identity_of(state_.frame) + place)});
  state_ = {entries, static_cast<uint32_t>(frames_.size()), 0};
}

// Leaves the frame. True at the end of the rule that is matched.
bool Walk::end() {
  for (uint32_t pending = state_.pending; pending != 0; pending = pending_[pending - 1].next) {
    give(pending_[pending - 1].tags);
  }
  if (state_.frame == 0) {
    return true;
  }
  // One end, one goal: only the callers' items that can go on from this position stay.
  const uint32_t goal = chart_.item(item_of(state_.items, 0)).goal;
  state_ = frames_[state_.frame - 1].caller;
  give(program_.calls[place_of(state_.items).value].back.tags);
  state_.items = collect(state_.items, [&](uint32_t item) {
    uint32_t join = chart_.item(item).target;
    while (join != 0 && chart_.item(chart_.join(join).entry).goal != goal) {
      join = chart_.join(join).next;
    }
    return join == 0 ? 0U : chart_.join(join).back;
  });
  return false;
}

}  // namespace quillbrook::jsgf
