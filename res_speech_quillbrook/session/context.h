// The record that a plugin gets for a recognition.
#pragma once

#include "session.h"

// Fills a zeroed `context` from the session and its engine. Where both have a text, the session's wins. Only `filename`
// is memory of the record's own (it stays null when there is none); quillbrook_release_contexts releases it.
void quillbrook_fill_context(quillbrook_context *context, struct ast_speech *speech, quillbrook_speech_t *session,
                             const char *filename);
