#pragma once

#include <cstddef>
#include <cstdint>

#include "end_set.h"
#include "meter.h"
#include "program.h"

namespace quillbrook::jsgf {

// For each position of a text, the places from which the rest of the text can be spoken. Filled from the last position
// to the first, so that only places are met that lead to the end; a walk from the front then needs no looking ahead.
//
// With calls, "the rest" is the rest of the callee: an item is a place together with all positions at which its callee
// can end. How the parts of a call fit together isn't kept, since there can be as many ways as the cube of the words;
// the walk finds those that it needs again. (The idea is that of chart parsing, J. Earley 1970, run backwards over an
// automaton with calls, W. Woods 1970.)
struct Item {
  Item(uint32_t at, uint32_t ends_reached, uint32_t way = 0, uint32_t best_branch = 0)
      : place(at), target(way), branch(best_branch), ends(ends_reached), is_expanded(0), is_waiting(0) {}

  uint32_t place;
  uint32_t target;  // the item that the place's way leads to; kCall: the callee's entry; kAlternatives: its best way's,
                    // but within callees, where the best depends on the goal, the first of its ways
  uint32_t branch;  // kAlternatives outside of callees: the first branch that leads to the end
  uint32_t ends : 30;        // number of a set; kTextEnd outside of callees
  uint32_t is_expanded : 1;  // within callees: the items that lead to this one were looked for
  uint32_t is_waiting : 1;   // ... or are about to be
};

constexpr uint32_t kTextEnd = 0;

// A branch of an item that leads to some of its ends. Numbered from 1.
struct Way {
  uint32_t branch;
  uint32_t target;
  uint32_t next;  // of the same item; 0 at the end
};

// The place behind a call, reached at a position.
struct Return {
  uint32_t position;
  uint32_t item;
};

// Finds items by place within one position.
class ItemTable {
public:
  ItemTable(Meter &meter, const CountedVector<Item> &items) : items_(items), slots_(counted(meter, kFirstSize, 0U)) {}

  // Forgets all; only items from `first` on will be added, each above those of all earlier positions ...
  void start_at(size_t first) { first_ = first, count_ = 0; }
  // ... or in any order.
  void restart_at(size_t first);

  // 0 when there is none.
  uint32_t find(uint32_t place) const;
  // Adds `item` for the place, whose fields needn't be set yet, unless there is one; gives that or 0.
  uint32_t find_or_add(uint32_t place, uint32_t item);

private:
  static constexpr size_t kFirstSize = 64;

  size_t slot_of(uint32_t place) const;
  void grow();

  const CountedVector<Item> &items_;
  CountedVector<uint32_t> slots_;  // open addressing, a power of two; below first_ is empty
  size_t first_ = 1;
  size_t count_ = 0;
};

// What may stand at the end of a text that isn't complete. The last word of the text is not looked at.
struct OpenEnd {
  const PrefixIndex &index;
  PlaceRange last_words;  // where the last word stands, more words behind it
  PlaceRange longer;      // where words stand that the last word is a part of, with or without more words behind them
};

class Chart {
public:
  // The text as numbers of the program's vocabulary. All must outlive the chart.
  Chart(const Program &program, const CountedVector<uint32_t> &text, Meter &meter);

  // For a text of which at least the end of the last word, or another word, is still to come: whether an item is there
  // at its start is all that can be asked. A callee that ends behind the text ends at the position behind the last
  // one, which has all places. So has the last one, and none of the two is filled.
  Chart(const Program &program, const CountedVector<uint32_t> &text, const OpenEnd &open_end, Meter &meter);
  Chart(const Chart &) = delete;
  Chart &operator=(const Chart &) = delete;

  // The item of a place at the start of the text; 0 when there is none.
  uint32_t item_at_start(uint32_t place) const { return reaches_start_ ? table_.find(place) : 0; }

