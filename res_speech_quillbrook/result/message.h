// One call of the callback on its way through the phases.
#pragma once

#include "../record/session.h"

struct quillbrook_message {
  quillbrook_context *context;
  struct ast_speech *speech;
  quillbrook_speech_t *session;
  quillbrook_recognition_t *recognition;
  quillbrook_transcript_t &transcript;  // of the run that reports
  const char *text;                     // the plugin's, or null
  int score;                 // as sent; a phase that decides that the recognition ends makes it QUILLBROOK_SCORE_FINISH
  int hold = 0;              // the plugin is closing: a timer or a final piece must not finish the call yet
  bool timed_out = false;    // a timer has finished the utterance
  bool failed = false;       // the incomplete timeout has ended the utterance
  bool is_new_text = false;  // the transcript has taken words over that differ from the last ones
  bool has_result = false;   // the call has queued a result, be it an error
  const char *expired = nullptr;  // a timer that has run out, and its limit
  int limit = 0;
  int complete_limit = 0;  // the complete timeout at this call, as the grammars chose it; 0: it does not run

  bool has_text() const { return text && text[0]; }
  bool is_tick() const { return score == QUILLBROOK_SCORE_INTERIM && !has_text(); }
  bool is_finish() const { return score == QUILLBROOK_SCORE_FINISH; }
  // Score and text of "nothing was understood": one byte that is no blank, without confidence.
  bool is_no_match() const {
    return score == QUILLBROOK_SCORE_NO_CONFIDENCE && has_text() && text[0] != ' ' && !text[1];
  }
  // Whether the transcript takes the text over.
  bool has_words() const { return has_text() && (score == QUILLBROOK_SCORE_INTERIM || score > 0 || is_no_match()); }
};

// What a message finds, in the host's verbose output. A tick finds the same again and again, and writes what it
// changes.
#define trace_state(message, ...) \
  do {                            \
    if (!(message).is_tick()) {   \
      trace(2, __VA_ARGS__);      \
    }                             \
  } while (0)
