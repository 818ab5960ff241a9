// What a value of the configuration is worth: the loader refuses none, and reads a slip of the pen as 0 or no.
#pragma once

#include "config_keys.h"

struct ConfigComplaint {
  std::string text;    // empty: there is nothing to say
  bool fatal = false;  // the module does not load
};

// Why the loader will not read `value` as it was meant, in a kind of section.
ConfigComplaint complaint_about(const ConfigKey &key, ConfigSection section, const std::string &value);
