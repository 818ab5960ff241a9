// The keys of the configuration, for both kinds of section, in one table: what the loader reads, and what the sample
// file and docs/configuration.md are checked against.
#pragma once

#include <variant>

#include "../record/engine.h"

struct ConfigTable;

enum class ConfigSection { kGeneral, kProfile };

// How a value is read. Nothing is refused: a text that is no number reads as 0, and a number out of the range of its
// type as the nearest one that fits.
enum class ConfigKind {
  kText,
  kFolder,   // a text: a folder that the PBX writes to, or empty
  kLabel,    // a text cut to the fixed field that takes it
  kBoolean,  // what ast_true of the host takes for true
  kNumber,
  kMilliseconds,
  kDecimal,
  kDebugLevel,        // boolean, or 2 for a text that begins with "plugin"
  kLogFile,           // "no", "yes" for the usual place, or a path
  kSilenceThreshold,  // number; in `general` also "dsp" and "default" for the host's own setting
  kNormalization,     // "yes" or "both" 2, "phrases" 1, anything else 0
  kWord,              // the word of the key's rules 1, its second word 2, anything else 0
};

// Where a value is kept: in the engine that the section describes, or in a setting of the whole module.
using EngineText = char *quillbrook_engine_t::*;
using EngineNumber = int quillbrook_engine_t::*;
using EngineDecimal = float quillbrook_engine_t::*;
using EngineFile = FILE *quillbrook_engine_t::*;
using EngineLabel = char (quillbrook_engine_t::*)[sizeof(quillbrook_engine_t::name)];
using ModuleText = char *ConfigTable::*;
using ModuleNumber = int ConfigTable::*;
using ConfigField =
    std::variant<EngineText, EngineNumber, EngineDecimal, EngineFile, EngineLabel, ModuleText, ModuleNumber>;

// What stands for a key that `general` does not have.
struct ConfigDefault {
  const char *value = nullptr;  // as one would write it in the file; null when no value says the same as no key
  bool stored = false;  // whether the loader stores it; if not it leaves the field alone, as load_module zeroed it
};

// Behind all numbered places, in the order of the table.
inline constexpr int kProfilePlaceLater = 100;

// What is peculiar to few keys.
struct ConfigRules {
  bool in_general = true;
  int least = INT_MIN;              // a number below counts as an absent key
  EngineNumber excludes = nullptr;  // flag that goes to 0 when this key is present and true
  bool warn_in_profile = false;     // a WARNING shows the value when a profile has the key
  const char *word = nullptr;       // those that are not the default, for kWord
  const char *second_word = nullptr;
  const char *echo = nullptr;  // the key's word in debug output, when that is not names[0]
};

struct ConfigKey {
  const char *names[3];  // the key and its aliases, null behind the last; the first that is present decides
  ConfigKind kind;
  ConfigField field;
  ConfigDefault absent;   // in `general`; a profile takes over what `general` left in the field
  int profile_place = 0;  // place in the order of reading a profile, from 1 or kProfilePlaceLater; 0: no key of it
  ConfigRules rules;
};

// What the value "yes" of `logfile` stands for.
inline constexpr char kLogPath[] = "/var/log/quillbrook/debug.log";

// A part of an array that lives as long as the program.
template <class Item>
struct ConfigRange {
  const Item *first;
  const Item *last;
  const Item *begin() const { return first; }
  const Item *end() const { return last; }
  std::size_t size() const { return static_cast<std::size_t>(last - first); }
};
using ConfigKeys = ConfigRange<ConfigKey>;
using ConfigProfileKeys = ConfigRange<const ConfigKey *>;

// In the order of reading `general`.
ConfigKeys config_keys();

// In the order of reading a profile.
ConfigProfileKeys config_profile_keys();

// The field of a key: of `engine`, an entry of `table`, or of the whole module. Null when the key keeps another type
// there.
int *config_number(const ConfigKey &key, ConfigTable &table, quillbrook_engine_t &engine);
char **config_text(const ConfigKey &key, ConfigTable &table, quillbrook_engine_t &engine);
