#include "end_set.h"

#include <algorithm>

namespace quillbrook::jsgf {

namespace {

constexpr uint32_t kBits = 64;
constexpr size_t kChunkWords = 512;

uint64_t word_of(const EndSet &set, uint32_t index) {
  if (index < set.low / kBits || index > set.high / kBits) {
    return 0;
  }
  if (set.bits != nullptr) {
    return set.bits[index - set.low / kBits];
  }
  uint64_t word = ~uint64_t{0};
  if (index == set.low / kBits) {
    word &= ~uint64_t{0} << set.low % kBits;
  }
  if (index == set.high / kBits) {
    word &= ~uint64_t{0} >> (kBits - 1 - set.high % kBits);
  }
  return word;
}

uint32_t lowest_bit(uint64_t word) {
  return static_cast<uint32_t>(__builtin_ctzll(word));
}

uint32_t highest_bit(uint64_t word) {
  return kBits - 1 - static_cast<uint32_t>(__builtin_clzll(word));
}

// Both are without gaps, and so is what they make together.
bool join_without_gap(const EndSet &a, const EndSet &b) {
  return a.bits == nullptr && b.bits == nullptr && std::max(a.low, b.low) <= uint64_t{std::min(a.high, b.high)} + 1;
}

EndSet from_to(uint32_t low, uint32_t high) {
  return {low, high, nullptr};
}

}  // namespace

uint32_t next_end(const EndSet &set, uint32_t from) {
  from = std::max(from, set.low);
  if (from > set.high || set.bits == nullptr) {
    return from > set.high ? kNoEnd : from;
  }
  uint32_t index = from / kBits;
  uint64_t word = word_of(set, index) & ~uint64_t{0} << from % kBits;
  while (word == 0) {  // the highest bit is set
    word = word_of(set, ++index);
  }
  return index * kBits + lowest_bit(word);
}

bool have_common_end(const EndSet &a, const EndSet &b) {
  const uint32_t low = std::max(a.low, b.low);
  const uint32_t high = std::min(a.high, b.high);
  if (low > high || (a.bits == nullptr && b.bits == nullptr)) {
    return low <= high;
  }
  for (uint32_t index = low / kBits; index <= high / kBits; ++index) {
    if ((word_of(a, index) & word_of(b, index)) != 0) {
      return true;
    }
  }
  return false;
}

bool is_within(const EndSet &inner, const EndSet &outer) {
  if (inner.low < outer.low || inner.high > outer.high || outer.bits == nullptr) {
    return is_empty(inner) || (inner.low >= outer.low && inner.high <= outer.high);
  }
  if (inner.bits == outer.bits && inner.low == outer.low && inner.high == outer.high) {
    return true;
  }
  for (uint32_t index = inner.low / kBits; index <= inner.high / kBits; ++index) {
    if ((word_of(inner, index) & ~word_of(outer, index)) != 0) {
      return false;
    }
  }
  return true;
}

// A set of the words that `word_at` gives for low / 64 to high / 64.
template <typename WordOf>
EndSet EndSetStore::make(uint32_t low, uint32_t high, const WordOf &word_at) {
  EndSet set = kNoEnds;
  uint32_t count = 0;
  for (uint32_t index = low / kBits; index <= high / kBits; ++index) {
    const uint64_t word = word_at(index);
    if (word != 0) {
      set.low = is_empty(set) ? index * kBits + lowest_bit(word) : set.low;
      set.high = index * kBits + highest_bit(word);
      count += static_cast<uint32_t>(__builtin_popcountll(word));
    }
  }
  if (is_empty(set) || count == set.high - set.low + 1) {
    return set;
  }
  const size_t size = set.high / kBits - set.low / kBits + 1;
  meter_.work(size);
  if (chunks_.empty() || chunks_.back().size() - used_ < size) {
    chunks_.push_back(counted<uint64_t>(meter_, std::max(kChunkWords, size)));
    words_kept_ += chunks_.back().size();
    used_ = 0;
  }
  uint64_t *bits = &chunks_.back()[used_];
  used_ += size;
  for (size_t i = 0; i < size; ++i) {
    bits[i] = word_at(static_cast<uint32_t>(set.low / kBits + i));
  }
  set.bits = bits;
  return set;
}

EndSet EndSetStore::unite(const EndSet &a, const EndSet &b) {
  const uint32_t low = std::min(a.low, b.low);
  const uint32_t high = std::max(a.high, b.high);
  if (join_without_gap(a, b)) {
    return from_to(low, high);
  }
  return make(low, high, [&](uint32_t index) { return word_of(a, index) | word_of(b, index); });
}

EndSet EndSetStore::intersect(const EndSet &a, const EndSet &b) {
  if (is_within(a, b)) {
    return a;
  }
  if (is_within(b, a)) {
    return b;
  }
  const uint32_t low = std::max(a.low, b.low);
  const uint32_t high = std::min(a.high, b.high);
  if (low > high) {
    return kNoEnds;
  }
  return make(low, high, [&](uint32_t index) { return word_of(a, index) & word_of(b, index); });
}

EndSet EndSetStore::copy(const EndSet &set) {
  return set.bits == nullptr ? set : make(set.low, set.high, [&](uint32_t index) { return word_of(set, index); });
}

// Gives the set bits, with room up to `high`.
void EndSetBuilder::spell_out(uint32_t high) {
  const bool has_bits = set_.bits != nullptr;
  const size_t clean = has_bits ? set_.high / kBits + 1 : 0;
  words_.resize(std::max<size_t>(words_.size(), high / kBits + 1));
  std::fill(words_.begin() + static_cast<std::ptrdiff_t>(clean), words_.end(), 0);
  for (uint32_t index = set_.low / kBits; !has_bits && index <= set_.high / kBits; ++index) {
    words_[index] = word_of(set_, index);
  }
}

void EndSetBuilder::add(const EndSet &set) {
  if (is_within(set, set_)) {
    return;
  }
  if (is_empty(set_) && set.bits == nullptr) {
    set_ = set;
    return;
  }
  const uint32_t low = std::min(set_.low, set.low);
  const uint32_t high = std::max(set_.high, set.high);
  if (!is_empty(set_) && join_without_gap(set_, set)) {
    set_ = from_to(low, high);
    return;
  }
  spell_out(high);
  for (uint32_t index = set.low / kBits; index <= set.high / kBits; ++index) {
    words_[index] |= word_of(set, index);
  }
  set_ = {is_empty(set_) ? set.low : low, is_empty(set_) ? set.high : high, nullptr};
  set_.bits = &words_[set_.low / kBits];
}

}  // namespace quillbrook::jsgf
