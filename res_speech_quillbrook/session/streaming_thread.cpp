#include "streaming_thread.h"

#include "../support/guard.h"
#include "state.h"
#include "stream_file.h"

namespace {

constexpr long kStackSize = 507904;  // 496 KiB, or the platform's minimum when that is larger
constexpr useconds_t kAudioPoll = 10000;
constexpr useconds_t kPromptPoll = 100000;
constexpr char kFailurePrefix[] = "ERROR:";

// Bytes of a millisecond of audio at 8 kHz.
int bytes_per_millisecond(const char *format) {
  return strcmp(format, "ulaw") == 0 ? 8 : 16;
}

bool stat_stream(const quillbrook_context *context, struct stat *status) {
  return context->filename && stat(context->filename, status) == 0;
}

bool finalize_raised(const quillbrook_context *context) {
  return shared_load(context->finalize) > 0;
}

// Waits until the file holds more than the session's minimum. False when the plugin must not be run: the file is gone,
// or the recognition is being wound up.
bool wait_for_audio(quillbrook_speech_t *session, const quillbrook_context *context) {
  const int minspeech = shared_load(session->minspeechtimeout);
  trace(3, "  Waiting for a buffering time (minspeech=%dms)...", minspeech);
  const long long minsize = static_cast<long long>(minspeech) * bytes_per_millisecond(context->format);
  for (long long size = 0; size <= minsize;) {
    usleep(kAudioPoll);
    struct stat status;
    if (!stat_stream(context, &status)) {
      trace(3, "Exit the streaming thread when waiting (file deleted)!");
      return false;
    }
    size = status.st_size;
    trace(3, "Streaming thread waiting minsize (size=%d to %d)!", static_cast<int>(size), static_cast<int>(minsize));
    if (finalize_raised(context)) {
      trace(3, "Exit the streaming thread when waiting (finalize=%d)!", shared_load(context->finalize));
      return false;
    }
  }
  return true;
}

// The rendezvous with the start call that ends the prompt: each side adds 1 when it arrives, and this side waits while
// it is alone. False as above.
bool wait_for_prompts(quillbrook_speech_t *session, const quillbrook_context *context) {
  bool start = true;
  if (shared_load(session->earlyspeechtimeout)) {
    shared_increment(session->prompting);
  }
  trace(3, "Streaming check wait for prompts (prompting=%d)!", shared_load(session->prompting));
  while (shared_load(session->prompting) == 1) {
    usleep(kPromptPoll);
    struct stat status;
    if (!stat_stream(context, &status)) {
      trace(3, "Exit the streaming thread when prompting (file deleted)!");
      start = false;
      break;
    }
    if (debug > 3) {
      trace(3, "Streaming thread waiting prompts (prompting=%d)!", shared_load(session->prompting));
    }
    if (finalize_raised(context)) {
      trace(3, "Exit the streaming thread when prompting (finalize=%d)!", shared_load(context->finalize));
      start = false;
      break;
    }
  }
  if (shared_load(session->prompting) > 1) {
    trace(3, "Prompting unlocked, recognition starts with filled file!");
  }
  shared_store(session->prompting, 0);
  return start;
}

// A failed wait clears the start, and the later steps are passed through all the same.
bool prepare_first(quillbrook_speech_t *session, const quillbrook_context *context) {
  bool start = wait_for_audio(session, context);
  start = wait_for_prompts(session, context) && start;
  if (shared_load(session->earlyspeechtimeout)) {
    quillbrook_rewind_stream(session);
  }
  shared_store(session->stream_phase, static_cast<int>(kStreamReady));
  return start;
}

// The second thread leaves the waits and the rewind to the first.
bool prepare_second(quillbrook_speech_t *session, const quillbrook_context *context) {
  while (shared_load(session->stream_phase) != kStreamReady) {
    if (finalize_raised(context)) {
      return false;
    }
    usleep(kAudioPoll);
  }
  struct stat status;
  return stat_stream(context, &status) && !finalize_raised(context);
}

// What the plugin left in `extra` when it cannot go on.
void report_failure(quillbrook_speech_t *session, quillbrook_context *context) {
  context->extra[sizeof(context->extra) - 1] = '\0';
  if (strncmp(context->extra, kFailurePrefix, sizeof(kFailurePrefix) - 1) != 0) {
    return;
  }
  ast_log(LOG_WARNING, "(%s) QuillBrook plugin error: %s\n", session->name, context->extra);
  auto *speech = static_cast<struct ast_speech *>(context->asterisk_pointer);
  MutexLock held(session->result_lock);
  if (str_fifo_empty(&session->last_results)) {
    quillbrook_queue_result(speech, session, "error");
  } else {
    quillbrook_set_done(speech, session);
  }
}

void run(quillbrook_speech_t *session, quillbrook_context *context,
         bool (*prepare)(quillbrook_speech_t *, const quillbrook_context *)) {
  trace(2, "Begin QuillBrook processing %s\n", shown(context->filename));
  trace(3, "  uniqueid=%s\n", context->uniqueid);
  trace(3, "  mark=%s\n", context->mark);
  if (prepare(session, context)) {
    trace(3, "Launch the plugin_loop!");
    guarded("plugin_loop", static_cast<void *>(nullptr), [=] { return session->engine->plugin_loop(context); });
    report_failure(session, context);
  }
  trace(2, "End QuillBrook processing %s\n", shown(context->filename));
  trace(3, "  uniqueid=%s\n", context->uniqueid);
  trace(3, "  mark=%s\n", context->mark);
}

struct LaunchWords {
  const char *initialized;
  const char *refused;
  const char *caller;
};

int launch(quillbrook_speech_t *session, quillbrook_context *context, void *(*entry)(void *),
           const LaunchWords &words) {
  context->session = 0;
  context->initialize = 0;
  context->thread = kNoThread;
  if (guarded("plugin_init", -1, [=] { return session->engine->plugin_init(context); })) {
    ast_log(LOG_WARNING, "%s", words.refused);
    return -1;
  }
  if (host_debug_at_least(3)) {
    ast_log(LOG_DEBUG, "%s", words.initialized);
  }
  const size_t stack_size = static_cast<size_t>(std::max(kStackSize, sysconf(_SC_THREAD_STACK_MIN)));
  const int result = ast_pthread_create_stack(&context->thread, nullptr, entry, session, stack_size, __FILE__,
                                              words.caller, __LINE__, "quillbrook_thread");
  if (result) {
    context->thread = kNoThread;
  }
  return result;
}

}  // namespace

