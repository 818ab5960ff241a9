#include "statistics.h"

#include "../support/mutex.h"

ast_mutex_t quillbrook_stat_lock;
quillbrook_statistics quillbrook_stats;
time_t quillbrook_dates[kDates];

const char *const quillbrook_dates_name[kDates] = {
    "Current date          ", "Start module          ", "Reload configuration  ", "File configuration    ",
    "Last session          ", "Last message          ", "Reset statistics      ",
};

// The variables are zeroed here and not left to the loader of the library: a library that stayed in the process after
// an unload keeps its values.
void quillbrook_statistics_init() {
  ast_mutex_init(&quillbrook_stat_lock);
  quillbrook_stats = {};
  std::fill(std::begin(quillbrook_dates), std::end(quillbrook_dates), 0);
  quillbrook_dates[kDateStart] = time(nullptr);
}

void quillbrook_statistics_destroy() {
  ast_mutex_destroy(&quillbrook_stat_lock);
}

void quillbrook_statistics_session_start() {
  const HostMutexLock hold(quillbrook_stat_lock);
  ++quillbrook_stats.sessions_total;
  ++quillbrook_stats.sessions_active;
  quillbrook_dates[kDateSession] = time(nullptr);
}

void quillbrook_statistics_session_stop() {
  const HostMutexLock hold(quillbrook_stat_lock);
  if (quillbrook_stats.sessions_active > 0) {
    --quillbrook_stats.sessions_active;
  }
  ++quillbrook_stats.sessions_closed;
  quillbrook_dates[kDateSession] = time(nullptr);
}

void quillbrook_statistics_message(int score) {
  const HostMutexLock hold(quillbrook_stat_lock);
  ++quillbrook_stats.messages_total;
  if (score > 0) {
    ++quillbrook_stats.messages_final;
    ++quillbrook_stats.scores_count;
    quillbrook_stats.scores_sum += static_cast<unsigned int>(score);
  } else {
    ++quillbrook_stats.messages_interim;
  }
  quillbrook_dates[kDateMessage] = time(nullptr);
}

void quillbrook_statistics_reset() {
  const HostMutexLock hold(quillbrook_stat_lock);
  const unsigned long long active = quillbrook_stats.sessions_active;
  quillbrook_stats = {};
  quillbrook_stats.sessions_active = active;
  quillbrook_dates[kDateReset] = time(nullptr);
}

void quillbrook_statistics_stamp(quillbrook_date date) {
  const HostMutexLock hold(quillbrook_stat_lock);
  quillbrook_dates[date] = time(nullptr);
}

double quillbrook_statistics_snapshot::score_average() const {
  if (stats.scores_count == 0) {
    return 0.0;
  }
  return static_cast<double>(stats.scores_sum) / static_cast<double>(stats.scores_count);
}

quillbrook_statistics_snapshot quillbrook_statistics_read() {
  quillbrook_statistics_snapshot snapshot;
  const time_t now = time(nullptr);
  const HostMutexLock hold(quillbrook_stat_lock);
  quillbrook_dates[kDateNow] = now;
  snapshot.stats = quillbrook_stats;
  std::copy(std::begin(quillbrook_dates), std::end(quillbrook_dates), std::begin(snapshot.dates));
  return snapshot;
}
