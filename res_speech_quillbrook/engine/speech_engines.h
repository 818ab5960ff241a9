// The module's engines in the host's speech API: the default engine "quillbrook" and one engine for each profile. All
// share the same functions; they differ by the table entry that a session binds to.
#pragma once

#include "../record/engine.h"

extern struct ast_speech_engine ast_engine;

// Register the engine of entry 0, or of a profile's entry, whose plugin is open. False after an ERROR line; nothing of
// that engine is left behind. A profile for whose record there is no memory is passed over, which is no failure.
bool quillbrook_register_default_engine();
bool quillbrook_register_profile_engine(int index);

// Withdraw an engine from the host and release its record. False when the host does not know it.
bool quillbrook_unregister_default_engine();
bool quillbrook_unregister_profile_engine(int index);

// Releases the formats of the default engine.
void quillbrook_release_default_formats();
