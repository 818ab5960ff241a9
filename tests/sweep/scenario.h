// A life of the module: load, every command, calls on engines of every kind, unload. What a caller, an operator or a
// script gets to see of it is its outcome.
#pragma once

#include <string>
#include <vector>

// Lines of what was seen. Those that begin with "broken:" must never come, whatever fails.
using Outcome = std::vector<std::string>;

// Where the plugins' log goes, which stays.
inline constexpr char kPluginLog[] = "/tmp/quillbrook_plugins.log";

// What a reload in the middle says in the end.
inline constexpr char kReloaded[] =
    "The configuration was read: 5 engines\n1 session keeps the settings that it began with\n";

// `twin`: each recognition runs its plugin twice. The same in every run, as long as nothing fails.
Outcome run_scenario(bool twin);

// Has the plugins offered to the module, once for the process.
void offer_plugins();
