// The host's state of a speech object. A state is set together with what it says about the queue of results, under
// result_lock, so that a READY never covers the DONE of a result that came in between.
#pragma once

#include "../support/bell.h"
#include "session.h"

// Wakes the watch thread (session/watch.h): there is something to look at.
extern Bell &quillbrook_watch_bell;

// To be called for each result that is queued, which the watch looks after until the host asks for it.
void quillbrook_note_result(quillbrook_speech_t *session) QUILLBROOK_REQUIRES(session->result_lock);

// Queues a result and announces it: the entry is there before the state says so.
void quillbrook_queue_result(struct ast_speech *speech, quillbrook_speech_t *session, const char *result)
    QUILLBROOK_REQUIRES(session->result_lock);

// Announces that results wait.
void quillbrook_set_done(struct ast_speech *speech, quillbrook_speech_t *session)
    QUILLBROOK_REQUIRES(session->result_lock);

void quillbrook_set_ready(struct ast_speech *speech, quillbrook_speech_t *session)
    QUILLBROOK_REQUIRES(session->result_lock);
