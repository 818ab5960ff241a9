// The road of a message: checks that need no more than a look, then, under the session's result_lock, the phases that
// change something. The timers run before the message's own text is stored, so a call on which a timer fires does not
// add its own words. Where grammars are to judge a text, the lock is let go for as long as that takes.

#include "callback.h"

#include "../ops/statistics.h"
#include "../support/guard.h"
#include "../support/monotonic.h"
#include "delivery.h"
#include "endpointing.h"
#include "message.h"
#include "transcript.h"
#include "utterance.h"
#include "../record/observation.h"
#include "../support/printable.h"

namespace {

constexpr int64_t kBadScoreInterval = 1000;

int text_length(const char *text) {
  return text ? static_cast<int>(strlen(text)) : 0;
}

// The end of the plugin's session, where it is waited for, is a finish. False when there is nothing more to do.
bool take_session_end(quillbrook_message &message) {
  if (!message.session->engine->waitclose) {
    trace(2, "CALLBACK: end of the plugin session (-200)\n");
    return false;
  }
  session_notice(message.session, "Plugin session closed, finalize the result\n");
  message.score = QUILLBROOK_SCORE_FINISH;
  return true;
}

void report_bad_score(const quillbrook_message &message) {
  const char *extra = static_cast<const char *>(message.context->extra_pointer);
  if (shared_load(verbose) && host_verbosity_at_least(2)) {
    __ast_verbose(__FILE__, __LINE__, __PRETTY_FUNCTION__, 2, "CALLBACK: text [%s] score=%d len=%d context=%s\n",
                  Printable(message.text).text(), message.score, text_length(message.text), Printable(extra).text());
  }
  quillbrook_speech_t *session = message.session;
  MutexLock held(session->result_lock);
  quillbrook_bad_scores &bad = session->bad_scores;
  const int64_t now = monotonic_ms();
  if (bad.came && now - bad.last_line < kBadScoreInterval) {
    bad.more += bad.more < INT_MAX;
    return;
  }
  char more[64] = "";
  if (bad.more) {
    snprintf(more, sizeof(more), " (and %d more since the last line)", bad.more);
  }
  session_log(LOG_ERROR, session, "CALLBACK: text [%s] score=%d len=%d context=%s%s\n", Printable(message.text).text(),
              message.score, text_length(message.text), Printable(extra).text(), more);
  bad = {true, 0, now};
}

// A single-shot recognition has one result: what comes behind it is too late.
bool is_too_late(const quillbrook_message &message) {
  if (message.session->engine->continuous) {
    return false;
  }
  const int count = static_cast<int>(str_fifo_count(&message.session->last_results));
  if (count == 0) {
    return false;
  }
  if (!message.text) {
    trace_state(message, "CALLBACK: Too late, we have already a result! (%d)\n", count);
  } else if (shared_load(debug)) {
    session_log(LOG_WARNING, message.session, "CALLBACK: Too late, we have already a result! (%d)\n", count);
  }
  return true;
}

void trace_settings(const quillbrook_message &message) {
  if (message.is_tick() || !shared_load(debug) || !host_verbosity_at_least(2)) {
    return;
  }
  const quillbrook_context *context = message.context;
  quillbrook_speech_t *session = message.session;
  const quillbrook_transcript_t &transcript = message.transcript;
  if (context->silence) {
    trace(2, "CALLBACK: DSP silence=%d\n", shared_load(*context->silence));
  }
  trace(2, "CALLBACK: timeouts=%d\n", session->timeouts);
  trace(2, "CALLBACK: timeout completetimeout=%d\n", shared_load(context->completetimeout));
  trace(2, "CALLBACK: timeout incompletetimeout=%d\n", shared_load(context->incompletetimeout));
  trace(2, "CALLBACK: timeout minspeechtimeout=%d\n", shared_load(session->minspeechtimeout));
  trace(2, "CALLBACK: timeout maxspeechtimeout=%d\n", context->maxspeechtimeout);
  trace(2, "CALLBACK: timeout speedvsaccuracy=%f\n", static_cast<double>(context->speedvsaccuracy));
  trace(2, "CALLBACK: timeout speechtimeout=%d\n", shared_load(session->speechtimeout));
  trace(2, "CALLBACK: timeout extendedtimeout=%d\n", shared_load(session->extendedtimeout));
  trace(2, "CALLBACK: timeout earlyspeechtimeout=%d\n", shared_load(session->earlyspeechtimeout));
  trace(2, "CALLBACK: timeout provider=%d\n", session->providertimeout);
  trace(2, "CALLBACK: interpretation = %s\n", Printable(transcript.interpretation).text());
  trace(2, "CALLBACK: text = %s\n", Printable(transcript.text).text());
  trace(2, "CALLBACK: last_result = %d\n", static_cast<int>(str_fifo_count(&session->last_results)));
}

// The phases in their order, up to the one that leaves nothing to do.
void take(quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock) {
  quillbrook_read_clock(message);
  quillbrook_note_voice(message);
  quillbrook_take_extras(message);
  quillbrook_note_first_text(message);
  quillbrook_run_timers(message);
  quillbrook_observe_timers(message.session, *quillbrook_run_of(message.context),
                            {message.complete_limit, message.expired, message.limit});

  if (quillbrook_is_repeated_interim(message)) {
    return;
  }
  if (message.has_words()) {
    message.transcript.datewords = message.transcript.datelast;
    message.transcript.extent = kExtentUnknown;
    message.is_new_text = true;
    quillbrook_observe_words(message.session, message.text, message.score);
  }
  quillbrook_store_interim(message);
  quillbrook_take_no_match(message);
  quillbrook_append_final(message);

  if (message.is_finish()) {
    quillbrook_close_text(message);
  }
}

// An utterance of its own ends with a finish, also one without a text, and with an error.
void end_utterance(const quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock) {
  if (!quillbrook_utterances_are_separate(*message.session->engine) || !(message.is_finish() || message.failed)) {
    return;
  }
  quillbrook_run_t &run = *quillbrook_run_of(message.context);
  if (message.has_result) {
    quillbrook_overtake_other_runs(run);
  }
  quillbrook_end_utterance(message.session, run);
}

void settle(quillbrook_message &message, const quillbrook_judgement &judgement)
    QUILLBROOK_REQUIRES(message.session->result_lock) {
  if (message.is_finish()) {
    quillbrook_deliver(message, judgement);
  }
  end_utterance(message);
  const int next = quillbrook_next_timer(message);
  shared_store(quillbrook_run_of(message.context)->next_timer, next == INT_MAX ? kNoTimer : monotonic_ms() + next);
}

// While the grammars were asked the session may have begun to end, the dialplan have turned to another question, or
// another run have made the result. An error that the message itself has queued by then changes nothing.
bool is_over(const quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock) {
  return !quillbrook_session_of(message.speech) || message.recognition->abandoned ||
         (!message.has_result && is_too_late(message));
}

// The lock is taken ahead of the late gate, so that of two finishes at one time the second one finds the first one's
// result.
int process(quillbrook_message &message, bool session_ended) {
  quillbrook_question question;
  {
    MutexLock held(message.session->result_lock);
    message.recognition->silence_reported = 0;
    if (session_ended) {
      shared_store(message.recognition->plugin_closed, 1);
    }
    if (is_too_late(message)) {
      return -1;
    }
    if (message.has_text()) {
      quillbrook_statistics_message(message.score);
      count(message.session->statistics->messages);
    }
    trace_settings(message);
    quillbrook_observe_call(message.session, *quillbrook_run_of(message.context), message.text, message.score,
                            session_ended);
    take(message);
    if (!quillbrook_ask_grammars(message, question)) {
      settle(message, {});
      return 0;
    }
    message.recognition->matches += 1;
  }
  const quillbrook_judgement judgement = quillbrook_judge(question);
  MutexLock held(message.session->result_lock);
  message.recognition->matches -= 1;
  shared_store(message.recognition->last_call, monotonic_ms());
  if (is_over(message)) {
    return -1;
  }
  quillbrook_note_extent(message, judgement);
  settle(message, judgement);
  return 0;
}

void trace_message(const quillbrook_message &message) {
  if (message.is_tick() || !shared_load(debug) || !host_verbosity_at_least(2)) {
    return;
  }
  trace(2, "\n\nCALLBACK: PROCESS\n\n");
  trace(2, "CALLBACK: finalize = %d\n", shared_load(message.context->finalize));
  if (message.text) {
    trace(2, "CALLBACK: [%s] - score %d len=%d\n", Printable(message.text).text(), message.score,
          text_length(message.text));
  } else {
    trace(2, "CALLBACK: [NULL] - score %d\n", message.score);
  }
}

int receive(quillbrook_context *context, const char *text, int score) {
  if (!context) {
    trace(2, "CALLBACK: Error, context is NULL?\n");
    return -1;
  }
  quillbrook_run_t &run = *quillbrook_run_of(context);
  MutexLock passing(run.gate);
  if (!run.session || !quillbrook_session_of(run.speech)) {
    trace(2, "CALLBACK: No Quillbrook context...\n");
    return -1;
  }
  shared_store(run.recognition->last_call, monotonic_ms());

  quillbrook_message message = {context, run.speech, run.session, run.recognition, run.transcript, text, score};
  trace_message(message);
  bool session_ended = false;
  if (score == QUILLBROOK_SCORE_END) {
    session_ended = take_session_end(message);
    if (!session_ended) {
      return 0;
    }
  } else if (score < QUILLBROOK_SCORE_FINISH) {
    report_bad_score(message);
    return -1;
  }
  return process(message, session_ended);
}

}  // namespace

int quillbrook_callback(quillbrook_context *context, const char *text, int score) {
  return guarded("quillbrook_callback", -1, [=] { return receive(context, text, score); });
}

void quillbrook_report_more_bad_scores(quillbrook_speech_t *session) {
  MutexLock held(session->result_lock);
  if (const int more = std::exchange(session->bad_scores.more, 0)) {
    session_log(LOG_ERROR, session, "CALLBACK: %d more messages with a bad score\n", more);
  }
}
