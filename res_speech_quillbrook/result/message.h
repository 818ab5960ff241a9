// One call of the callback on its way through the phases.
#pragma once

#include "../session/session.h"

struct quillbrook_message {
  quillbrook_context *context;
  struct ast_speech *speech;
  quillbrook_speech_t *session;
  const char *text;  // the plugin's, or null
  int score;         // as sent; a phase that decides that the recognition ends makes it QUILLBROOK_SCORE_FINISH
  int hold = 0;      // the plugin is closing: a timer or a final piece must not finish the call yet

  bool has_text() const { return text && text[0]; }
  bool is_finish() const { return score == QUILLBROOK_SCORE_FINISH; }
};
