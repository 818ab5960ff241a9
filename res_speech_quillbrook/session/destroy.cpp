#include "../ops/statistics.h"
#include "../record/session_list.h"
#include "../result/callback.h"
#include "../result/result_file.h"
#include "../support/guard.h"
#include "../support/module_use.h"
#include "../support/own_files.h"
#include "entries.h"
#include "recognition.h"
#include "session_name.h"

namespace {

void stop_recognition(quillbrook_speech_t *session) {
  session_notice(session, "Stop the process\n");
  quillbrook_stop_plugin(session);
  if (shared_load(session->recognition->context1->hangup) != QUILLBROOK_HANGUP_STOPPED) {
    session_log(LOG_ERROR, session, "Cannot stop the plugin, time!\n");
  }
  quillbrook_join_threads(session);
}

void remove_result_files(quillbrook_speech_t *session) {
  const quillbrook_engine_t &engine = *session->engine;
  if (engine.keepfiles) {
    return;
  }
  if (!engine.returnjson && !engine.returnnlsml) {
    notice("Not result file set, pass text result.\n");
    return;
  }
  const char *extension = engine.returnjson ? "json" : "xml";
  char path[kResultPathSize];
  quillbrook_result_path(path, session->name, extension);
  notice("Remove result file %s.\n", path);
  // This session has none without a number. "call_1" without one is the first of a session "call".
  if (!quillbrook_file_is_claimed(path)) {
    quillbrook_remove_result_file(path);
  }
  for (int number = 1; number <= session->counter_result; ++number) {
    quillbrook_result_path(path, session->name, number, extension);
    quillbrook_remove_result_file(path);
  }
}

void release_session(quillbrook_speech_t *session) {
  str_fifo_destroy(&session->last_results);
  quillbrook_release_text(session->phrases);
  session->~quillbrook_speech_t();
  ast_free(session);
}

}  // namespace

int quillbrook_recog_destroy(struct ast_speech *speech) {
  const int result = guarded("quillbrook_recog_destroy", 0, [=] {
    quillbrook_speech_t *session = quillbrook_session_of(speech);
    session_notice(session, "Destroy speech resource\n");
    // From here on the callback refuses, so nothing reaches what is taken apart below.
    shared_store(speech->data, static_cast<void *>(nullptr));
    quillbrook_sessions_remove(session);
    quillbrook_shut_gates(session->recognition);
    quillbrook_report_more_bad_scores(session);
    quillbrook_statistics_session_stop();
    count<int64_t>(session->statistics->sessions_active, -1);
    // The stream stops growing before the plugin is told to stop.
    quillbrook_close_stream(session->recognition);
    if (session->recognition && session->recognition->context1) {
      stop_recognition(session);
    }
    quillbrook_release_session_recognition(session);
    remove_result_files(session);
    quillbrook_free_name(session);
    release_session(session);
    return 0;
  });
  quillbrook_module_leave();
  return result;
}
