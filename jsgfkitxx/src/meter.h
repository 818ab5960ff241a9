#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "jsgfkitxx.h"

namespace quillbrook::jsgf {

// What one match may take. Tests set less, and a clock of their own.
struct MatchLimits {
  size_t bytes = kMatchBytes;
  std::chrono::milliseconds time = kMatchTime;
  std::chrono::steady_clock::time_point (*now)() = std::chrono::steady_clock::now;
};

// Counts what a match takes, and throws MatchGaveUp when that is more than it may. One thread.
class Meter {
public:
  explicit Meter(const MatchLimits &limits = {}) : limits_(limits) {}
  Meter(const Meter &) = delete;
  Meter &operator=(const Meter &) = delete;

  void take(size_t bytes) {
    if (bytes > limits_.bytes - taken_) {
      give_up_on_memory();
    }
    taken_ += bytes;
  }
  void give_back(size_t bytes) { taken_ -= bytes; }

  // To be told of each round of a loop that the text or the grammar can make long. Looks at the clock now and then.
  void work(size_t rounds = 1) {
    if (rounds >= rounds_left_) {
      look_at_clock();
    } else {
      rounds_left_ -= rounds;
    }
  }

private:
  // A round takes some nanoseconds, so the clock is looked at every millisecond or so, and never by a usual match.
  static constexpr size_t kRoundsBetweenLooks = 100'000;

  [[noreturn]] void give_up_on_memory() const;
  void look_at_clock();

  const MatchLimits limits_;
  size_t taken_ = 0;
  size_t rounds_left_ = kRoundsBetweenLooks;
  std::chrono::steady_clock::time_point started_{};  // at the first look; before it no time is worth counting
};

// Counts what a container holds. All that grows during a match lies in containers of this kind.
template <typename T>
class CountedAllocator {
public:
  using value_type = T;

  explicit CountedAllocator(Meter &meter) : meter_(&meter) {}
  template <typename Other>
  explicit CountedAllocator(const CountedAllocator<Other> &other) : meter_(other.meter()) {}

  T *allocate(size_t count) {
    meter_->take(count * sizeof(T));
    try {
      return std::allocator<T>().allocate(count);
    } catch (...) {
      meter_->give_back(count * sizeof(T));
      throw;
    }
  }
  void deallocate(T *memory, size_t count) {
    std::allocator<T>().deallocate(memory, count);
    meter_->give_back(count * sizeof(T));
  }

  Meter *meter() const { return meter_; }

private:
  Meter *meter_;
};

template <typename T>
bool operator==(const CountedAllocator<T> &a, const CountedAllocator<T> &b) {
  return a.meter() == b.meter();
}
template <typename T>
bool operator!=(const CountedAllocator<T> &a, const CountedAllocator<T> &b) {
  return a.meter() != b.meter();
}

template <typename T>
using CountedVector = std::vector<T, CountedAllocator<T>>;

template <typename T>
CountedVector<T> counted(Meter &meter, size_t size = 0, const T &value = T()) {
  return CountedVector<T>(size, value, CountedAllocator<T>(meter));
}

}  // namespace quillbrook::jsgf
