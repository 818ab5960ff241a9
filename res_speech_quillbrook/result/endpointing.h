// The decision when an utterance has ended, judged from the text stream and from the silence in the audio.
// docs/endpointing.md draws the timers on a time line.
//
// Two measures of silence: how long the text stream has brought nothing new (from `datesilence`), and how long the
// audio has been quiet (`silence` of the session, 0 without a detector). Nothing runs before the first text, so a
// caller who says nothing is never timed out here. A timer can only fire on a call from the plugin.
//
// All hold the session's result_lock and are called in this order.
#pragma once

#include "message.h"

// Takes the time of the call, and works out whether a closing plugin holds back the module's own finishes.
void quillbrook_read_clock(quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock);

// Dates the first call at which the audio was not silent.
void quillbrook_note_voice(quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock);

// Dates the first text of the recognition, and tells the host that the caller speaks, so that it stops its prompt.
void quillbrook_note_first_text(quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock);

// Moves the date of silence and tests the timeouts. Outcome: nothing; the plugin is asked to finalise, with
// `completetimeout` and `incompletetimeout` of its record rewritten; the message becomes a finish; or "error" is
// queued.
void quillbrook_run_timers(quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock);

// Milliseconds from this call to the first one that can find a timeout expired, 0 when the next one may; INT_MAX while
// none runs. It reckons with audio that stays silent from now on, so it is never too late for a caller in real time.
int quillbrook_next_timer(const quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock);
