// The plugin of an engine that calls will use, in place of one that is only looked at.
#pragma once

#include "../record/engine.h"

// Opens the entry's plugin, and tells it what the module offers. False when it does not open, behind a line in the log
// that says why; the entry has no plugin then.
bool quillbrook_plugin_open(quillbrook_engine_t &engine);
