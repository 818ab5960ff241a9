#include "../support/guard.h"
#include "../support/monotonic.h"
#include "context.h"
#include "entries.h"
#include "recognition.h"
#include "../record/observation.h"
#include "../record/speech_state.h"
#include "stream_file.h"
#include "streaming_thread.h"

namespace {

// The host put the object to NOT_READY and a digit ended the recognition that runs: its caller has moved on. The host
// takes the digits as the result and never collects ours. Digits count for one start.
bool abandoned_by_digits(const struct ast_speech *speech, quillbrook_speech_t *session) {
  const int digits = std::exchange(session->digits_pending, 0);
  return digits && shared_load(speech->state) == AST_SPEECH_STATE_NOT_READY && !session->engine->continuous;
}

// Whether the host has left a waiting result behind, whose question is over. Counts for one start.
bool takes_passed_over(quillbrook_speech_t *session) {
  MutexLock held(session->result_lock);
  session->watch.quieted = 0;  // the host has just taken the flag back
  return std::exchange(session->watch.passed_over, 0) != 0;
}

// A continuous session goes on without the results that were passed over. One that came behind the host's NOT_READY has
// said DONE: the host would look for it in vain.
void drop_results(struct ast_speech *speech, quillbrook_speech_t *session) {
  MutexLock held(session->result_lock);
  session->watch.result_waits = 0;
  str_fifo_destroy(&session->last_results);
  str_fifo_init(&session->last_results);
  if (shared_load(speech->state) == AST_SPEECH_STATE_DONE) {
    quillbrook_set_ready(speech, session);
  }
}

// What was known about the former result goes, as the result itself does in the host.
void forget(quillbrook_speech_t *session, std::shared_ptr<const quillbrook_result_t> &details) {
  MutexLock held(session->result_lock);
  details = nullptr;
}

// A start on a running recognition releases the prompting wait.
void go_on(struct ast_speech *speech, quillbrook_speech_t *session) {
  session_notice(session, "Recognition already started!\n");
  if (session->earlyspeechtimeout) {
    session_notice(session, "Unlock the earlyspeechtimeout waiting...\n");
    shared_increment(session->recognition->prompting);
  }
  // The host's application sets NOT_READY right before it calls us, and would wait for ever if the object stayed so.
  if (shared_load(speech->state) == AST_SPEECH_STATE_NOT_READY) {
    MutexLock held(session->result_lock);
    if (str_fifo_empty(&session->last_results)) {
      quillbrook_set_ready(speech, session);
    } else {
      quillbrook_set_done(speech, session);
    }
  }
}

void create_dsp(const quillbrook_speech_t *session, quillbrook_recognition_t *recognition) {
  recognition->dsp = ast_dsp_new();
  if (!recognition->dsp) {
    session_log(LOG_WARNING, session, "Unable to allocate DSP!\n");
    return;
  }
  session_notice(session, "Set DSP threshold : %d\n", session->engine->threshold);
  ast_dsp_set_threshold(recognition->dsp, session->engine->threshold);
}

// A run of the plugin, open to its calls; nothing when there is no memory.
void add_run(struct ast_speech *speech, quillbrook_speech_t *session, quillbrook_recognition_t *recognition,
             const struct timeval &now) {
  quillbrook_run_t *run = quillbrook_add_run(recognition);
  if (!run) {
    session_log(LOG_ERROR, session, "Enable to create quillbrook context\n");
    quillbrook_note_failure(session, kCauseMemory, strerror(ENOMEM));
    return;
  }
  run->speech = speech;
  run->transcript.datestart = now;
  MutexLock opening(run->gate);
  run->session = session;
}

void open_stream(quillbrook_speech_t *session, quillbrook_recognition_t *recognition) {
  // Without a context the session's own address keeps the name apart from those of other sessions.
  const void *address = recognition->context1 ? static_cast<const void *>(recognition->context1) : session;
  recognition->stream = quillbrook_name_stream(address, *session->engine);
  const char *base = recognition->stream.base;
  const char *format = session->engine->ws_format;
  recognition->file = quillbrook_create_stream(recognition->stream, *session->engine);
  if (recognition->file) {
    shared_store(recognition->opened, 1);
    session_notice(session, "Open file write: %s.%s\n", base, format);
  } else {
    session_log(LOG_ERROR, session, "Cannot open %s.%s\n", base, format);
  }
}

// When no stream could be opened, the caller need not wait for what nobody hears.
void report_missing_stream(struct ast_speech *speech, quillbrook_speech_t *session,
                           quillbrook_recognition_t *recognition) {
  const int error = quillbrook_why_no_stream(recognition->stream);
  if (!error) {
    ast_log(LOG_NOTICE, "The key format names an extension of 'core show file formats'; %s is none.\n",
            session->engine->ws_format);
  }
  quillbrook_lose_audio(speech, session, recognition, "open", error);
}

// The new recognition takes its place in the session, and the results of the former one go.
void install(quillbrook_speech_t *session, quillbrook_recognition_t *recognition) {
  if (recognition) {
    count(session->statistics->recognitions);
    count(session->statistics->recognitions_active);
  }
  MutexLock held(session->result_lock);
  session->recognition = recognition;
  session->score = 0;
  str_fifo_destroy(&session->last_results);
  str_fifo_init(&session->last_results);
  session->watch.result_waits = 0;
}

quillbrook_recognition_t *make_recognition(quillbrook_speech_t *session) {
  quillbrook_recognition_t *recognition = quillbrook_make_recognition();
  if (!recognition) {
    session_log(LOG_ERROR, session, "Enable to create quillbrook context\n");
    quillbrook_note_failure(session, kCauseMemory, strerror(ENOMEM));
    return nullptr;
  }
  recognition->began = monotonic_us();
  copy_text(recognition->uniqueid, session->uniqueid);
  copy_text(recognition->mark, session->mark);
  recognition->config = session->config_pointer;
  return recognition;
}

void run_plugin(struct ast_speech *speech, quillbrook_speech_t *session) {
  quillbrook_recognition_t *recognition = session->recognition;
  quillbrook_context *first = recognition->context1;
  session_notice(session, "Set plugin context\n");
  quillbrook_fill_context(first, speech, session, recognition);
  if (shared_load(debug) && host_debug_at_least(3)) {
    ast_log(LOG_DEBUG, "Context format set by the plugin :%s\n", shown(first->format));
    ast_log(LOG_DEBUG, "Context format set by the plugin :%p\n", static_cast<void *>(first->filelog));
  }
  if (recognition->context2) {
    memcpy(recognition->context2, first, sizeof(*first));
  }
  session_notice(session, "Start plugin thread\n");
  // Both are counted before the first can come to its end, and take itself for the last.
  shared_store(recognition->running, recognition->context2 ? 2 : 1);
  launch_quillbrook_thread(session);
  if (recognition->context2) {
    launch_quillbrook_thread2(session);
  }
}

void start(struct ast_speech *speech, quillbrook_speech_t *session) {
  forget(session, session->failure);
  session_notice(session, "Start recognition\n");
  session_notice(session, "Set state READY\n");
  ast_speech_change_state(speech, AST_SPEECH_STATE_READY);
  quillbrook_recognition_t *recognition = make_recognition(session);
  if (recognition) {
    create_dsp(session, recognition);
    if (session->engine->continuous) {
      session_notice(session, "Mode continuous.\n");
    }
    const struct timeval now = ast_tvnow();
    add_run(speech, session, recognition, now);
    if (recognition->context1 && shared_load(twin)) {
      add_run(speech, session, recognition, now);
    }
    open_stream(session, recognition);
  }
  install(session, recognition);
  quillbrook_observe_start(session, recognition);
  if (recognition && !shared_load(recognition->opened)) {
    report_missing_stream(speech, session, recognition);
  }
  if (recognition && recognition->context1) {
    run_plugin(speech, session);
  }
  // A quick plugin may have delivered by now, and its DONE must stand.
  MutexLock held(session->result_lock);
  if (str_fifo_empty(&session->last_results)) {
    quillbrook_set_ready(speech, session);
  }
}

bool is_running(const quillbrook_speech_t *session) {
  return session->recognition && session->recognition->context1;
}

}  // namespace

int quillbrook_recog_start(struct ast_speech *speech) {
  return guarded("quillbrook_recog_start", 0, [=] {
    const int64_t began = monotonic_us();
    quillbrook_speech_t *session = quillbrook_session_of(speech);
    session_notice(session, "Plugin name = %s\n", shown(session->engine->plugin_name));
    forget(session, session->fetched);
    const bool digits = abandoned_by_digits(speech, session);
    const bool passed_over = takes_passed_over(session);
    if (passed_over && session->engine->continuous) {
      drop_results(speech, session);
    }
    const bool abandoned = digits || (passed_over && !session->engine->continuous);
    if (is_running(session) && !abandoned) {
      go_on(speech, session);
      return 0;
    }
    if (is_running(session)) {
      quillbrook_abandon_recognition(session, digits ? "digits were received" : "its result was passed over");
    }
    quillbrook_release_session_recognition(session);  // one that never got a plugin
    start(speech, session);
    session->statistics->start.add_us(monotonic_us() - began);
    return 0;
  });
}
