#include "delivery.h"

#include "../record/speech_state.h"
#include "../support/guard.h"
#include "../support/own_files.h"
#include "nlsml.h"
#include "result_file.h"
#include "../support/printable.h"

namespace {

// `incompletetimeout` of a plugin that is told to finalise after its result is out.
constexpr int kTimeoutAfterResult = 100;

// Names the next result file of the session. Files that were kept, from an earlier session of this name, stay.
void next_result_path(char (&path)[kResultPathSize], quillbrook_speech_t *session, const char *extension) {
  do {
    session->counter_result += 1;
    quillbrook_result_path(path, session->name, session->counter_result, extension);
  } while (session->engine->keepfiles && quillbrook_file_exists(path));
  trace(2, "Set file result =%s\n", path);
}

// `error` is the system's.
void fail(const quillbrook_message &message, const char *path, int error)
    QUILLBROOK_REQUIRES(message.session->result_lock) {
  session_log(LOG_ERROR, message.session, "Cannot create recognition result file : %s!\n", path);
  char reason[kResultPathSize + 80];
  snprintf(reason, sizeof(reason), "%s: %s", path, strerror(error));
  quillbrook_queue_error(message.speech, message.session, kCauseStorage, reason);
}

std::string text_or_empty(const char *text) {
  return text ? text : "";
}

bool gave_up(const quillbrook_judgement &judgement) {
  return !judgement.match.gave_up.empty();
}

bool is_refused(const quillbrook_judgement &judgement) {
  return judgement.asked && !gave_up(judgement) && judgement.match.tags.empty();
}

quillbrook_cause cause_of(const quillbrook_transcript_t &transcript, const quillbrook_judgement &judgement) {
  if (is_refused(judgement) || transcript.no_match) {
    return kCauseNoMatch;
  }
  return gave_up(judgement) ? kCauseGrammar : kCauseUnderstood;
}

void fill(quillbrook_result_t &details, const quillbrook_transcript_t &transcript,
          const quillbrook_judgement &judgement) {
  details.input = text_or_empty(transcript.text);
  details.json = text_or_empty(transcript.json);
  if (is_refused(judgement)) {
    details.reason = "no active grammar accepts the text";
  } else if (transcript.no_match) {
    details.reason = "the recogniser understood nothing";
  } else {
    details.meaning = text_or_empty(transcript.interpretation);
    if (gave_up(judgement)) {
      details.reason = judgement.match.grammar + ": " + judgement.match.gave_up;
    } else {
      details.grammar = judgement.match.grammar;
      details.rule = judgement.match.rule;
    }
  }
}

// What is known about the text that is delivered. Without memory for it the text is delivered all the same.
quillbrook_result_t describe(const quillbrook_transcript_t &transcript, const quillbrook_judgement &judgement) {
  quillbrook_result_t details;
  details.cause = cause_of(transcript, judgement);
  details.score = transcript.score;
  guarded("quillbrook_deliver", 0, [&] {
    fill(details, transcript, judgement);
    return 0;
  });
  return details;
}

// The next finish of the recognition must not find this text again.
void take_text_away(quillbrook_transcript_t &transcript) {
  quillbrook_release_text(transcript.text);
  transcript.json_pieces.clear();
  transcript.extent = kExtentUnknown;
  transcript.extent_given_up = 0;
}

// A document takes the interpretation and the scores with it.
void take_all_away(quillbrook_transcript_t &transcript) {
  quillbrook_release_text(transcript.interpretation);
  take_text_away(transcript);
  transcript.scores_total = 0;
  transcript.scores_count = 0;
}

void deliver_json(const quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock) {
  quillbrook_speech_t *session = message.session;
  quillbrook_transcript_t &transcript = message.transcript;
  char path[kResultPathSize];
  next_result_path(path, session, "json");
  const char *content = transcript.json ? transcript.json : transcript.text;
  if (!quillbrook_write_result_file(path, session->engine->keepfiles,
                                    [content](FILE *file) { fputs(content, file); })) {
    fail(message, path, errno);
    return;
  }
  session_notice(session, "Recognition result: %s (with file %s)\n", Printable(transcript.text).text(), path);
  quillbrook_queue_result(message.speech, message.session, path, describe(transcript, {}));
  if (session->engine->continuous) {
    take_text_away(transcript);
  }
}

void copy_grammar_id(char (&grammar_id)[kGrammarNameSize], quillbrook_speech_t *session) {
  MutexLock held(session->grammar_lock);
  copy_text(grammar_id, session->grammar_id);
}

// The tags of the session's grammars become the interpretation. A transcript that no active grammar accepts is no
// match, whatever confidence the provider gave. One whose match was given up stays as the provider left it: it may well
// be what was asked for.
void apply(const quillbrook_message &message, const quillbrook_judgement &judgement) {
  quillbrook_transcript_t &transcript = message.transcript;
  if (!judgement.asked) {
    return;
  }
  trace(2, "JSGF input = %s\n", Printable(transcript.text).text());
  if (gave_up(judgement)) {
    session_log(LOG_ERROR, message.session, "The match with the grammar %s was given up: %s; %s\n",
                Printable(judgement.match.grammar).text(), Printable(judgement.match.gave_up).text(),
                quillbrook_cause_advice(kCauseGrammar));
    return;
  }
  const std::string &tags = judgement.match.tags;
  if (tags.empty()) {
    trace(2, "JSGF grammar no match !\n");
    transcript.score = 0;
    return;
  }
  trace(2, "JSGF grammar match = %s\n", Printable(tags).text());
  quillbrook_release_text(transcript.interpretation);
  transcript.interpretation = ast_strdup(tags.c_str());
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

void deliver_nlsml(const quillbrook_message &message, const quillbrook_judgement &judgement)
    QUILLBROOK_REQUIRES(message.session->result_lock) {
  quillbrook_speech_t *session = message.session;
  quillbrook_transcript_t &transcript = message.transcript;
  char grammar_id[kGrammarNameSize];
  if (judgement.asked) {
    copy_text(grammar_id, judgement.grammar_id);
  } else {
    copy_grammar_id(grammar_id, session);
  }
  session_notice(session, "grammar %s\n", Printable(grammar_id).text());
  char path[kResultPathSize];
  next_result_path(path, session, "xml");
  trace(2, "Use interpretation = %s\n", Printable(transcript.interpretation).text());
  trace(2, "Use text = %s\n", Printable(transcript.text).text());
  apply(message, judgement);
  const quillbrook_nlsml document = {grammar_id, transcript.score, transcript.text, transcript.interpretation,
                                     transcript.json};
  if (quillbrook_write_result_file(path, session->engine->keepfiles,
                                   [&document](FILE *file) { quillbrook_write_nlsml(file, document); })) {
    session_notice(session, "Recognition result: %s (with file %s)\n", Printable(transcript.text).text(), path);
    quillbrook_push_result(message.session, path, describe(transcript, judgement));
    session_notice(session, "Set last result : %d\n", static_cast<int>(str_fifo_count(&session->last_results)));
    take_all_away(transcript);
    quillbrook_set_done(message.speech, message.session);
  } else {
    fail(message, path, errno);
  }
  finalize_after_result(message);
}

void deliver_text(const quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock) {
  quillbrook_speech_t *session = message.session;
  quillbrook_transcript_t &transcript = message.transcript;
  session_notice(session, "Asterisk speech variable recognition result: %s\n", Printable(transcript.text).text());
  quillbrook_queue_result(message.speech, message.session, transcript.text, describe(transcript, {}));
  take_text_away(transcript);
}

// What the queue does not take. The session goes on as behind a delivery.
void drop(const quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock) {
  const quillbrook_engine_t &engine = *message.session->engine;
  if (engine.returnnlsml && !engine.returnjson) {
    take_all_away(message.transcript);
    finalize_after_result(message);
  } else {
    take_text_away(message.transcript);
  }
  quillbrook_set_done(message.speech, message.session);
}

// An utterance of which nothing was kept, because its text had no confidence or there was no memory. The text has
// switched off the dialplan's own timeout, so when no more is to come the caller is let go. A plugin's own finish
// leaves that to the timers.
void deliver_nothing(quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock) {
  const bool over = message.timed_out || quillbrook_utterances_are_separate(*message.session->engine);
  if (message.transcript.unanswered && over) {
    message.has_result = true;
    quillbrook_queue_error(message.speech, message.session, kCausePlugin, "a text came of which nothing could be kept");
  }
}

}  // namespace

void quillbrook_deliver(quillbrook_message &message, const quillbrook_judgement &judgement) {
  const quillbrook_engine_t &engine = *message.session->engine;
  if (message.transcript.overtaken) {
    return;
  }
  if (!message.transcript.text || !message.transcript.text[0]) {
    deliver_nothing(message);
    return;
  }
  message.has_result = true;
  message.recognition->delivered = &message.transcript;
  if (!quillbrook_takes_result(message.session)) {
    drop(message);
  } else if (engine.returnjson) {
    deliver_json(message);
  } else if (engine.returnnlsml) {
    deliver_nlsml(message, judgement);
  } else {
    deliver_text(message);
  }
  message.transcript.no_match = 0;
}
