// Where one utterance ends and the next begins, in a continuous session whose results are utterances of their own
// (`utterances=separate`). Between them everything that a run reported goes, so that the next first text stops the
// prompt again, silence behind an answer means nothing, and no document repeats what an earlier one said. `finalize` is
// lowered, and the timeouts are those of the session again, with what the dialplan has set meanwhile.
//
// Twin mode. The first run that brings a result makes the result of the utterance. Another run that has reported words
// by then is taken to hear the same utterance and goes through it unheard, up to its own finish or error. One that has
// not is taken to have missed it: what it reports later is an utterance of its own.
//
// All hold the session's result_lock.
#pragma once

#include "../record/session.h"

// The plugin's record gets the session's complete and incomplete timeouts, unless the plugin is being stopped.
void quillbrook_take_timeouts(const quillbrook_speech_t *session, quillbrook_run_t &run)
    QUILLBROOK_REQUIRES(session->result_lock);

// What the run reports from now on is another utterance.
void quillbrook_end_utterance(const quillbrook_speech_t *session, quillbrook_run_t &run)
    QUILLBROOK_REQUIRES(session->result_lock);

// The other runs that are in an utterance go through it unheard: `run` has made the result.
void quillbrook_overtake_other_runs(const quillbrook_run_t &run);
