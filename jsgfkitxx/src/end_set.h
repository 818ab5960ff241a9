#pragma once

#include <cstddef>
#include <cstdint>

#include "meter.h"

namespace quillbrook::jsgf {

// Some positions of a text: those at which a callee can end. Most sets are all positions from one to another and take
// no memory; others have a bit for each position. Never changes. Never empty, but for kNoEnds.
struct EndSet {
  uint32_t low;
  uint32_t high;         // the highest position, not the one behind it
  const uint64_t *bits;  // words low / 64 to high / 64; null: all positions from low to high
};

constexpr uint32_t kNoEnd = UINT32_MAX;
constexpr EndSet kNoEnds{1, 0, nullptr};

inline bool is_empty(const EndSet &set) {
  return set.low > set.high;
}

// The least position of the set that is `from` or more; kNoEnd when there is none.
uint32_t next_end(const EndSet &set, uint32_t from);

inline bool contains(const EndSet &set, uint32_t end) {
  return next_end(set, end) == end;
}

bool have_common_end(const EndSet &a, const EndSet &b);
bool is_within(const EndSet &inner, const EndSet &outer);

// Makes sets, and keeps their bits for as long as it lives.
class EndSetStore {
public:
  explicit EndSetStore(Meter &meter) : chunks_(meter_of(meter)), meter_(meter) {}
  EndSetStore(const EndSetStore &) = delete;
  EndSetStore &operator=(const EndSetStore &) = delete;

  EndSet unite(const EndSet &a, const EndSet &b);
  EndSet intersect(const EndSet &a, const EndSet &b);
  EndSet copy(const EndSet &set);

  size_t words_kept() const { return words_kept_; }

private:
  static CountedAllocator<CountedVector<uint64_t>> meter_of(Meter &meter) {
    return CountedAllocator<CountedVector<uint64_t>>(meter);
  }

  template <typename WordOf>
  EndSet make(uint32_t low, uint32_t high, const WordOf &word_of);

  CountedVector<CountedVector<uint64_t>> chunks_;
  size_t used_ = 0;  // of the last chunk
  size_t words_kept_ = 0;
  Meter &meter_;
};

// Gathers one set out of many in place.
class EndSetBuilder {
public:
  explicit EndSetBuilder(Meter &meter) : words_(counted<uint64_t>(meter)) {}

  void clear() { set_ = kNoEnds; }
  void add(const EndSet &set);

  // Valid until the next change.
  const EndSet &set() const { return set_; }

private:
  void spell_out(uint32_t high);

  EndSet set_ = kNoEnds;           // its bits, if any, are in words_
  CountedVector<uint64_t> words_;  // word 0 is for the positions 0 to 63
};

}  // namespace quillbrook::jsgf
