// Everything that can be said about a configuration file before it is loaded: by the program quillbrook-check, and by
// the console command `quillbrook check configuration`. Reads with the loader's table of keys and changes nothing of
// the module.
#pragma once

#include "config_file.h"

// In the order of the lines. Plugins are opened and closed again; what they may export for it is asked for its opinion
// of the settings.
std::vector<ConfigFinding> check_configuration(const std::string &path);

// The file that the module would read in `folder`.
std::string configuration_in(const std::string &folder);

// The exit status of a check: 0 when there is nothing to say, 1 with warnings, 2 when the module would not load.
int status_of(const std::vector<ConfigFinding> &findings);

// What is printed: a line for each finding, and one that sums them up.
std::string report_of(const std::string &path, const std::vector<ConfigFinding> &findings);
