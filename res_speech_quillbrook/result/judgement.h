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
  const char *finished = nullptr;  // the transcript's text, when it is at its end
  std::string growing;             // else what there is of it by now
  bool last_word_grows = false;
};

struct quillbrook_judgement {
  bool asked = false;                      // about a finished text
  char grammar_id[kGrammarNameSize] = "";  // that the result is attributed to
  GrammarMatch match;
  GrammarExtent extent;  // of a growing text
};

// Fills in the question: what a finished text means, where the result is an NLSML document; how far a new text is that
// is not at its end, where that chooses a timeout. False when there is nothing to ask, or no active grammar.
bool quillbrook_ask_grammars(const quillbrook_message &message, quillbrook_question &question)
    QUILLBROOK_REQUIRES(message.session->result_lock);

// Never throws: what keeps from an answer is a match that was given up.
quillbrook_judgement quillbrook_judge(const quillbrook_question &question);

// The extent of a growing text goes into the transcript. Where judging was given up no text of the utterance is judged
// again: each would take as long.
void quillbrook_note_extent(const quillbrook_message &message, const quillbrook_judgement &judgement)
    QUILLBROOK_REQUIRES(message.session->result_lock);
