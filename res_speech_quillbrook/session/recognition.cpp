#include "recognition.h"

#include "../support/guard.h"

namespace {

void stop(const quillbrook_engine_t &engine, quillbrook_context *context) {
  guarded("plugin_stop", 0, [&] {
    engine.plugin_stop(context);
    return 0;
  });
}

void join(quillbrook_context *context) {
  if (context && context->thread != kNoThread) {
    pthread_join(context->thread, nullptr);
    context->thread = kNoThread;
  }
}

}  // namespace

void quillbrook_close_stream(quillbrook_speech_t *session) {
  HostMutexLock held(session->lock);
  if (session->file) {
    ast_closestream(session->file);
    session->file = nullptr;
  }
}

void quillbrook_stop_plugin(quillbrook_speech_t *session) {
  stop(*session->engine, session->context1);
  if (session->context2) {
    stop(*session->engine, session->context2);
  }
}

void quillbrook_join_threads(quillbrook_speech_t *session) {
  join(session->context1);
  join(session->context2);
}

void quillbrook_release_contexts(quillbrook_speech_t *session) {
  // A streaming thread that was stopped in one of its waits has passed the rewind on its way out, and that opens the
  // stream again.
  quillbrook_close_stream(session);
  trace(2, "Purge the context and the elements...\n");
  quillbrook_context *context = session->context1;
  // These point into the session.
  context->uniqueid = nullptr;
  context->mark = nullptr;
  // The second context shares the name of the file.
  if (context->filename) {
    if (!session->engine->keepfiles) {
      notice("Delete stream file (%s)\n", context->filename);
      unlink(context->filename);
    }
    quillbrook_release_text(context->filename);
  }
  ast_free(session->context1);
  session->context1 = nullptr;
  ast_free(session->context2);
  session->context2 = nullptr;
  for (char *retired : session->retired_configs) {
    ast_free(retired);
  }
  session->retired_configs.clear();
}

void quillbrook_release_dsp(quillbrook_speech_t *session) {
  if (session->dsp) {
    ast_dsp_free(session->dsp);
    session->dsp = nullptr;
  }
}

void quillbrook_abandon_recognition(quillbrook_speech_t *session) {
  session_notice(session, "Abandon the recognition: digits were received.\n");
  quillbrook_close_stream(session);
  quillbrook_stop_plugin(session);
  quillbrook_join_threads(session);
  quillbrook_release_contexts(session);
  quillbrook_release_dsp(session);
}
