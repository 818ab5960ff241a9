// The queue of results and the host's state of a speech object. A state is set together with what it says about the
// queue, under result_lock, so that a READY never covers the DONE of a result that came in between.
#pragma once

#include "../support/bell.h"
#include "result.h"
#include "session.h"

// Wakes the watch thread (session/watch.h): there is something to look at.
extern Bell &quillbrook_watch_bell;

// Results of a session that wait at most. A continuous session may go on for as long as its plugin likes, and its
// dialplan need not fetch anything.
constexpr size_t kResultsMax = 1000;

// Whether the queue takes one more result. If not, what comes is to be dropped, and no document be made of it; the log
// says so once for each recognition.
bool quillbrook_takes_result(quillbrook_speech_t *session) QUILLBROOK_REQUIRES(session->result_lock);

// Puts a result into the queue, if it takes one, which the watch looks after until the host asks for it. The moments in
// `details` are filled in here.
void quillbrook_push_result(quillbrook_speech_t *session, const char *text, quillbrook_result_t details)
    QUILLBROOK_REQUIRES(session->result_lock);

// Queues a result and announces it: the entry is there before the state says so.
void quillbrook_queue_result(struct ast_speech *speech, quillbrook_speech_t *session, const char *text,
                             quillbrook_result_t details) QUILLBROOK_REQUIRES(session->result_lock);

// The same for the result "error", with a line in the log if the queue takes it. `reason` is of the provider or the
// system, in its own words.
void quillbrook_queue_error(struct ast_speech *speech, quillbrook_speech_t *session, quillbrook_cause cause,
                            const char *reason) QUILLBROOK_REQUIRES(session->result_lock);

// Remembers, with a line in the log, what keeps a recognition from having any result: it is what the dialplan learns
// when there is none. The first failure of a recognition counts.
void quillbrook_note_failure(quillbrook_speech_t *session, quillbrook_cause cause, const char *reason)
    QUILLBROOK_EXCLUDES(session->result_lock);

// Announces that results wait.
void quillbrook_set_done(struct ast_speech *speech, quillbrook_speech_t *session)
    QUILLBROOK_REQUIRES(session->result_lock);

void quillbrook_set_ready(struct ast_speech *speech, quillbrook_speech_t *session)
    QUILLBROOK_REQUIRES(session->result_lock);
