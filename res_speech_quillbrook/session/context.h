// The record that a plugin gets for a recognition.
#pragma once

#include "../record/session.h"

// Fills the zeroed `context` of a recognition from the session and its engine. Where both have a text, the session's
// wins. Only `filename` is memory of the record's own (it stays null when there is none); what it points at besides
// lives as long as the recognition, the engine or the speech object.
void quillbrook_fill_context(quillbrook_context *context, struct ast_speech *speech, quillbrook_speech_t *session,
                             quillbrook_recognition_t *recognition);