int launch_quillbrook_thread(quillbrook_speech_t *session) {
  shared_store(session->context1->finalize, 0);
  shared_store(session->stream_phase, static_cast<int>(kStreamWaiting));
  const int result =
      launch(session, session->context1, quillbrook_thread,
             {"Initialize the plugin.\n", "Failed to intialize quillbrook plugin\n", "launch_quillbrook_thread"});
  if (result) {
    // Nobody does the waits: the second thread must not wait for them.
    shared_store(session->stream_phase, static_cast<int>(kStreamReady));
  }
  return result;
}

int launch_quillbrook_thread2(quillbrook_speech_t *session) {
  return launch(session, session->context2, quillbrook_thread2,
                {"Initialize the plugin2.\n", "Failed to intialize quillbrook plugin2\n", "launch_quillbrook_thread2"});
}

void *quillbrook_thread(void *data) {
  auto *session = static_cast<quillbrook_speech_t *>(data);
  guarded("quillbrook_thread", 0, [=] {
    run(session, session->context1, prepare_first);
    return 0;
  });
  pthread_exit(nullptr);
}

void *quillbrook_thread2(void *data) {
  auto *session = static_cast<quillbrook_speech_t *>(data);
  guarded("quillbrook_thread", 0, [=] {
    run(session, session->context2, prepare_second);
    return 0;
  });
  pthread_exit(nullptr);
}
