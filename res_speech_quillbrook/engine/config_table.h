// The settings that one configuration file gives, in a table of their own: the loader makes it the module's, a check
// looks at it and throws it away.
#pragma once

#include "../record/engine.h"
#include "config_file.h"

inline constexpr char kGeneralSection[] = "general";

struct ConfigTable {
  ConfigTable() { quillbrook_engine_clear(engines); }
  ~ConfigTable();
  ConfigTable(const ConfigTable &) = delete;
  ConfigTable &operator=(const ConfigTable &) = delete;

  quillbrook_engine_t engines[kEngines];  // owned, until they are moved away
  int debug = 0;
  int verbose = 0;
  int twin = 0;
  int webenabled = 1;
  char *profiles = nullptr;  // the list of the profiles' names
};

// What for: the load, a reload, or to look at it. The first two tell in the log what is set, and the names that give no
// profile, and open the log file of the plugins; a reload goes on behind what stands in it.
enum class ConfigReading { kLoad, kReload, kTry };

// Fills an empty table. False, after an ERROR line, when the module must not load; what was read by then is in the
// table.
bool fill_config_table(const ConfigFile &file, ConfigTable &table, ConfigReading reading);

// The parts of the profiles' list, with nothing trimmed, up to the last that is read.
std::vector<std::string> profile_names(const char *list);

// Whether a name of the list has a section and fits its engine's name. The section with an empty name is none.
bool has_profile_section(const ConfigFile &file, const std::string &name);
