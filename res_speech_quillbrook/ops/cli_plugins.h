// The command "quillbrook show plugins".
#pragma once

#include "../record/engine.h"

// Prints the entries of the engine table that are in use.
void quillbrook_cli_show_plugins(int fd);

// Prints one entry, which stands at `index` in the table.
void quillbrook_cli_show_plugin(int fd, int index, const quillbrook_engine_t *engine);
