// What is counted for each engine, and read by Prometheus (ops/http_engine_metrics.h).
//
// The counters of an engine are found by its name, once for each session, and stay as long as the module is loaded: an
// engine that a new configuration drops and a later one brings back goes on where it was. Counting is a relaxed
// addition without a lock. A frame of audio counts nothing: the audio is measured when its stream is closed.
#pragma once

#include "../host.h"
#include "result.h"

// How often something took how long. The limits suit both a start that takes a millisecond and a caller who listens for
// a minute.
class DurationHistogram {
public:
  static constexpr double kLimits[] = {0.001, 0.005, 0.01, 0.05, 0.1, 0.25, 0.5, 1, 2, 4, 8, 16, 32, 64};
  static constexpr size_t kLimitCount = std::size(kLimits);

  // Any thread.
  void add_us(int64_t microseconds);
  void add_ms(int64_t milliseconds) { add_us(milliseconds * 1000); }

  // How many were within the limit of the index, but above the one before; behind the last index all others.
  uint64_t within(size_t index) const { return counts_[index].load(std::memory_order_relaxed); }
  double sum_in_seconds() const { return static_cast<double>(sum_us_.load(std::memory_order_relaxed)) / 1e6; }

private:
  std::atomic<uint64_t> counts_[kLimitCount + 1] = {};
  std::atomic<uint64_t> sum_us_{0};
};

// A line of the processor's cache of its own for what each message counts.
constexpr size_t kCacheLine = 64;

struct alignas(kCacheLine) quillbrook_engine_statistics {
  std::string engine;  // as the host knows it
  alignas(kCacheLine) std::atomic<uint64_t> messages{0};
  alignas(kCacheLine) std::atomic<uint64_t> sessions{0};
  std::atomic<int64_t> sessions_active{0};
  std::atomic<uint64_t> recognitions{0};
  std::atomic<int64_t> recognitions_active{0};
  std::atomic<uint64_t> results[kCauses] = {};
  std::atomic<uint64_t> provider_failures{0};
  std::atomic<uint64_t> samples{0};  // of audio, at 8 kHz

  DurationHistogram start;        // inside a start that begins a recognition
  DurationHistogram first_words;  // from the start to the first words
  DurationHistogram waiting;      // from the last words to the result
  DurationHistogram recognition;  // from the start to the end
  DurationHistogram stop;         // from plugin_stop to the end of the last thread
};

// Adds without an order: nothing else is told by a counter.
template <typename Number>
void count(std::atomic<Number> &counter, Number more = 1) {
  counter.fetch_add(more, std::memory_order_relaxed);
}

// The counters of the engine of that name, which are made when there are none. Without memory they are those of no
// engine, which nobody shows. Any thread; takes a lock, so once for a session.
quillbrook_engine_statistics &quillbrook_statistics_of_engine(const char *engine);

// Calls `visit` for each, in the order in which they were made. The lock of the list is not held meanwhile.
void quillbrook_visit_engine_statistics(const std::function<void(const quillbrook_engine_statistics &)> &visit);

// Forgets all counters. No session is left. Load and unload.
void quillbrook_engine_statistics_clear();
