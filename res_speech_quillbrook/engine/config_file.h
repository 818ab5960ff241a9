// A configuration file as sections with keys, each with the place where it stands. The host reads it for the loader;
// for quillbrook-check, which also names lines that the host passes over, it is read here.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// A word of the file as findings show it.
std::string quoted(std::string_view text);

// Line 0 is the file as a whole.
struct ConfigPlace {
  std::string file;  // without its folder
  int line = 0;
};

struct ConfigEntry {
  std::string key;
  std::string value;
  ConfigPlace place;
};

struct ConfigBlock {
  std::string name;
  ConfigPlace place;
  std::vector<ConfigEntry> entries;
  bool is_template = false;  // for other sections to take over; the host offers it to nobody
};

// In the order of the file, with what was included in its place.
struct ConfigFile {
  std::vector<ConfigBlock> blocks;
};

// Something that is wrong with the file, or looks so.
struct ConfigFinding {
  ConfigPlace place;
  bool fatal = false;  // the module does not load
  std::string text;
};

// The section and the key that the host finds under a name: the first, in capital or small letters. Null when there is
// none. A template is no section.
const ConfigBlock *find_block(const ConfigFile &file, std::string_view name);
const ConfigEntry *find_entry(const ConfigBlock &block, std::string_view key);

bool equal_names(std::string_view one, std::string_view other);

// Reads the file as the host does: comments, included files, templates, additions. What the host would not understand
// becomes a finding; with a fatal one the host refuses the file. `#exec` is not followed.
ConfigFile read_config_file(const std::string &path, std::vector<ConfigFinding> &findings);
