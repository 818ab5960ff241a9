// The shared object behind an engine: where it is looked for, and the functions found in it.
#pragma once

#include "../record/engine.h"

// Where plugins are installed.
inline constexpr char kPluginDirectory[] = "/usr/lib/quillbrook";
// Bytes for the path of a plugin, its zero included.
constexpr size_t kPluginPathSize = 2000;

// The path of the plugin `plugin_name`: none given is the dummy plugin; a name that begins with "/" or "." stands as it
// is; any other is looked for in the plugin directory. False when the path does not fit.
bool quillbrook_plugin_filename(char *path, size_t size, const char *plugin_name);

// Opens the entry's plugin and looks up its three functions. Empty, or the line of the log that says what is missing;
// the entry has no plugin then. No code of the plugin runs but its own initialisers.
std::string quillbrook_plugin_try(quillbrook_engine_t &engine);

// Closes the entry's plugin, if it has one, and clears its functions. 0, or the result of dlclose.
int quillbrook_plugin_close(quillbrook_engine_t &engine);
