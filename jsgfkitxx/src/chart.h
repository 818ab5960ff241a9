#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "program.h"

namespace quillbrook::jsgf {

// For each position of a text, the places from which the rest of the text can be spoken. Filled from the last position
// to the first, so that only places are met that lead to the end; a walk from the front then needs no looking ahead.
//
// With calls, "the rest" is the rest of the callee. A goal is a component of callees and the position where it has to
// end; an item is a place together with a goal. (The idea is that of chart parsing, J. Earley 1970, run backwards over
// an automaton with calls, W. Woods 1970.)

struct Item {
  uint32_t place;
  uint32_t goal;    // 0: the end of the text
  uint32_t target;  // the item that the place's way leads to; kAlternatives: its best way's; kCall: first in joins
  uint32_t branch;  // kAlternatives: the first branch that leads to the goal
};

// A way through a call: the item of the callee's entry, and the item behind the call.
struct Join {
  uint32_t entry;
  uint32_t back;
  uint32_t next;  // of the same call item; 0 at the end
};

// Finds items by place and goal within one position.
class ItemTable {
public:
  explicit ItemTable(const std::vector<Item> &items) : items_(items), slots_(kFirstSize, 0) {}

  // Forgets all; only items from `first` on will be added, each above those of all earlier positions ...
  void start_at(size_t first) { first_ = first, count_ = 0; }
  // ... or in any order.
  void restart_at(size_t first);

  // 0 when there is none.
  uint32_t find(uint32_t place, uint32_t goal) const;
  // Adds `item` for the place and the goal, whose fields needn't be set yet, unless there is one; gives that or 0.
  uint32_t find_or_add(uint32_t place, uint32_t goal, uint32_t item);

private:
  static constexpr size_t kFirstSize = 64;

  size_t slot_of(uint32_t place, uint32_t goal) const;
  void grow();

  const std::vector<Item> &items_;
  std::vector<uint32_t> slots_;  // open addressing, a power of two; below first_ is empty
  size_t first_ = 1;
  size_t count_ = 0;
};

class Chart {
public:
  // The text as numbers of the program's vocabulary. Both must outlive the chart.
  Chart(const Program &program, const std::vector<uint32_t> &text);
  Chart(const Chart &) = delete;
  Chart &operator=(const Chart &) = delete;

  // The item of a place at the start of the text with the whole text as its goal; 0 when there is none.
  uint32_t item_at_start(uint32_t place) const { return reaches_start_ ? table_.find(place, 0) : 0; }

  const Item &item(uint32_t index) const { return items_[index]; }
  const Join &join(uint32_t index) const { return joins_[index]; }
  uint32_t goal_end(uint32_t goal) const { return goals_[goal].end; }
  uint32_t text_length() const { return static_cast<uint32_t>(text_.size()); }

  const std::vector<Item> &items() const { return items_; }

  // Makes a table of all items of one position.
  void fill_table(uint32_t position, ItemTable &table) const;

private:
  struct Goal {
    uint32_t component;
    uint32_t end;
    uint32_t waiters;  // first in waiters_; 0 for none
  };

  // A call that goes on at `back` once its callee has reached the goal.
  struct Waiter {
    uint32_t call;
    uint32_t back;
    uint32_t next;
  };

  void start_position(uint32_t position);
  void close_position(uint32_t position);
  void add(uint32_t place, uint32_t goal, uint32_t target, uint32_t branch);
  void await(uint32_t call, uint32_t back, uint32_t position);
  void complete(uint32_t entry);
  void add_join(uint32_t call, uint32_t entry, uint32_t back);

  const Program &program_;
  const std::vector<uint32_t> &text_;
  std::vector<Item> items_;  // item 0 is none
  std::vector<Join> joins_;
  std::vector<Goal> goals_;
  std::vector<Waiter> waiters_;
  std::vector<uint32_t> goal_of_component_;  // the newest
  std::vector<uint32_t> position_start_;
  ItemTable table_;
  bool reaches_start_ = false;
};

}  // namespace quillbrook::jsgf
