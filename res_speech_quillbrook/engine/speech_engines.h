// The module's engines in the host's speech API: the default engine "quillbrook" and one engine for each profile. All
// share the same functions; they differ by the table entry that a session binds to.
#pragma once

#include "../record/engine.h"

extern struct ast_speech_engine ast_engine;

// Register the engine of entry 0, or of a profile's entry, whose plugin is open. False after an ERROR line; nothing of
// that engine is left behind. A profile for whose record there is no memory is passed over, which is no failure.
bool quillbrook_register_default_engine();
bool quillbrook_register_profile_engine(int index);

// In the functions below `index` is that of any entry; where the module has no engine they do nothing.

// Takes an engine from the host, which may be about to call it all the same: its record stays as it is. False when the
// host did not have it from us; an engine of that name is then another module's.
bool quillbrook_withdraw_engine(int index);

// Gives the host back an engine that was withdrawn; an ERROR line when it refuses.
void quillbrook_offer_engine_again(int index);

// Releases the record of an engine that was withdrawn.
void quillbrook_release_engine(int index);
