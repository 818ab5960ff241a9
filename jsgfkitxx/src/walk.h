#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "chart.h"
#include "end_set.h"
#include "meter.h"
#include "program.h"

namespace quillbrook::jsgf {

// A step of a derivation: a tag's number in Program::tags, or kWordStep.
using Step = uint32_t;
constexpr Step kWordStep = UINT32_MAX;

using Steps = CountedVector<Step>;

// Reads the first derivation, in written order, from a chart: at each decision it takes the first branch from which
// the chart reaches the goal.
//
// Within a callee several ends can still be goals (those that the callers can go on from); all are kept until a
// branch rules some out, so that the callee's own order decides as if it were copied to where it's called.
//
// Between two words no place of the same call is passed twice, which keeps repeats of nothing from going on for ever.
// Only there can a first branch turn out wrong; the walk then steps back to the last choice behind the last word.
class Walk {
public:
  // All must outlive the walk.
  Walk(const Program &program, const Chart &chart, Meter &meter);

  // The derivation from `entry`, whose item at the start of the text is `item`. A derivation of too many steps comes
  // without its tags. The meter must outlive it.
  Steps derive(Link entry, uint32_t item);

private:
  struct State {
    uint32_t item;
    uint32_t frame;
    uint32_t pending;  // first in pending_; 0 for none
    EndSet goals;      // within callees: some of the item's ends
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

  uint64_t identity_of(uint32_t frame) const { return frame == 0 ? 0 : frames_[frame - 1].identity; }
  const Item &item() const { return chart_.item(state_.item); }
  const Place &place_of(uint32_t item) const { return program_.places[chart_.item(item).place]; }
  void follow() { state_.item = item().target; }
  void consume_word();
  bool choose();
  Way first_way() const;
  Way next_way(const Choice &choice);
  Way lowest_way(const State &state, uint32_t from_branch) const;
  void take(uint32_t branch, uint32_t target);
  void narrow_goals();
  bool step_back();
  bool mark(uint64_t frame, uint32_t place);
  void grow_marks();
  void call();
  bool end();
  void come_back(const Call &call, uint32_t item);
  void give(uint32_t tags);
  void drop_unused_sets();

  const Program &program_;
  const Chart &chart_;
  Meter &meter_;
  State state_{};
  uint32_t position_ = 0;
  Steps steps_;
  CountedVector<Frame> frames_;
  CountedVector<PendingTags> pending_;
  std::optional<EndSetStore> stores_[2];  // one is for the goals, but for those that are the chart's
  size_t store_ = 0;
  size_t store_limit_;
  EndSetBuilder builder_;
  CountedVector<Choice> choices_;
  CountedVector<Mark> marks_;  // open addressing, a power of two; those of other positions are empty
  size_t mark_count_ = 0;
  std::optional<ItemTable> table_;  // of the items of table_position_
  uint32_t table_position_ = 0;
  uint64_t budget_;
};

}  // namespace quillbrook::jsgf
