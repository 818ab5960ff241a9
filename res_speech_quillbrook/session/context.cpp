#include "context.h"

#include "../result/callback.h"
#include "../support/guard.h"
#include "../support/printable.h"

namespace {

// The session's text when it is not empty, else the engine's.
template <size_t Size>
void copy_first(char (&target)[Size], const char *session_text, const char *engine_text) {
  copy_text(target, session_text[0] ? session_text : engine_text);
}

// Without memory for the words the recognition runs all the same, on the other phrases.
std::string words_of(const GrammarManager &grammars) {
  return guarded("GrammarManager::words", std::string(), [&grammars] { return grammars.words(); });
}

// The words of the session's grammars, when they give any.
std::string grammar_words(quillbrook_speech_t *session) {
  GrammarManager grammars;
  {
    MutexLock held(session->grammar_lock);
    grammars = session->grammars;
  }
  if (!grammars.hasGrammar()) {
    return {};
  }
  session_notice(session, "Grammar normalize_phrases=%d\n", session->engine->normalize_phrases);
  std::string words = words_of(grammars);
  session_notice(session, "Grammar words: %s\n", Printable(words).text());
  return words;
}

void fill_phrases(quillbrook_context *context, quillbrook_speech_t *session) {
  const std::string words = grammar_words(session);
  if (!words.empty()) {
    copy_text(context->phrases, words.c_str());
  } else {
    copy_text(context->phrases, session->phrases ? session->phrases : session->engine->ws_phrases);
  }
}

}  // namespace

void quillbrook_fill_context(quillbrook_context *context, struct ast_speech *speech, quillbrook_speech_t *session,
                             quillbrook_recognition_t *recognition) {
  const quillbrook_engine_t &engine = *session->engine;
  context->debug = shared_load(debug) == 2 ? 1 : 0;
  context->speedvsaccuracy = session->speedvsaccuracy;
  context->completetimeout = session->completetimeout;
  context->incompletetimeout = session->incompletetimeout;
  context->maxspeechtimeout = session->maxspeechtimeout;
  copy_first(context->configuration, session->configuration, engine.ws_configuration);
  copy_first(context->model, session->model, engine.ws_model);
  copy_first(context->language, session->language, engine.ws_language);
  copy_first(context->voice, session->voice, engine.ws_voice);
  copy_text(context->profile, engine.ws_url);
  copy_text(context->param, session->loggingtag);
  copy_first(context->context, session->context_text, engine.ws_context);
  copy_text(context->extra, engine.ws_extra);
  fill_phrases(context, session);
  context->buffer_size = engine.ws_buffer_size;
  context->uniqueid = recognition->uniqueid;
  context->mark = recognition->mark;
  context->silence = &recognition->silence;
  context->filename = ast_strdup(recognition->stream.full);
  context->format = engine.ws_format;
  context->config_pointer = recognition->config.get();
  context->asterisk_pointer = speech;
  context->callback = quillbrook_callback;
  context->interims = 1;
  context->filelog = engine.log_file;
  context->thread = kNoThread;
}
