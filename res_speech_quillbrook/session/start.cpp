#include "../support/guard.h"
#include "context.h"
#include "entries.h"
#include "recognition.h"
#include "state.h"
#include "stream_file.h"
#include "streaming_thread.h"

namespace {

// The host put the object to NOT_READY and a digit ended the recognition that runs: its caller has moved on. The host
// takes the digits as the result and never collects ours. Digits count for one start.
bool abandoned_by_digits(const struct ast_speech *speech, quillbrook_speech_t *session) {
  const int digits = std::exchange(session->digits_pending, 0);
  return digits && shared_load(speech->state) == AST_SPEECH_STATE_NOT_READY && !session->engine->continuous;
}

// A start on a running recognition releases the prompting wait.
void go_on(struct ast_speech *speech, quillbrook_speech_t *session) {
  session_notice(session, "Recognition already started!\n");
  if (session->earlyspeechtimeout) {
    session_notice(session, "Unlock the earlyspeechtimeout waiting...\n");
    shared_increment(session->prompting);
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

void create_dsp(quillbrook_speech_t *session) {
  quillbrook_release_dsp(session);
  session->dsp = ast_dsp_new();
  if (!session->dsp) {
    ast_log(LOG_WARNING, "Unable to allocate DSP!\n");
    return;
  }
  session_notice(session, "Set DSP threshold : %d\n", session->engine->threshold);
  ast_dsp_set_threshold(session->dsp, session->engine->threshold);
}

quillbrook_context *create_context() {
  auto *context = host_calloc<quillbrook_context>();
  if (!context) {
    ast_log(LOG_ERROR, "Enable to create quillbrook context\n");
  }
  return context;
}

void open_stream(quillbrook_speech_t *session, const quillbrook_stream_name &name, const char *format) {
  quillbrook_close_stream(session);
  session->file = quillbrook_create_stream(name, format);
  if (session->file) {
    session_notice(session, "Open file write: %s.%s\n", name.base, format);
  } else {
    ast_log(LOG_ERROR, "Cannot open %s.%s\n", name.base, format);
    ast_log(LOG_NOTICE,
            "The key format names an extension of 'core show file formats', and /tmp has to be writable.\n");
  }
}

// What belongs to one recognition. No streaming thread exists yet.
void reset_recognition(quillbrook_speech_t *session) {
  session->datestart = ast_tvnow();
  session->datefirst = {};
  session->datesilence = {};
  session->datestop = {};
  session->datefinalize = {};
  session->dateclose = {};
  session->plugin_closed = 0;
  quillbrook_release_text(session->text);
  quillbrook_release_text(session->text_interim);
  quillbrook_release_text(session->json);
  session->score = 0;
  session->scores_total = 0;
  session->scores_count = 0;
  session->incomplete_reported = 0;
  str_fifo_destroy(&session->last_results);
  str_fifo_init(&session->last_results);
}

void run_plugin(struct ast_speech *speech, quillbrook_speech_t *session, quillbrook_context *first,
                quillbrook_context *second, const quillbrook_stream_name &name) {
  session_notice(session, "Set plugin context\n");
  quillbrook_fill_context(first, speech, session, name.full);
  if (debug && host_debug_at_least(3)) {
    ast_log(LOG_DEBUG, "Context format set by the plugin :%s\n", shown(first->format));
    ast_log(LOG_DEBUG, "Context format set by the plugin :%p\n", static_cast<void *>(first->filelog));
  }
  session->context1 = first;
  if (second) {
    memcpy(second, first, sizeof(*second));
  }
  session->context2 = second;
  session_notice(session, "Start plugin thread\n");
  launch_quillbrook_thread(session);
  if (session->context2) {
    launch_quillbrook_thread2(session);
  }
}

void start(struct ast_speech *speech, quillbrook_speech_t *session) {
  session_notice(session, "Start recognition\n");
  session_notice(session, "Set state READY\n");
  ast_speech_change_state(speech, AST_SPEECH_STATE_READY);
  create_dsp(session);
  if (session->engine->continuous) {
    session_notice(session, "Mode continuous.\n");
  }
  quillbrook_context *first = create_context();
  quillbrook_context *second = first && twin ? create_context() : nullptr;
  const char *format = session->engine->ws_format;
  // Without a context the session's own address keeps the name apart from those of other sessions.
  const quillbrook_stream_name name(kStreamPrefix, first ? static_cast<void *>(first) : static_cast<void *>(session),
                                    format);
  open_stream(session, name, format);
  reset_recognition(session);
  if (first) {
    run_plugin(speech, session, first, second, name);
  }
  // A quick plugin may have delivered by now, and its DONE must stand.
  MutexLock held(session->result_lock);
  if (str_fifo_empty(&session->last_results)) {
    quillbrook_set_ready(speech, session);
  }
}

}  // namespace

int quillbrook_recog_start(struct ast_speech *speech) {
  return guarded("quillbrook_recog_start", 0, [=] {
    quillbrook_speech_t *session = quillbrook_session_of(speech);
    session_notice(session, "Plugin name = %s\n", shown(session->engine->plugin_name));
    const bool abandoned = abandoned_by_digits(speech, session);
    if (session->context1 && !abandoned) {
      go_on(speech, session);
      return 0;
    }
    if (session->context1) {
      quillbrook_abandon_recognition(session);
    }
    start(speech, session);
    return 0;
  });
}
