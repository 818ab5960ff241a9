#include "judgement.h"

#include "../support/guard.h"

bool quillbrook_ask_grammars(const quillbrook_message &message, quillbrook_question &question) {
  quillbrook_speech_t *session = message.session;
  const quillbrook_transcript_t &transcript = message.transcript;
  const quillbrook_engine_t &engine = *session->engine;
  if (!engine.returnnlsml || engine.returnjson || transcript.overtaken || !transcript.text || !transcript.text[0]) {
    return false;
  }
  MutexLock held(session->grammar_lock);
  if (!session->grammars.hasGrammar()) {
    return false;
  }
  question.grammars = session->grammars;
  copy_text(question.grammar_id, session->grammar_id);
  question.text = transcript.text;
  return true;
}

quillbrook_judgement quillbrook_judge(const quillbrook_question &question) {
  quillbrook_judgement judgement;
  judgement.asked = true;
  copy_text(judgement.grammar_id, question.grammar_id);
  const GrammarMatch none = {"", "", "", "out of memory"};  // short enough to need none
  judgement.match =
      guarded("GrammarManager::match", none, [&] { return question.grammars.matchInFull(question.text); });
  return judgement;
}
