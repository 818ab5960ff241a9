// What the session's active grammars say to a text. The question is put under the session's locks, and answered without
// any: a match may take seconds, and nobody else of the session is to wait for it. The gate of the run stays taken, so
// the text stays as it is, and so does the run.
#pragma once

#include "message.h"

// The grammars are those that are active when the question is put: what the dialplan changes meanwhile counts for the
// next text.
struct quillbrook_question {
  GrammarManager grammars;
  char grammar_id[kGrammarNameSize];
  const char *text;  // of the transcript
};

struct quillbrook_judgement {
  bool asked = false;
  char grammar_id[kGrammarNameSize] = "";  // that the result is attributed to
  GrammarMatch match;
};

// Fills in the question. False when the grammars have no say: without a text or an active grammar, and where the result
// is no NLSML document.
bool quillbrook_ask_grammars(const quillbrook_message &message, quillbrook_question &question)
    QUILLBROOK_REQUIRES(message.session->result_lock);

// Never throws: what keeps from an answer is a match that was given up.
quillbrook_judgement quillbrook_judge(const quillbrook_question &question);
