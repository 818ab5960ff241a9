#include "cli_statistics.h"

#include "statistics.h"

namespace {

constexpr time_t kSecondsPerMinute = 60;
constexpr time_t kSecondsPerHour = 3600;
constexpr time_t kSecondsPerDay = 86400;
constexpr int kDaysOfShownAgeMax = 300;

// A reload and a message are rare enough on many systems that their absence is not worth a line.
bool shown_when_unset(int index) {
  return index != kDateReload && index != kDateMessage;
}

// What stands behind the date: nothing for an age of less than a minute and for a long one. The age is counted in
// elapsed seconds, so a change of summer time does not move it, and is negative for a date in the future.
template <size_t Size>
void format_age(char (&text)[Size], time_t age) {
  text[0] = '\0';
  const int days = static_cast<int>(age / kSecondsPerDay);
  if (days > kDaysOfShownAgeMax) {
    return;
  }
  if (days != 0) {
    snprintf(text, Size, " (%d days)", days);
    return;
  }
  const int hours = static_cast<int>(age / kSecondsPerHour);
  const int mins = static_cast<int>(age % kSecondsPerHour / kSecondsPerMinute);
  if (hours != 0 || mins != 0) {
    snprintf(text, Size, " (%02dh%02dmn)", hours, mins);
  }
}

void show_date(int fd, const char *label, time_t date, time_t age) {
  char age_text[32];
  format_age(age_text, age);
  const timeval when = {.tv_sec = date, .tv_usec = 0};
  ast_tm local;
  ast_localtime(&when, &local, nullptr);
  ast_cli(fd, "%s : %04d/%02d/%02d %02d:%02d:%02d%s\n", label, local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
          local.tm_hour, local.tm_min, local.tm_sec, age_text);
}

}  // namespace

void quillbrook_cli_show_statistics(int fd) {
  const quillbrook_statistics_snapshot snapshot = quillbrook_statistics_read();
  const quillbrook_statistics &stats = snapshot.stats;
  ast_cli(fd, "Sessions total   : %llu\n", stats.sessions_total);
  ast_cli(fd, "Sessions active  : %llu\n", stats.sessions_active);
  ast_cli(fd, "Sessions closed  : %llu\n", stats.sessions_closed);
  ast_cli(fd, "Messages total   : %llu\n", stats.messages_total);
  ast_cli(fd, "Messages final   : %llu\n", stats.messages_final);
  ast_cli(fd, "Messages interim : %llu\n", stats.messages_interim);
  ast_cli(fd, "\n");
  ast_cli(fd, "Score average    : %.02f\n", snapshot.score_average());
}

void quillbrook_cli_show_dates(int fd) {
  const quillbrook_statistics_snapshot snapshot = quillbrook_statistics_read();
  const time_t now = snapshot.dates[kDateNow];
  for (int index = 0; index < kDates; ++index) {
    const time_t date = snapshot.dates[index];
    if (date != 0) {
      show_date(fd, quillbrook_dates_name[index], date, now - date);
    } else if (shown_when_unset(index)) {
      ast_cli(fd, "%s : ?\n", quillbrook_dates_name[index]);
    }
  }
}
