// The configuration: read while the module loads, and by a reload, from "quillbrook.conf" or
// "res-speech-quillbrook.conf" in the host's configuration directory. docs/configuration.md tells each key.
#pragma once

#include "config_table.h"

// Fills the table of the load and the module's settings. 0, or -1 (after a message) when the module must not load: no
// usable file, a log file that cannot be opened, or no memory. What had been read by then stays in the table, for its
// owner to release.
int quillbrook_engine_config_load();

// Reads the file for a reload into an empty table. False, after a message, when it cannot be used.
bool quillbrook_config_read_again(ConfigTable &read);

// Gives the engines, with their texts, to an empty table.
void quillbrook_config_move_engines(ConfigTable &read, quillbrook_engine_t *engines);

// Makes the settings that are not an engine's the module's.
void quillbrook_config_apply(const ConfigTable &read);

// The date of the file, for operators.
void quillbrook_config_record_date();
