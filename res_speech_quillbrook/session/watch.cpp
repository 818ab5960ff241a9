#include "watch.h"

#include "../record/observation.h"
#include "../record/session_list.h"
#include "../record/shared_grammars.h"
#include "../record/speech_state.h"
#include "../result/utterance.h"
#include "../support/guard.h"
#include "../support/monotonic.h"

namespace {

constexpr int kNothing = -1;
constexpr int kLooksPassedOver = 2;

pthread_t watch_thread = kNoThread;  // loading thread
std::atomic<bool> stopping{false};

int sooner(int one, int other) {
  return one == kNothing ? other : other == kNothing ? one : std::min(one, other);
}

int look_at_result(quillbrook_speech_t *session) QUILLBROOK_REQUIRES(session->result_lock) {
  quillbrook_watch_entry &entry = session->watch;
  if (!entry.result_waits) {
    return kNothing;
  }
  if (shared_load(session->place.speech->state) != AST_SPEECH_STATE_NOT_READY) {
    entry.looks_not_ready = 0;
  } else if (++entry.looks_not_ready == kLooksPassedOver) {
    session_notice(session, "The host has passed the result over.\n");
    entry.passed_over = 1;
    entry.result_waits = 0;
    return kNothing;
  }
  return kWatchInterval;
}

int look_at_plugin(quillbrook_speech_t *session) QUILLBROOK_REQUIRES(session->result_lock) {
  quillbrook_recognition_t *recognition = session->recognition;
  const int limit = session->engine->plugintimeout;
  if (!recognition || limit <= 0 || recognition->silence_reported || !session->watch.quieted ||
      !str_fifo_empty(&session->last_results)) {
    return kNothing;
  }
  if (recognition->matches) {
    return kWatchInterval;  // it is in the middle of a call
  }
  const int64_t silent = monotonic_ms() - shared_load(recognition->last_call);
  if (silent <= limit) {
    return static_cast<int>(limit - silent) + 1;
  }
  recognition->silence_reported = 1;
  quillbrook_observe_expiry(session, "plugintimeout", limit);
  session_log(LOG_ERROR, session, "The plugin %s has not called back for %d ms: the recognition ends\n",
              shown(session->engine->plugin_name), limit);
  quillbrook_queue_error(session->place.speech, session, kCausePlugin, "it has stopped calling back");
  if (quillbrook_utterances_are_separate(*session->engine)) {
    for (quillbrook_context *context : {recognition->context1, recognition->context2}) {
      if (context) {
        quillbrook_end_utterance(session, *quillbrook_run_of(context));
      }
    }
  }
  return kWatchInterval;
}

int look_at(quillbrook_speech_t *session) {
  if (!session->result_lock.try_lock()) {
    return kWatchInterval;
  }
  const int next = sooner(look_at_result(session), look_at_plugin(session));
  session->result_lock.unlock();
  return next;
}

void *quillbrook_watch(void *) {
  while (!stopping) {
    const int next = guarded("quillbrook_watch", kWatchInterval, quillbrook_watch_look);
    quillbrook_watch_bell.wait(next);
  }
  return nullptr;
}

}  // namespace

// Of a session's locks it only tries result_lock, so that one whose plugin is in the middle of a report holds nobody
// up.
int quillbrook_watch_look() {
  int next = kNothing;
  quillbrook_sessions_look([&next](quillbrook_speech_t &session) { next = sooner(next, look_at(&session)); });
  return sooner(next, quillbrook_look_at_unused_grammars());
}

bool quillbrook_watch_start() {
  stopping = false;
  const int result = ast_pthread_create_stack(&watch_thread, nullptr, quillbrook_watch, nullptr, host_stack_size(),
                                              __FILE__, __FUNCTION__, __LINE__, "quillbrook_watch");
  if (result) {
    watch_thread = kNoThread;
    ast_log(LOG_WARNING, "The watch thread cannot run (%s): a plugin that stops calling back holds its caller up\n",
            strerror(result));
  }
  return result == 0;
}

void quillbrook_watch_stop() {
  if (watch_thread == kNoThread) {
    return;
  }
  stopping = true;
  quillbrook_watch_bell.ring();
  pthread_join(watch_thread, nullptr);
  watch_thread = kNoThread;
}
