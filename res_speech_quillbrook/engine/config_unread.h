// What stands in a configuration file and is read by nobody.
#pragma once

#include "config_file.h"

// Keys that their section does not have, sections that `profiles` (the names of the key profiles) does not name, and
// sections and keys that stand a second time. Each with what may have been meant.
std::vector<ConfigFinding> find_unread(const ConfigFile &file, const std::vector<std::string> &profiles);

// "quillbrook.conf:12: what is wrong"
std::string sentence_of(const ConfigFinding &finding);
