#include "delivery.h"

#include "../record/speech_state.h"
#include "../support/guard.h"
#include "nlsml.h"
#include "result_file.h"

namespace {

// `incompletetimeout` of a plugin that is told to finalise after its result is out.
constexpr int kTimeoutAfterResult = 100;

// Names the next result file of the session.
void next_result_path(char (&path)[kResultPathSize], quillbrook_speech_t *session, const char *extension) {
  session->counter_result += 1;
  quillbrook_result_path(path, session->name, session->counter_result, extension);
  trace(2, "Set file result =%s\n", path);
}

void fail(const quillbrook_message &message, const char *path) QUILLBROOK_REQUIRES(message.session->result_lock) {
  ast_log(LOG_ERROR, "(%s) Cannot create recognition result file : %s!\n", message.session->name, path);
  quillbrook_queue_result(message.speech, message.session, "error");
}

void deliver_json(const quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock) {
  quillbrook_speech_t *session = message.session;
  quillbrook_transcript_t &transcript = message.transcript;
  char path[kResultPathSize];
  next_result_path(path, session, "json");
  const char *content = transcript.json ? transcript.json : transcript.text;
  if (!quillbrook_write_result_file(path, [content](FILE *file) { fputs(content, file); })) {
    fail(message, path);
    return;
  }
  session_notice(session, "Recognition result: %s (with file %s)\n", transcript.text, path);
  quillbrook_queue_result(message.speech, message.session, path);
  // The next finish of a continuous session must not find this text again.
  if (session->engine->continuous) {
    quillbrook_release_text(transcript.text);
  }
}

void copy_grammar_id(char (&grammar_id)[kGrammarNameSize], quillbrook_speech_t *session) {
  MutexLock held(session->grammar_lock);
  copy_text(grammar_id, session->grammar_id);
}

// Memory may run out on a long text, and the transcript is to be delivered all the same.
std::string tags_of(const GrammarManager &grammars, const char *text) {
  return guarded("GrammarManager::match", std::string(), [&] { return grammars.match(text); });
}

// The tags of the session's grammars become the interpretation. A transcript that no active grammar accepts is no
// match, whatever confidence the provider gave.
void apply_grammars(const quillbrook_message &message) {
  quillbrook_speech_t *session = message.session;
  quillbrook_transcript_t &transcript = message.transcript;
  MutexLock held(session->grammar_lock);
  if (!session->grammars.hasGrammar()) {
    return;
  }
  const std::string rule = tags_of(session->grammars, transcript.text);
  trace(2, "JSGF input = %s\n", transcript.text);
  if (rule.empty()) {
    trace(2, "JSGF grammar no match !\n");
    transcript.score = 0;
    return;
  }
  trace(2, "JSGF grammar match = %s\n", rule.c_str());
  quillbrook_release_text(transcript.interpretation);
  transcript.interpretation = ast_strdup(rule.c_str());
}

void finalize_after_result(const quillbrook_message &message) {
  const int hangup = shared_load(message.context->hangup);
  trace(2, "CALLBACK: hangup recognize session %d\n", hangup);
  if (message.session->engine->continuous && !hangup) {
    session_notice(message.session, "Mode continuous : don't finalize.\n");
    return;
  }
  shared_store(message.context->incompletetimeout, kTimeoutAfterResult);
  shared_store(message.context->finalize, 1);
}

void deliver_nlsml(const quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock) {
  quillbrook_speech_t *session = message.session;
  quillbrook_transcript_t &transcript = message.transcript;
  char grammar_id[kGrammarNameSize];
  copy_grammar_id(grammar_id, session);
  session_notice(session, "grammar %s\n", grammar_id);
  char path[kResultPathSize];
  next_result_path(path, session, "xml");
  trace(2, "Use interpretation = %s\n", shown(transcript.interpretation));
  trace(2, "Use text = %s\n", transcript.text);
  apply_grammars(message);
  const quillbrook_nlsml document = {grammar_id, transcript.score, transcript.text, transcript.interpretation,
                                     transcript.json};
  if (quillbrook_write_result_file(path, [&document](FILE *file) { quillbrook_write_nlsml(file, document); })) {
    session_notice(session, "Recognition result: %s (with file %s)\n", transcript.text, path);
    str_fifo_push(&session->last_results, path);
    quillbrook_note_result(message.session);
    session_notice(session, "Set last result : %d\n", static_cast<int>(str_fifo_count(&session->last_results)));
    quillbrook_release_text(transcript.interpretation);
    quillbrook_release_text(transcript.text);
    transcript.scores_total = 0;
    transcript.scores_count = 0;
    quillbrook_set_done(message.speech, message.session);
  } else {
    fail(message, path);
  }
  finalize_after_result(message);
}

void deliver_text(const quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock) {
  quillbrook_speech_t *session = message.session;
  quillbrook_transcript_t &transcript = message.transcript;
  session_notice(session, "Asterisk speech variable recognition result: %s\n", transcript.text);
  quillbrook_queue_result(message.speech, message.session, transcript.text);
  quillbrook_release_text(transcript.text);
}

}  // namespace

void quillbrook_deliver(quillbrook_message &message) {
  const quillbrook_engine_t &engine = *message.session->engine;
  if (!message.transcript.text || !message.transcript.text[0]) {
    return;
  }
  message.recognition->delivered = &message.transcript;
  if (engine.returnjson) {
    deliver_json(message);
  } else if (engine.returnnlsml) {
    deliver_nlsml(message);
  } else {
    deliver_text(message);
  }
}
