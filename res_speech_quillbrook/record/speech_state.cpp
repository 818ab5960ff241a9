#include "speech_state.h"

#include "../support/printable.h"
#include "observation.h"

namespace {

// Never destroyed: a PBX that ends without unloading its modules leaves the watch asleep on it, and to destroy what a
// thread waits on is to wait for that thread.
alignas(Bell) char bell_storage[sizeof(Bell)];

}  // namespace

Bell &quillbrook_watch_bell = *new (bell_storage) Bell();

namespace {

void log_failure(const quillbrook_speech_t *session, quillbrook_cause cause, const char *reason) {
  char engine[kEngineNameSize];
  quillbrook_engine_host_name(*session->engine, engine, sizeof(engine));
  ast_log(LOG_WARNING, "(%s) %s has no result (%s): %s; %s\n", session->name, engine, quillbrook_cause_name(cause),
          Printable(reason).text(), quillbrook_cause_advice(cause));
}

// Without memory the result counts more than what is known about it.
quillbrook_result_t failure(quillbrook_cause cause, const char *reason) {
  quillbrook_result_t details;
  details.cause = cause;
  try {
    details.reason = Printable(reason).text();
  } catch (const std::bad_alloc &) {
  }
  return details;
}

std::shared_ptr<const quillbrook_result_t> share(quillbrook_result_t details) {
  try {
    return std::make_shared<const quillbrook_result_t>(std::move(details));
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
}

void fill_moments(const quillbrook_speech_t *session, quillbrook_result_t &details) {
  const quillbrook_recognition_t *recognition = session->recognition;
  if (!recognition || !recognition->delivered) {
    return;
  }
  const quillbrook_transcript_t &transcript = *recognition->delivered;
  details.length = ast_tvdiff_ms(ast_tvnow(), transcript.datestart);
  if (!ast_tvzero(transcript.datefirst)) {
    details.first = ast_tvdiff_ms(transcript.datefirst, transcript.datestart);
  }
}

void count_result(quillbrook_speech_t *session, quillbrook_cause cause) {
  count(session->statistics->results[cause]);
  quillbrook_recognition_t *recognition = session->recognition;
  if (!recognition) {
    return;
  }
  ++recognition->results;
  recognition->cause = cause;
  if (recognition->delivered && !ast_tvzero(recognition->delivered->datewords)) {
    session->statistics->waiting.add_ms(ast_tvdiff_ms(ast_tvnow(), recognition->delivered->datewords));
    recognition->delivered->datewords = {};
  }
}

bool queue_is_full(quillbrook_speech_t *session) {
  return str_fifo_count(&session->last_results) >= kResultsMax;
}

}  // namespace

bool quillbrook_takes_result(quillbrook_speech_t *session) {
  if (!queue_is_full(session)) {
    return true;
  }
  if (session->recognition && !std::exchange(session->recognition->results_dropped, 1)) {
    session_log(LOG_ERROR, session, "%zu results wait, and nobody fetches them: further ones are dropped\n",
                kResultsMax);
  }
  return false;
}

void quillbrook_push_result(quillbrook_speech_t *session, const char *text, quillbrook_result_t details) {
  if (quillbrook_takes_result(session)) {
    fill_moments(session, details);
    count_result(session, details.cause);
    quillbrook_observe_result(session, text, details);
    str_fifo_push(&session->last_results, text, share(std::move(details)));
  }
  quillbrook_for_each_run(session->recognition, [](quillbrook_run_t &run) { run.transcript.unanswered = 0; });
  session->watch.result_waits = 1;
  session->watch.quieted = 0;
  session->watch.looks_not_ready = 0;
  quillbrook_watch_bell.ring();
}

void quillbrook_queue_result(struct ast_speech *speech, quillbrook_speech_t *session, const char *text,
                             quillbrook_result_t details) {
  quillbrook_push_result(session, text, std::move(details));
  quillbrook_set_done(speech, session);
}

void quillbrook_queue_error(struct ast_speech *speech, quillbrook_speech_t *session, quillbrook_cause cause,
                            const char *reason) {
  if (!queue_is_full(session)) {
    log_failure(session, cause, reason);
  }
  quillbrook_queue_result(speech, session, "error", failure(cause, reason));
}

void quillbrook_note_failure(quillbrook_speech_t *session, quillbrook_cause cause, const char *reason) {
  MutexLock held(session->result_lock);
  if (!session->failure) {  // one line for both runs of a twin
    log_failure(session, cause, reason);
    session->failure = share(failure(cause, reason));
  }
}

void quillbrook_set_done(struct ast_speech *speech, quillbrook_speech_t *session) {
  session_notice(session, "Set state DONE\n");
  quillbrook_observe_state(session, "DONE");
  ast_speech_change_state(speech, AST_SPEECH_STATE_DONE);
}

void quillbrook_set_ready(struct ast_speech *speech, quillbrook_speech_t *session) {
  session_notice(session, "Set state READY\n");
  quillbrook_observe_state(session, "READY");
  ast_speech_change_state(speech, AST_SPEECH_STATE_READY);
}
