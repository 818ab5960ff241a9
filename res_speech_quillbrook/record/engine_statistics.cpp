#include "engine_statistics.h"

#include "../support/mutex.h"

namespace {

struct Entry {
  quillbrook_engine_statistics counters;
  Entry *next = nullptr;
};

// A leaf lock. Entries are only ever added, behind the last one.
Mutex entries_lock;
Entry *first_entry QUILLBROOK_GUARDED_BY(entries_lock);

quillbrook_engine_statistics &nobody() {
  static quillbrook_engine_statistics counters;
  return counters;
}

Entry *make_entry(const char *engine) {
  try {
    auto entry = std::make_unique<Entry>();
    entry->counters.engine = engine;
    return entry.release();
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
}

}  // namespace

void DurationHistogram::add_us(int64_t microseconds) {
  const int64_t duration = std::max<int64_t>(microseconds, 0);
  const double seconds = static_cast<double>(duration) / 1e6;
  const size_t index = static_cast<size_t>(std::lower_bound(std::begin(kLimits), std::end(kLimits), seconds) - kLimits);
  count(counts_[index]);
  count(sum_us_, static_cast<uint64_t>(duration));
}

quillbrook_engine_statistics &quillbrook_statistics_of_engine(const char *engine) {
  MutexLock held(entries_lock);
  Entry **place = &first_entry;
  for (; *place; place = &(*place)->next) {
    if ((*place)->counters.engine == engine) {
      return (*place)->counters;
    }
  }
  *place = make_entry(engine);
  return *place ? (*place)->counters : nobody();
}

void quillbrook_visit_engine_statistics(const std::function<void(const quillbrook_engine_statistics &)> &visit) {
  std::vector<const quillbrook_engine_statistics *> known;
  {
    MutexLock held(entries_lock);
    for (const Entry *entry = first_entry; entry; entry = entry->next) {
      known.push_back(&entry->counters);
    }
  }
  for (const quillbrook_engine_statistics *counters : known) {
    visit(*counters);
  }
}

void quillbrook_engine_statistics_clear() {
  MutexLock held(entries_lock);
  while (Entry *entry = first_entry) {
    first_entry = entry->next;
    delete entry;
  }
}
