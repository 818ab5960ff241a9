// The plugins of a whole table of engines, and the end of the table.
#pragma once

#include "../record/engine.h"

// Closes the plugins of all entries and the log file, and releases the texts. The table is empty then; one that is not
// that of the load is freed.
void quillbrook_end_engines(quillbrook_engine_t *engines);

// Has the table end with the last who holds it. Without memory it throws, and the table has ended.
EngineTable quillbrook_own_engines(quillbrook_engine_t *engines);

// Closes the plugin of an entry. False after an ERROR line.
bool quillbrook_close_plugin(quillbrook_engine_t &engine);
