// The keys of the configuration, for both kinds of section, in one table: what the loader reads, and what the sample
// file and docs/configuration.md are checked against.
#pragma once

#include <variant>

#include "engine.h"

enum class config_section { general, profile };

// How a value is read. Nothing is refused: a text that is no number reads as 0, and a number out of the range of its
// type as the nearest one that fits.
enum class config_kind {
  text,
  label,    // a text cut to the fixed field that takes it
  boolean,  // what ast_true of the host takes for true
  number,
  milliseconds,
  decimal,
  debug_level,        // boolean, or 2 for a text that begins with "plugin"
  log_file,           // "no", "yes" for the usual place, or a path
  silence_threshold,  // number; in `general` also "dsp" and "default" for the host's own setting
  normalization,      // "yes" or "both" 2, "phrases" 1, anything else 0
};

// Where a value is kept: in the engine that the section describes, or in a setting of the whole module.
using engine_text = char *quillbrook_engine_t::*;
using engine_number = int quillbrook_engine_t::*;
using engine_decimal = float quillbrook_engine_t::*;
using engine_file = FILE *quillbrook_engine_t::*;
using engine_label = char (quillbrook_engine_t::*)[sizeof(quillbrook_engine_t::name)];
using config_field =
    std::variant<engine_text, engine_number, engine_decimal, engine_file, engine_label, char **, int *>;

// What stands for a key that `general` does not have.
struct config_default {
  const char *value = nullptr;  // as one would write it in the file; null when no value says the same as no key
  bool stored = false;  // whether the loader stores it; if not it leaves the field alone, as load_module zeroed it
};

// What is peculiar to few keys.
struct config_rules {
  bool in_general = true;
  int least = INT_MIN;               // a number below counts as an absent key
  engine_number excludes = nullptr;  // flag that goes to 0 when this key is present and true
  bool warn_in_profile = false;      // a WARNING shows the value when a profile has the key
  const char *echo = nullptr;        // the key's word in debug output, when that is not names[0]
};

struct config_key {
  const char *names[3];  // the key and its aliases, null behind the last; the first that is present decides
  config_kind kind;
  config_field field;
  config_default absent;  // in `general`; a profile takes over what `general` left in the field
  int profile_place = 0;  // place in the order of reading a profile, from 1; 0: no key of a profile
  config_rules rules;
};

constexpr int CONFIG_KEYS = 41;
constexpr int CONFIG_PROFILE_KEYS = 29;

// In the order of reading `general`.
extern const config_key config_keys[CONFIG_KEYS];

// The key that stands at `place`, from 1 to CONFIG_PROFILE_KEYS, in the order of reading a profile.
const config_key &config_profile_key(int place);

// The field of a key, in `engine` or of the whole module. Null when the key keeps another type there.
int *config_number(const config_key &key, quillbrook_engine_t &engine);
char **config_text(const config_key &key, quillbrook_engine_t &engine);