  const Item &item(uint32_t index) const { return items_[index]; }
  // Within callees only.
  const EndSet &ends_of(const Item &item) const { return sets_[item.ends - 1]; }
  const Way &way(uint32_t number) const { return ways_[number - 1]; }
  uint32_t text_length() const { return static_cast<uint32_t>(text_.size()); }

  // For a table of all items of one position.
  const CountedVector<Item> &items() const { return items_; }
  void fill_table(uint32_t position, ItemTable &table) const;

  // Calls `visit(return)` for each position of `ends`, from the lowest on that is `from` or more, where the place
  // behind the call was reached, until it gives false.
  template <typename Visit>
  void for_each_return(const Call &call, const EndSet &ends, uint32_t from, const Visit &visit) const;

private:
  // A call whose place behind it was reached somewhere.
  struct OpenCall {
    uint32_t place;
    uint32_t next;  // of the same callee; 0 at the end
  };

  Chart(const Program &program, const CountedVector<uint32_t> &text, const OpenEnd *open_end, Meter &meter);
  void fill();
  void add_words(uint32_t from, uint32_t to);
  void add_last_words();
  uint32_t ends_of_open(uint32_t place, bool is_behind_text) const;
  void start_position(uint32_t position);
  void close_position();
  void expand_waiting();
  void expand_outside(uint32_t index);
  void expand(uint32_t index);
  bool leads_here(uint32_t source, uint32_t index, bool is_first);
  uint32_t add(uint32_t place, uint32_t ends);
  void make_wait(uint32_t index);
  void unite_ends(uint32_t index, uint32_t ends);
  void await(uint32_t call, uint32_t back);
  void complete(uint32_t entry);
  void complete_call(uint32_t place, const EndSet &ends);
  void end_callees();
  uint32_t keep(const EndSet &set);
  const CountedVector<Return> &returns_of(const Call &call) const {
    return returns_[returns_number_[call.back_number]];
  }

  const Program &program_;
  const CountedVector<uint32_t> &text_;
  Meter &meter_;
  CountedVector<Item> items_;  // item 0 is none
  CountedVector<Way> ways_;
  CountedVector<EndSet> sets_;  // numbered from 1
  EndSetStore store_;
  EndSetBuilder builder_;
  CountedVector<uint64_t> waiting_;  // a heap: items of this position by rank
  CountedVector<OpenCall> open_calls_;
  CountedVector<uint32_t> open_calls_of_callee_;  // the first; 0 for none
  CountedVector<uint32_t> returns_number_;        // by Call::back_number: index in returns_, 0 for none
  CountedVector<CountedVector<Return>> returns_;  // descending positions
  CountedVector<uint32_t> ended_;                 // components that have to end at this position ...
  CountedVector<uint32_t> ended_at_;              // ... and, by component, the position where it last had to
  CountedVector<uint32_t> position_start_;        // the first item of each
  const OpenEnd *open_end_;                       // null for a whole text
  ItemTable table_;
  uint32_t position_;
  bool ends_callees_ = false;  // the callees that end at this position are being added
  bool reaches_start_ = false;
};

template <typename Visit>
void Chart::for_each_return(const Call &call, const EndSet &ends, uint32_t from, const Visit &visit) const {
  const CountedVector<Return> &all = returns_of(call);
  // Returns up to `left` are still to be visited, the lowest position last.
  const auto first_from = [&](size_t left, uint32_t position) {
    size_t low = 0;
    while (low < left) {
      const size_t middle = (low + left) / 2;
      if (all[middle].position < position) {
        left = middle;
      } else {
        low = middle + 1;
      }
    }
    return low;
  };
  size_t left = all.size();
  for (uint32_t end = next_end(ends, from); end != kNoEnd;) {
    meter_.work();
    if (left > 0 && all[left - 1].position < end) {
      left = first_from(left, end);
    }
    if (left == 0) {
      return;
    }
    const Return &here = all[left - 1];
    if (here.position != end) {
      end = next_end(ends, here.position);
    } else if (visit(here)) {
      --left;
      end = next_end(ends, end + 1);
    } else {
      return;
    }
  }
}

}  // namespace quillbrook::jsgf
