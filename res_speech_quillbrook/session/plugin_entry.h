// The name of a plugin's function for the line of an exception that left it (support/guard.h), with engine and session:
// both may be gone by the time that it is written.
#pragma once

#include "../record/session.h"

struct PluginEntry {
  PluginEntry() = default;
  PluginEntry(const quillbrook_speech_t &session, const char *function) {
    snprintf(text, sizeof(text), "[%s] (%s) %s", EngineHostName(*session.engine).text, session.name, function);
  }
  char text[kEngineNameSize + 200] = "";
};
