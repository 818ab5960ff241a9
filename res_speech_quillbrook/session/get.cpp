#include "../result/callback.h"
#include "../support/guard.h"
#include "entries.h"
#include "recognition.h"
#include "../record/speech_state.h"
#include "../support/printable.h"

namespace {

// How long a hung up call waits for the plugin's final report: milliseconds in all, and microseconds between two looks.
constexpr int kReportLimit = 2000;
constexpr useconds_t kReportPoll = 10000;

int quillbrook_match_uniqueid(void *obj, void *, void *data, int) {
  const char *uniqueid = ast_channel_uniqueid(static_cast<struct ast_channel *>(obj));
  return strcmp(uniqueid, static_cast<const char *>(data)) == 0 ? CMP_MATCH | CMP_STOP : 0;
}

// 1 when a channel of that unique id exists and its call has been hung up, else 0.
int quillbrook_channel_hungup(const char *uniqueid) {
  if (!uniqueid || !uniqueid[0]) {
    return 0;
  }
  struct ast_channel *channel =
      ast_channel_callback(quillbrook_match_uniqueid, nullptr, const_cast<char *>(uniqueid), 0);
  if (!channel) {
    return 0;
  }
  const int hungup = ast_check_hangup(channel) ? 1 : 0;
  host_channel_release(channel);
  return hungup;
}

int queued(quillbrook_speech_t *session) {
  return static_cast<int>(str_fifo_count(&session->last_results));
}

bool stream_is_open(quillbrook_recognition_t *recognition) {
  if (!recognition) {
    return false;
  }
  HostMutexLock held(recognition->lock);
  return recognition->file != nullptr;
}

// Whether there is a record of a plugin, also one that never ran.
bool has_context(const quillbrook_speech_t *session) {
  return session->recognition && session->recognition->context1;
}

bool must_wait_for_report(quillbrook_speech_t *session) {
  const quillbrook_engine_t &engine = *session->engine;
  return engine.continuous && engine.waitclose && queued(session) == 0 && has_context(session) &&
         !shared_load(session->recognition->plugin_closed) && quillbrook_channel_hungup(session->uniqueid);
}

void wait_for_report(quillbrook_speech_t *session) {
  const int &closed = session->recognition->plugin_closed;
  session_notice(session, "Hangup: stop the plugin and wait for its final report.\n");
  quillbrook_stop_plugin(session);
  for (int waited = 0; !shared_load(closed) && waited < kReportLimit; waited += kReportPoll / 1000) {
    usleep(kReportPoll);
  }
  quillbrook_wait_for_calls(session->recognition);  // the report sets it ahead of the result that it brings
  MutexLock reported(session->result_lock);
  session_notice(session, "Final report %s (last_results=%d).\n", shared_load(closed) ? "received" : "not received",
                 queued(session));
}

// The text gathered so far becomes the result. In twin mode the first run that has any makes it.
void force_finish(quillbrook_speech_t *session) {
  if (!has_context(session)) {
    quillbrook_callback(nullptr, "", QUILLBROOK_SCORE_FINISH);
    return;
  }
  quillbrook_for_each_run(session->recognition, [session](quillbrook_run_t &run) {
    if (queued(session) == 0) {
      quillbrook_callback(&run.context, "", QUILLBROOK_SCORE_FINISH);
    }
  });
}

// A single-shot recognition ends with its first result.
void end_recognition(quillbrook_speech_t *session) {
  session_notice(session, "Stop the thread, close and remove file.\n");
  if (has_context(session)) {
    session_notice(session, "Send STOP to plugin.\n");
    quillbrook_stop_plugin(session);
    session_notice(session, "Waiting end of thread.\n");
    quillbrook_join_threads(session);
    session_notice(session, "Threads terminated.\n");
  }
  quillbrook_release_session_recognition(session);
}

// Of the recognition that runs, or else of the one that was collected last.
int present_score(const quillbrook_speech_t *session) QUILLBROOK_REQUIRES(session->result_lock) {
  const quillbrook_recognition_t *recognition = session->recognition;
  return recognition && recognition->delivered ? recognition->delivered->score : session->score;
}

void set_state_by_queue(struct ast_speech *speech, quillbrook_speech_t *session)
    QUILLBROOK_REQUIRES(session->result_lock) {
  if (queued(session) > 0) {
    session_notice(session, "Mode continuous : have more results...\n");
    session_notice(session, "Set/keep state DONE\n");
    ast_speech_change_state(speech, AST_SPEECH_STATE_DONE);
  } else {
    session_notice(session, "Mode continuous : reset state ready.\n");
    quillbrook_set_ready(speech, session);
  }
}

// Results that are utterances of their own keep their scores while they wait.
int score_of_fetched(const quillbrook_speech_t *session) QUILLBROOK_REQUIRES(session->result_lock) {
  if (!quillbrook_utterances_are_separate(*session->engine)) {
    return present_score(session);
  }
  return session->fetched ? session->fetched->score : 0;
}

// The oldest result. The record is allocated before anything leaves the queue, so that without memory nothing is lost.
struct ast_speech_result *take_result(struct ast_speech *speech, quillbrook_speech_t *session) {
  auto *result = host_calloc<struct ast_speech_result>();
  // Score, queue and state go together: in a continuous session the plugin reports on meanwhile.
  MutexLock held(session->result_lock);
  if (result) {
    result->text = str_fifo_pop(&session->last_results, session->fetched);
    if (!result->text) {
      result->text = ast_strdup("error");
      session->fetched = session->failure;
    }
    result->score = score_of_fetched(session);
    session_notice(session, "Got last result (older one)!\n");
    session_notice(session, "Get results: %s (%d%%)\n", Printable(result->text).text(), result->score);
    session_notice(session, "Set flag HAVE_RESULTS.\n");
    shared_set_bits(speech->flags, static_cast<unsigned int>(AST_SPEECH_HAVE_RESULTS));
  }
  if (session->engine->continuous) {
    set_state_by_queue(speech, session);
  }
  return result;
}

// The host collects what waits: nothing of it is passed over.
void note_collection(quillbrook_speech_t *session) {
  MutexLock held(session->result_lock);
  session->watch.result_waits = 0;
  session->watch.passed_over = 0;
}

struct ast_speech_result *get(struct ast_speech *speech, quillbrook_speech_t *session) {
  const bool continuous = session->engine->continuous;
  const bool found_ready = shared_load(speech->state) == AST_SPEECH_STATE_READY;
  note_collection(session);
  session_notice(session, "Get results: last_results=%d\n", queued(session));
  if (!continuous) {
    quillbrook_close_stream(session->recognition);
  } else if (stream_is_open(session->recognition)) {
    session_notice(session, "Mode continuous : don't close file.\n");
  }
  if (must_wait_for_report(session)) {
    wait_for_report(session);
  }
  if (!continuous && queued(session) == 0) {
    force_finish(session);
  }
  session_notice(session, "Get results:\n");
  if (!continuous) {
    end_recognition(session);
  } else {
    session_notice(session, "Mode continuous : don't stop thread.\n");
    session_notice(session, "Mode continuous : don't free DSP.\n");
  }
  struct ast_speech_result *result = take_result(speech, session);
  // An application that asks at its own timeout leaves READY, in which it would never start the next recognition.
  if (!continuous && found_ready) {
    ast_speech_change_state(speech, AST_SPEECH_STATE_NOT_READY);
  }
  return result;
}

}  // namespace

struct ast_speech_result *quillbrook_recog_get(struct ast_speech *speech) {
  return guarded("quillbrook_recog_get", static_cast<struct ast_speech_result *>(nullptr),
                 [=] { return get(speech, quillbrook_session_of(speech)); });
}
