// The commands "quillbrook show statistics" and "quillbrook show dates".
#pragma once

void quillbrook_cli_show_statistics(int fd);

// Prints each date in the host's time zone with its age, when that is from a minute to 300 days.
void quillbrook_cli_show_dates(int fd);
