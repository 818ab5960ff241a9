#include "judgement.h"

#include "../support/guard.h"
#include "../support/printable.h"
#include "transcript.h"

namespace {

bool asks_for_meaning(const quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock) {
  const quillbrook_transcript_t &transcript = message.transcript;
  const quillbrook_engine_t &engine = *message.session->engine;
  return engine.returnnlsml && !engine.returnjson && !transcript.overtaken && transcript.text && transcript.text[0];
}

bool asks_for_extent(const quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock) {
  quillbrook_speech_t *session = message.session;
  return message.is_new_text && session->timeouts && shared_load(session->grammartimeouts) &&
         !message.transcript.extent_given_up;
}

bool take_grammars(quillbrook_speech_t *session, quillbrook_question &question) {
  MutexLock held(session->grammar_lock);
  if (!session->grammars.hasGrammar()) {
    return false;
  }
  question.grammars = session->grammars;
  copy_text(question.grammar_id, session->grammar_id);
  return true;
}

}  // namespace

bool quillbrook_ask_grammars(const quillbrook_message &message, quillbrook_question &question) {
  const bool asks = message.is_finish() ? asks_for_meaning(message) : asks_for_extent(message);
  if (!asks || !take_grammars(message.session, question)) {
    return false;
  }
  const quillbrook_transcript_t &transcript = message.transcript;
  if (message.is_finish()) {
    question.finished = transcript.text;
    return true;
  }
  try {
    question.growing = quillbrook_text_so_far(message);
  } catch (const std::bad_alloc &) {
    return false;  // the timeouts do without it
  }
  question.last_word_grows = transcript.text_interim != nullptr;
  return true;
}

quillbrook_judgement quillbrook_judge(const quillbrook_question &question) {
  constexpr const char *kReason = "out of memory";  // short enough to need none
  quillbrook_judgement judgement;
  if (!question.finished) {
    judgement.extent = guarded("GrammarManager::judgeExtent", GrammarExtent{kExtentUnknown, "", kReason}, [&] {
      return question.grammars.judgeExtent(question.growing, question.last_word_grows);
    });
    return judgement;
  }
  judgement.asked = true;
  copy_text(judgement.grammar_id, question.grammar_id);
  judgement.match = guarded("GrammarManager::match", GrammarMatch{"", "", "", kReason},
                            [&] { return question.grammars.matchInFull(question.finished); });
  return judgement;
}

void quillbrook_note_extent(const quillbrook_message &message, const quillbrook_judgement &judgement) {
  if (judgement.asked) {
    return;
  }
  const auto &[extent, grammar, gave_up] = judgement.extent;
  message.transcript.extent = extent;
  trace(2, "CALLBACK: the grammars call it %d\n", static_cast<int>(extent));
  if (!gave_up.empty()) {
    message.transcript.extent_given_up = 1;
    session_log(LOG_ERROR, message.session,
                "Judging the words by the grammar %s was given up: %s; the timeouts do without it\n",
                Printable(grammar).text(), Printable(gave_up).text());
  }
}
