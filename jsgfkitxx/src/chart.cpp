#include "chart.h"

#include <algorithm>
#include <new>

namespace quillbrook::jsgf {

namespace {

// The items of a match may take 1 GiB. Thousands of rules that are all possible at each of thousands of words come
// here; without a limit they'd take the memory of the process that matches.
constexpr size_t kMaxItems = size_t{1} << 26U;

}  // namespace

size_t ItemTable::slot_of(uint32_t place, uint32_t goal) const {
  const size_t mask = slots_.size() - 1;
  const uint64_t key = (static_cast<uint64_t>(goal) << 32U | place) * 0x9E3779B97F4A7C15U;
  size_t slot = static_cast<size_t>(key >> 32U) & mask;
  while (slots_[slot] >= first_ && (items_[slots_[slot]].place != place || items_[slots_[slot]].goal != goal)) {
    slot = (slot + 1) & mask;
  }
  return slot;
}

uint32_t ItemTable::find(uint32_t place, uint32_t goal) const {
  const uint32_t item = slots_[slot_of(place, goal)];
  return item >= first_ ? item : 0;
}

uint32_t ItemTable::find_or_add(uint32_t place, uint32_t goal, uint32_t item) {
  if ((count_ + 1) * 2 > slots_.size()) {
    grow();
  }
  const size_t slot = slot_of(place, goal);
  if (slots_[slot] >= first_) {
    return slots_[slot];
  }
  slots_[slot] = item;
  ++count_;
  return 0;
}

void ItemTable::grow() {
  std::vector<uint32_t> old(slots_.size() * 2, 0);
  old.swap(slots_);
  for (const uint32_t item : old) {
    if (item >= first_) {
      slots_[slot_of(items_[item].place, items_[item].goal)] = item;
    }
  }
}

void ItemTable::restart_at(size_t first) {
  std::fill(slots_.begin(), slots_.end(), 0);
  start_at(first);
}

Chart::Chart(const Program &program, const std::vector<uint32_t> &text)
    : program_(program), text_(text), position_start_(text.size() + 1), table_(items_) {
  items_.reserve(8 * (text.size() + 1));
  items_.push_back({kNowhere, 0, 0, 0});
  goals_.push_back({0, text_length(), 0});
  if (!program.calls.empty()) {
    joins_.push_back({});
    waiters_.push_back({});
    goal_of_component_.assign(program.ends.size(), 0);
  }
  size_t word_items_end = 0;
  start_position(text_length());
  items_.push_back({program.ends[0], 0, 0, 0});
  close_position(text_length());
  for (uint32_t position = text_length(); position-- > 0;) {
    const uint32_t from = position_start_[position + 1];
    const auto to = static_cast<uint32_t>(items_.size());
    start_position(position);
    for (uint32_t behind = from; behind < to; ++behind) {
      const Item item = items_[behind];
      if (program.places[item.place].behind_word == 0) {
        continue;
      }
      const uint32_t place = program.word_before(item.place, text[position]);
      if (place != kNowhere) {
        items_.push_back({place, item.goal, behind, 0});
      }
    }
    if (items_.size() == to) {
      return;
    }
    word_items_end = items_.size();
    close_position(position);
  }
  // Other items are in the table already.
  for (size_t item = position_start_[0]; item < word_items_end; ++item) {
    table_.find_or_add(items_[item].place, items_[item].goal, static_cast<uint32_t>(item));
  }
  reaches_start_ = true;
}

void Chart::start_position(uint32_t position) {
  position_start_[position] = static_cast<uint32_t>(items_.size());
  table_.start_at(items_.size());
}

void Chart::fill_table(uint32_t position, ItemTable &table) const {
  const size_t end = position == 0 ? items_.size() : position_start_[position - 1];
  table.restart_at(position_start_[position]);
  for (size_t item = position_start_[position]; item < end; ++item) {
    table.find_or_add(items_[item].place, items_[item].goal, static_cast<uint32_t>(item));
  }
}

// Adds all items that reach one of the position's items without a word.
void Chart::close_position(uint32_t position) {
  if (items_.size() > kMaxItems) {
    throw std::bad_alloc();
  }
  for (uint32_t index = position_start_[position]; index < items_.size(); ++index) {
    const uint32_t place = items_[index].place;
    const uint32_t goal = items_[index].goal;
    if (static_cast<PlaceKind>(program_.places[place].kind) == PlaceKind::kEntry) {
      complete(index);
    }
    for (uint32_t i = program_.edges_begin[place]; i < program_.edges_begin[place + 1]; ++i) {
      const Edge edge = program_.edges[i];
      if (static_cast<PlaceKind>(program_.places[edge.source].kind) == PlaceKind::kCall) {
        await(edge.source, index, position);
      } else {
        add(edge.source, goal, index, edge.branch);
      }
    }
  }
}

void Chart::add(uint32_t place, uint32_t goal, uint32_t target, uint32_t branch) {
  const uint32_t known = table_.find_or_add(place, goal, static_cast<uint32_t>(items_.size()));
  if (known == 0) {
    items_.push_back({place, goal, target, branch});
  } else if (branch < items_[known].branch) {
    items_[known].branch = branch;
    items_[known].target = target;
  }
}

// The place behind a call was reached: its callee has to end here.
void Chart::await(uint32_t call, uint32_t back, uint32_t position) {
  const Callee &callee = program_.callees[program_.calls[program_.places[call].value].callee];
  uint32_t goal = goal_of_component_[callee.component];
  if (goal == 0 || goals_[goal].end != position) {
    goal = static_cast<uint32_t>(goals_.size());
    goal_of_component_[callee.component] = goal;
    goals_.push_back({callee.component, position, 0});
    items_.push_back({program_.ends[callee.component], goal, 0, 0});
  }
  waiters_.push_back({call, back, goals_[goal].waiters});
  goals_[goal].waiters = static_cast<uint32_t>(waiters_.size() - 1);
  // An entry that was reached before is not completed again. (One that's still to be completed gives this join twice,
  // which does no harm.)
  const uint32_t entry = callee.can_be_empty ? table_.find(callee.entry, goal) : 0;
  if (entry != 0) {
    add_join(call, entry, back);
  }
}

// A callee's entry was reached: calls that wait for its goal can be made here.
void Chart::complete(uint32_t entry) {
  const uint32_t callee = program_.places[items_[entry].place].next;
  for (uint32_t waiter = goals_[items_[entry].goal].waiters; waiter != 0; waiter = waiters_[waiter].next) {
    const uint32_t call = waiters_[waiter].call;
    if (program_.calls[program_.places[call].value].callee == callee) {
      add_join(call, entry, waiters_[waiter].back);
    }
  }
}

void Chart::add_join(uint32_t call, uint32_t entry, uint32_t back) {
  const uint32_t goal = items_[back].goal;
  uint32_t item = table_.find_or_add(call, goal, static_cast<uint32_t>(items_.size()));
  if (item == 0) {
    item = static_cast<uint32_t>(items_.size());
    items_.push_back({call, goal, 0, 0});
  }
  joins_.push_back({entry, back, items_[item].target});
  items_[item].target = static_cast<uint32_t>(joins_.size() - 1);
}

}  // namespace quillbrook::jsgf
