// The settings that a grammar path carries instead of naming a file: properties ("property:Speech-Timeout=2s") and
// builtin forms ("builtin:grammar/model=NAME").
#pragma once

#include "../record/session.h"

enum class PropertyOutcome {
  kUnknown,     // no property has this name; nothing changes
  kSet,         // as it was meant
  kNoTime,      // a time that cannot be read, which stores -1
  kNoNumber,    // a number that cannot be read, which stores 0
  kNoSwitch,    // neither yes nor no; nothing changes
  kModelFixed,  // a property for models that are left open, and this one is not; nothing changes
};

// Stores `value` in the setting that `text` begins with the name of. A timeout is a number and a unit, "250ms" or
// "1.5s".
PropertyOutcome quillbrook_set_property(quillbrook_speech_t &session, const char *text, const char *value);

// The names of all properties.
std::vector<std::string> quillbrook_property_names();

// Stores what the builtin form `path` says. False, and nothing changes, when it is none.
bool quillbrook_set_builtin(quillbrook_speech_t &session, const char *path);

// Whether `text` begins with `prefix`.
bool quillbrook_begins_with(const char *text, const char *prefix);
