#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "chart.h"
#include "program.h"

namespace quillbrook::jsgf {

// A step of a derivation: a tag's number in Program::tags, or kWordStep.
using Step = uint32_t;
constexpr Step kWordStep = UINT32_MAX;

// Reads the first derivation, in written order, from a chart: at each decision it takes the first branch from which
// the chart reaches the goal.
//
// Within a callee several goals can still be possible (ends that the callers can go on from); all are kept until a
// branch rules some out, so that the callee's own order decides as if it were copied to where it's called.
//
// Between two words no place of the same call is passed twice, which keeps repeats of nothing from going on for ever.
// Only there can a first branch turn out wrong; the walk then steps back to the last choice behind the last word.
class Walk {
public:
  // Both must outlive the walk.
  Walk(const Program &program, const Chart &chart);

  // The derivation from `entry`, whose item at the start of the text is `item`. A derivation of too many steps comes
  // without its tags.
  std::vector<Step> derive(Link entry, uint32_t item);

private:
  // Items of one place and position under different goals: one of the chart, or some in sets_.
  struct ItemSet {
    uint32_t first;  // the item if count is 1, else an index of sets_
    uint32_t count;
  };

  struct State {
    ItemSet items;
    uint32_t frame;
    uint32_t pending;  // first in pending_; 0 for none
  };

  // Numbered from 1; frame 0 is the rule that is matched.
  struct Frame {
    State caller;       // at the call
    uint64_t identity;  // equal for the same calls within the same calls
  };

  // Tags that are given when the frame ends. Numbered from 1.
  struct PendingTags {
    uint32_t tags;
    uint32_t next;
  };

  struct Choice {
    State state;
    uint32_t next_branch;
    size_t steps;
  };

  struct Mark {
    uint64_t frame;
    uint32_t place;
    uint32_t words_before;
  };

  uint32_t item_of(ItemSet set, uint32_t index) const { return set.count == 1 ? set.first : sets_[set.first + index]; }
  uint64_t identity_of(uint32_t frame) const { return frame == 0 ? 0 : frames_[frame - 1].identity; }
  const Place &place_of(ItemSet set) const { return program_.places[chart_.item(item_of(set, 0)).place]; }
  template <typename NextOf>
  ItemSet collect(ItemSet from, const NextOf &next_of);
  void follow();
  void consume_word();
  bool choose();
  bool step_back();
  bool mark(uint64_t frame, uint32_t place);
  void grow_marks();
  void call();
  bool can_only_be_empty(const Callee &callee) const;
  bool end();
  void give(uint32_t tags);
  void compact_sets();

  const Program &program_;
  const Chart &chart_;
  State state_{};
  uint32_t position_ = 0;
  std::vector<Step> steps_;
  std::vector<Frame> frames_;
  std::vector<PendingTags> pending_;
  std::vector<uint32_t> sets_;
  size_t sets_limit_;
  std::vector<Choice> choices_;
  std::vector<Mark> marks_;  // open addressing, a power of two; those of other positions are empty
  size_t mark_count_ = 0;
  std::optional<ItemTable> table_;  // of the items of tablePosition_
  uint32_t table_position_ = 0;
  uint64_t budget_;
};

}  // namespace quillbrook::jsgf
