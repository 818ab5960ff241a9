#include "recognition.h"

#include "../record/observation.h"
#include "plugin_entry.h"
#include "stream_file.h"

#include "../support/guard.h"
#include "../support/module_use.h"
#include "../support/monotonic.h"

namespace {

void stop(const quillbrook_speech_t &session, quillbrook_run_t &run) {
  guarded(PluginEntry(session, "plugin_stop").text, 0, [&] {
    session.engine->plugin_stop(&run.context);
    return 0;
  });
  if (shared_load(run.context.finalize) == 0) {
    shared_store(run.context.finalize, 1);
  }
}

// Whether the streaming thread came to its end within the limit; 0 is none.
bool ends_within(quillbrook_run_t &run, int milliseconds) {
  std::unique_lock<std::mutex> held(run.end_lock);
  const auto over = [&run] { return run.ended; };
  if (milliseconds <= 0) {
    run.end_changed.wait(held, over);
    return true;
  }
  return run.end_changed.wait_for(held, std::chrono::milliseconds(milliseconds), over);
}

// Shuts the gate of a run that is still inside the plugin's loop. False for one that is elsewhere and so comes to its
// end by itself.
bool shut_out(quillbrook_run_t &run) {
  MutexLock held(run.gate);
  if (run.phase != kRunInLoop) {
    return false;
  }
  run.session = nullptr;
  return true;
}

void leave_behind(const quillbrook_speech_t *session, quillbrook_run_t &run) {
  session_log(LOG_ERROR, session,
              "The plugin %s has not returned %d ms after its stop: its thread is left behind, and the module stays "
              "loaded until the PBX ends\n",
              shown(session->engine->plugin_name), session->engine->stoptimeout);
  quillbrook_observe_expiry(session, "stoptimeout", session->engine->stoptimeout);
  pthread_detach(run.context.thread);
  run.recognition->left_behind = 1;
  run.recognition->engines = session->engines;
  quillbrook_module_enter();
}

void join(const quillbrook_speech_t *session, quillbrook_run_t &run) {
  if (run.context.thread == kNoThread) {
    return;
  }
  if (!ends_within(run, session->engine->stoptimeout) && shut_out(run)) {
    leave_behind(session, run);
  } else {
    pthread_join(run.context.thread, nullptr);
  }
  run.context.thread = kNoThread;
}

void delete_stream_file(const quillbrook_speech_t *session, quillbrook_recognition_t *recognition) {
  quillbrook_remove_stream(recognition->stream, *session->engine);
  // The second context shares the name of the file.
  if (recognition->context1 && !recognition->left_behind) {
    quillbrook_release_text(recognition->context1->filename);
  }
}

void release_dsp(quillbrook_recognition_t *recognition) {
  if (recognition->dsp) {
    ast_dsp_free(recognition->dsp);
    recognition->dsp = nullptr;
  }
}

// How a recognition without a result ended is known where something kept it from having one, or no words came. Where
// words came and nobody waited for their end, it has no cause.
bool find_missing_cause(const quillbrook_speech_t *session, quillbrook_recognition_t *recognition)
    QUILLBROOK_REQUIRES(session->result_lock) {
  if (session->failure) {
    recognition->cause = session->failure->cause;
    return true;
  }
  recognition->cause = kCauseNothing;
  return !quillbrook_words_came(recognition);
}

void count_end(const quillbrook_speech_t *session, quillbrook_recognition_t *recognition)
    QUILLBROOK_REQUIRES(session->result_lock) {
  quillbrook_engine_statistics &statistics = *session->statistics;
  const bool has_result = recognition->results > 0;
  const bool has_cause = has_result || find_missing_cause(session, recognition);
  if (has_cause && !has_result) {
    count(statistics.results[recognition->cause]);
  }
  quillbrook_observe_end(session, has_cause ? quillbrook_cause_name(recognition->cause) : "");
  count<int64_t>(statistics.recognitions_active, -1);
  count(statistics.samples, static_cast<uint64_t>(std::max<int64_t>(recognition->samples, 0)));
  statistics.recognition.add_us(monotonic_us() - recognition->began);
}

}  // namespace

void quillbrook_close_stream(quillbrook_recognition_t *recognition) {
  if (!recognition) {
    return;
  }
  HostMutexLock held(recognition->lock);
  if (recognition->file) {
    recognition->samples = ast_tellstream(recognition->file);
    ast_closestream(recognition->file);
    recognition->file = nullptr;
  }
}

void quillbrook_shut_gates(quillbrook_recognition_t *recognition) {
  quillbrook_for_each_run(recognition, [](quillbrook_run_t &run) {
    MutexLock held(run.gate);
    run.session = nullptr;
  });
}

void quillbrook_wait_for_calls(quillbrook_recognition_t *recognition) {
  quillbrook_for_each_run(recognition, [](quillbrook_run_t &run) { MutexLock passing(run.gate); });
}

void quillbrook_stop_plugin(quillbrook_speech_t *session) {
  quillbrook_recognition_t *recognition = session->recognition;
  if (recognition) {
    // A call of the plugin that is being handled either sees it or is over: what the stop leaves in the record stands.
    MutexLock held(session->result_lock);
    shared_store(recognition->stopping, 1);
    recognition->stop_began = monotonic_us();
  }
  quillbrook_for_each_run(recognition, [session](quillbrook_run_t &run) { stop(*session, run); });
}

void quillbrook_join_threads(quillbrook_speech_t *session) {
  quillbrook_recognition_t *recognition = session->recognition;
  quillbrook_wait_for_calls(recognition);  // a match is none of the plugin's time
  quillbrook_for_each_run(recognition, [session](quillbrook_run_t &run) { join(session, run); });
  if (recognition) {
    session->statistics->stop.add_us(monotonic_us() - recognition->stop_began);
  }
}

void quillbrook_release_session_recognition(quillbrook_speech_t *session) {
  quillbrook_recognition_t *recognition = session->recognition;
  if (!recognition) {
    return;
  }
  // A streaming thread that was stopped in one of its waits has passed the rewind on its way out, and that opens the
  // stream again.
  quillbrook_close_stream(recognition);
  if (recognition->context1) {
    trace(2, "Purge the context and the elements...\n");
  }
  delete_stream_file(session, recognition);
  release_dsp(recognition);
  {
    MutexLock held(session->result_lock);
    if (recognition->delivered) {
      session->score = recognition->delivered->score;
    }
    count_end(session, recognition);
    session->recognition = nullptr;
  }
  quillbrook_release_recognition(recognition);
}

void quillbrook_abandon_recognition(quillbrook_speech_t *session, const char *reason) {
  session_notice(session, "Abandon the recognition: %s.\n", reason);
  {
    MutexLock held(session->result_lock);
    session->recognition->abandoned = 1;
  }
  quillbrook_shut_gates(session->recognition);
  quillbrook_close_stream(session->recognition);
  quillbrook_stop_plugin(session);
  quillbrook_join_threads(session);
  quillbrook_release_session_recognition(session);
}
