// The module's counters and activity dates: of the whole process, not of an engine or a session.
#pragma once

#include "../host.h"

struct quillbrook_statistics {
  unsigned long long sessions_total;    // created since the last reset
  unsigned long long sessions_active;   // existing now; survives a reset
  unsigned long long sessions_closed;   // destroyed since the last reset
  unsigned long long messages_total;    // non-empty texts from plugins since the last reset
  unsigned long long messages_final;    // those with a score above 0
  unsigned long long messages_interim;  // all others
  unsigned long long scores_count;      // moves with messages_final
  unsigned long long scores_sum;        // of the scores above 0
};

// Indices of quillbrook_dates. A date of 0 has not happened.
enum quillbrook_date {
  kDateNow = 0,  // written by each reader
  kDateStart,
  kDateReload,
  kDateFile,  // modification time of the configuration file
  kDateSession,
  kDateMessage,
  kDateReset,
  kDates
};

// Guards quillbrook_stats and quillbrook_dates. A leaf lock: held for a few assignments, and no other is taken under
// it. Initialised at load, destroyed as the last step of unload.
extern ast_mutex_t quillbrook_stat_lock;
extern quillbrook_statistics quillbrook_stats;
extern time_t quillbrook_dates[kDates];

// Labels of the dates, all of one width.
extern const char *const quillbrook_dates_name[kDates];

// Initialises the lock, zeroes counters and dates and sets the date of the start. First step of the load.
void quillbrook_statistics_init();

// Destroys the lock. Last step of the unload: nothing here may be called after it until the next init.
void quillbrook_statistics_destroy();

void quillbrook_statistics_session_start();
void quillbrook_statistics_session_stop();

// Counts a non-empty text from a plugin by its score.
void quillbrook_statistics_message(int score);

// Zeroes all counters but the sessions that exist now.
void quillbrook_statistics_reset();

// Sets one of the dates to the present time.
void quillbrook_statistics_stamp(quillbrook_date date);

// What a reader shows: a copy taken at one moment, with the present time as date 0.
struct quillbrook_statistics_snapshot {
  quillbrook_statistics stats;
  time_t dates[kDates];

  // Of the scores above 0, or 0.0 when there was none.
  double score_average() const;
};
quillbrook_statistics_snapshot quillbrook_statistics_read();
