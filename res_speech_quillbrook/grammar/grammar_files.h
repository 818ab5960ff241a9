// The files that the dialplan loads for a session. What a file is for is told by its path, and one file may serve
// twice:
//
//   .../configuration_...   settings for the plugin, as they stand
//   .../context_...         a text for the provider, up to 2,047 bytes
//   ....jsgf                a grammar
//   ....txt                 phrases to expect, used while no grammar has words
#pragma once

#include "../record/session.h"

// Loads `path` under `name` for all that it is for. False when it is for nothing. Failures are logged.
bool quillbrook_load_files(quillbrook_speech_t &session, const char *name, const char *path);

// Makes `text`, a heap string or null, the session's configuration. The former one is released, or kept for as long as
// the running recognition may look at it.
void quillbrook_replace_config(quillbrook_speech_t &session, char *text);
