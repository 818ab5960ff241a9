// The module's engines in the host's speech API: the default engine "quillbrook" and one engine for each profile. All
// share the same functions; they differ by the entry of the table that a session binds to, which it finds by the name.
//
// The host looks at the record of an engine for as long as a session of it lasts, and may have found one that is
// withdrawn in the next moment. So a record stays until the module goes, and serves again when its name comes back.
// Called while the module loads and unloads and by a reload, of which one at a time is under way.
#pragma once

#include "../record/engine.h"

extern struct ast_speech_engine ast_engine;

// Registers the engine of an entry, whose plugin is open. False after an ERROR line. A profile for whose record there
// is no memory is passed over, which is no failure. One that is registered stays so.
bool quillbrook_register_engine(const quillbrook_engine_t &engine);

// Whether the host has the engine of an entry from us.
bool quillbrook_engine_is_registered(const quillbrook_engine_t &engine);

// Takes the engines for which `which(name)` holds from the host. Gives whether there was any. One that the host did not
// have any more counts as taken by somebody else; an engine of that name is then another module's.
bool quillbrook_withdraw_engines(const std::function<bool(const char *name)> &which);

// Gives the host back what the latest withdrawal has taken, or the one of an entry; an ERROR line for each that it
// refuses.
void quillbrook_offer_engines_again();
void quillbrook_offer_engine_again(const quillbrook_engine_t &engine);

// Whether the latest withdrawal has taken the engine of an entry.
bool quillbrook_engine_was_withdrawn(const quillbrook_engine_t &engine);

// Releases the records. None is registered by then.
void quillbrook_release_engines();
