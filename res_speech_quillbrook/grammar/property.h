// The settings that a grammar path carries instead of naming a file: properties ("property:Speech-Timeout=2s") and
// builtin forms ("builtin:grammar/model=NAME").
#pragma once

#include "../record/session.h"

// Stores `value` in the setting that `text` begins with the name of. False, and nothing changes, when there is none.
// A timeout is a number and a unit, "250ms" or "1.5s"; one that cannot be read is stored as -1.
bool quillbrook_set_property(quillbrook_speech_t &session, const char *text, const char *value);

// Stores what the builtin form `path` says; other paths change nothing.
void quillbrook_set_builtin(quillbrook_speech_t &session, const char *path);

// Whether `text` begins with `prefix`.
bool quillbrook_begins_with(const char *text, const char *prefix);
