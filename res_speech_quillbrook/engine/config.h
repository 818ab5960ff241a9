// The configuration: read once, while the module loads, from "quillbrook.conf" or "res-speech-quillbrook.conf" in the
// host's configuration directory. docs/configuration.md tells each key.
#pragma once

// Fills the engine table and the module's settings. 0, or -1 (after a message) when the module must not load: no
// usable file, a log file that cannot be opened, or no memory. What had been read by then stays in the table, for its
// owner to release.
int quillbrook_engine_config_load();
