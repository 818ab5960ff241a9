#include "streaming_thread.h"

#include "../support/guard.h"
#include "../support/printable.h"
#include "../record/speech_state.h"
#include "../result/callback.h"
#include "plugin_entry.h"
#include "stream_file.h"

namespace {

constexpr useconds_t kAudioPoll = 10000;
constexpr useconds_t kPromptPoll = 100000;
constexpr char kFailurePrefix[] = "ERROR:";

// Bytes of a millisecond of audio at 8 kHz.
int bytes_per_millisecond(const char *format) {
  return strcmp(format, "ulaw") == 0 ? 8 : 16;
}

// False when the file is gone. Nothing else than the stream that was opened counts, whatever stands under its name; a
// system that cannot answer says nothing about the file, and `size` stays.
bool look_at_stream(const quillbrook_run_t &run, long long &size) {
  if (!shared_load(run.recognition->opened) || !run.context.filename) {
    return false;
  }
  struct stat status;
  if (stat(run.context.filename, &status) == 0) {
    size = status.st_size;
    return true;
  }
  return errno != ENOENT;
}

bool finalize_raised(const quillbrook_context *context) {
  return shared_load(context->finalize) > 0;
}

// Waits until the file holds more than the session's minimum. False when the plugin must not be run: the file is gone,
// or the recognition is being wound up.
bool wait_for_audio(const quillbrook_speech_t *session, const quillbrook_run_t &run) {
  const quillbrook_context *context = &run.context;
  const int minspeech = shared_load(session->minspeechtimeout);
  trace(3, "  Waiting for a buffering time (minspeech=%dms)...", minspeech);
  const long long minsize = static_cast<long long>(minspeech) * bytes_per_millisecond(context->format);
  for (long long size = 0; size <= minsize;) {
    const long long before = size;
    usleep(kAudioPoll);
    if (!look_at_stream(run, size)) {
      trace(3, "Exit the streaming thread when waiting (file deleted)!");
      return false;
    }
    if (size != before) {
      trace(3, "Streaming thread waiting minsize (size=%d to %d)!", static_cast<int>(size), static_cast<int>(minsize));
    }
    if (finalize_raised(context)) {
      trace(3, "Exit the streaming thread when waiting (finalize=%d)!", shared_load(context->finalize));
      return false;
    }
  }
  return true;
}

// The rendezvous with the start call that ends the prompt: each side adds 1 when it arrives, and this side waits while
// it is alone. False as above.
bool wait_for_prompts(const quillbrook_speech_t *session, const quillbrook_run_t &run) {
  const quillbrook_context *context = &run.context;
  int &prompting = run.recognition->prompting;
  const bool early = shared_load(session->earlyspeechtimeout) != 0;
  bool start = true;
  if (early) {
    shared_increment(prompting);
  }
  trace(3, "Streaming check wait for prompts (prompting=%d)!", shared_load(prompting));
  while (early && shared_load(prompting) == 1) {
    usleep(kPromptPoll);
    long long size = 0;
    if (!look_at_stream(run, size)) {
      trace(3, "Exit the streaming thread when prompting (file deleted)!");
      start = false;
      break;
    }
    if (shared_load(debug) > 3) {
      trace(3, "Streaming thread waiting prompts (prompting=%d)!", shared_load(prompting));
    }
    if (finalize_raised(context)) {
      trace(3, "Exit the streaming thread when prompting (finalize=%d)!", shared_load(context->finalize));
      start = false;
      break;
    }
  }
  if (shared_load(prompting) > 1) {
    trace(3, "Prompting unlocked, recognition starts with filled file!");
  }
  shared_store(prompting, 0);
  return start;
}

// A failed wait clears the start, and the later steps are passed through all the same.
bool prepare_first(quillbrook_speech_t *session, const quillbrook_run_t &run) {
  quillbrook_recognition_t *recognition = run.recognition;
  bool start = wait_for_audio(session, run);
  start = wait_for_prompts(session, run) && start;
  if (shared_load(session->earlyspeechtimeout)) {
    quillbrook_rewind_stream(run.speech, session, recognition);
  }
  shared_store(recognition->stream_phase, static_cast<int>(kStreamReady));
  return start && shared_load(recognition->opened);
}

// The second thread leaves the waits and the rewind to the first.
bool prepare_second(quillbrook_speech_t *, const quillbrook_run_t &run) {
  while (shared_load(run.recognition->stream_phase) != kStreamReady) {
    if (finalize_raised(&run.context)) {
      return false;
    }
    usleep(kAudioPoll);
  }
  long long size = 0;
  return look_at_stream(run, size) && !finalize_raised(&run.context);
}

// The plugin's words behind the mark of a failure.
const char *failure_text(const char *extra) {
  const char *text = extra + sizeof(kFailurePrefix) - 1;
  return text + strspn(text, " ");
}

// What the plugin left in `extra` when it cannot go on. False when there is nothing.
bool report_failure(quillbrook_speech_t *session, quillbrook_run_t &run) {
  quillbrook_context &context = run.context;
  context.extra[sizeof(context.extra) - 1] = '\0';
  if (strncmp(context.extra, kFailurePrefix, sizeof(kFailurePrefix) - 1) != 0) {
    return false;
  }
  count(session->statistics->provider_failures);
  session_log(LOG_WARNING, session, "QuillBrook plugin error: %s\n", Printable(context.extra).text());
  MutexLock held(session->result_lock);
  if (str_fifo_empty(&session->last_results)) {
    quillbrook_queue_error(run.speech, session, kCauseProvider, failure_text(context.extra));
  } else {
    quillbrook_set_done(run.speech, session);
  }
  return true;
}

// Whether words were reported that have not become a result.
bool words_are_left(quillbrook_speech_t *session, quillbrook_recognition_t *recognition) {
  MutexLock held(session->result_lock);
  return quillbrook_words_came(recognition) && str_fifo_empty(&session->last_results);
}

// Nobody hears the caller any more, and nothing else says so.
void warn_of_silent_return(quillbrook_speech_t *session, quillbrook_recognition_t *recognition) {
  MutexLock held(session->result_lock);
  if (!quillbrook_words_came(recognition) && !shared_load(recognition->plugin_closed) &&
      str_fifo_empty(&session->last_results)) {
    session_log(LOG_WARNING, session, "The plugin %s returned before its stop, without a word\n",
                shown(session->engine->plugin_name));
  }
}

// The last plugin of a single-shot recognition has returned by itself: nobody else will end it. What was heard is the
// result.
void finish_for_plugin(quillbrook_speech_t *session, struct ast_speech *speech, quillbrook_recognition_t *recognition) {
  if (!words_are_left(session, recognition)) {
    return;
  }
  quillbrook_for_each_run(
      recognition, [](quillbrook_run_t &run) { quillbrook_callback(&run.context, "", QUILLBROOK_SCORE_FINISH); });
  MutexLock held(session->result_lock);
  if (str_fifo_empty(&session->last_results)) {
    session_log(LOG_WARNING, session, "The plugin %s returned after words, without a result\n",
                shown(session->engine->plugin_name));
    quillbrook_queue_error(speech, session, kCausePlugin, "it returned after words, without a result");
  }
}

// Enters the plugin's loop, unless the gate was shut meanwhile.
void run_plugin(const quillbrook_speech_t *session, quillbrook_run_t &run) {
  PluginEntry entry;
  {
    MutexLock passing(run.gate);
    if (!run.session) {
      return;
    }
    run.phase = kRunInLoop;
    entry = PluginEntry(*session, "plugin_loop");
  }
  // Nothing of the session is used once the loop is entered.
  quillbrook_function_loop *loop = session->engine->plugin_loop;
  trace(3, "Launch the plugin_loop!");
  guarded(entry.text, static_cast<void *>(nullptr), [&] { return loop(&run.context); });
}

using Prepare = bool (*)(quillbrook_speech_t *, const quillbrook_run_t &);

void follow(quillbrook_run_t &run, Prepare prepare) {
  trace(2, "Begin QuillBrook processing %s\n", shown(run.context.filename));
  trace(3, "  uniqueid=%s\n", Printable(run.context.uniqueid).text());
  trace(3, "  mark=%s\n", Printable(run.context.mark).text());
  quillbrook_speech_t *session = nullptr;
  {
    MutexLock passing(run.gate);
    session = run.session;
  }
  if (session && prepare(session, run)) {
    run_plugin(session, run);
  }
}

void report_end(quillbrook_run_t &run) {
  bool entered = false;
  quillbrook_speech_t *session = nullptr;
  {
    MutexLock passing(run.gate);
    entered = run.phase == kRunInLoop;
    run.phase = kRunAfter;  // from here on the join waits for this thread, so the session stays
    session = run.session;
  }
  quillbrook_recognition_t *recognition = run.recognition;
  const bool last = shared_decrement(recognition->running) == 0;
  if (session && !(entered && report_failure(session, run)) && last && !shared_load(recognition->stopping)) {
    if (entered) {
      warn_of_silent_return(session, recognition);
    }
    if (!session->engine->continuous) {
      finish_for_plugin(session, run.speech, recognition);
    }
  }
  trace(2, "End QuillBrook processing %s\n", shown(run.context.filename));
  trace(3, "  uniqueid=%s\n", Printable(run.context.uniqueid).text());
  trace(3, "  mark=%s\n", Printable(run.context.mark).text());
}

// The last steps of a streaming thread, also when its plugin ends it by pthread_exit.
class EndOfThread {
public:
  explicit EndOfThread(quillbrook_run_t &run) : run_(run) {}
  ~EndOfThread() {
    guarded("quillbrook_thread", 0, [this] {
      report_end(run_);
      return 0;
    });
    const std::lock_guard<std::mutex> held(run_.end_lock);
    run_.ended = true;
    run_.end_changed.notify_all();
  }
  EndOfThread(const EndOfThread &) = delete;
  EndOfThread &operator=(const EndOfThread &) = delete;

private:
  quillbrook_run_t &run_;
};

// Lines of this thread carry the call's id.
void bind_to_call(quillbrook_run_t &run) {
  MutexLock passing(run.gate);
  if (run.session && run.session->call) {
    run.session->call->bind_this_thread();
  }
}

void *enter(void *data, Prepare prepare) {
  auto &run = *static_cast<quillbrook_run_t *>(data);
  {
    const EndOfThread end(run);
    guarded("quillbrook_thread", 0, [&] {
      bind_to_call(run);
      follow(run, prepare);
      return 0;
    });
  }
  pthread_exit(nullptr);
}

struct LaunchWords {
  const char *initialized;
  const char *refused;
  const char *caller;
};

int launch(quillbrook_speech_t *session, quillbrook_run_t &run, void *(*entry)(void *), const LaunchWords &words) {
  quillbrook_context *context = &run.context;
  context->session = 0;
  context->initialize = 0;
  context->thread = kNoThread;
  if (guarded(PluginEntry(*session, "plugin_init").text, -1, [=] { return session->engine->plugin_init(context); })) {
    shared_decrement(run.recognition->running);
    session_log(LOG_WARNING, session, "%s", words.refused);
    quillbrook_note_failure(session, kCausePlugin, "it refused the recognition");
    return -1;
  }
  if (host_debug_at_least(3)) {
    ast_log(LOG_DEBUG, "%s", words.initialized);
  }
  const int result = ast_pthread_create_stack(&context->thread, nullptr, entry, &run, host_stack_size(), __FILE__,
                                              words.caller, __LINE__, "quillbrook_thread");
  if (result) {
    shared_decrement(run.recognition->running);
    context->thread = kNoThread;
    quillbrook_note_failure(session, kCauseMemory, strerror(result));
  }
  return result;
}

}  // namespace

int launch_quillbrook_thread(quillbrook_speech_t *session) {
  quillbrook_recognition_t *recognition = session->recognition;
  shared_store(recognition->context1->finalize, 0);
  const int result =
      launch(session, *quillbrook_run_of(recognition->context1), quillbrook_thread,
             {"Initialize the plugin.\n", "Failed to intialize quillbrook plugin\n", "launch_quillbrook_thread"});
  if (result) {
    // Nobody does the waits: the second thread must not wait for them.
    shared_store(recognition->stream_phase, static_cast<int>(kStreamReady));
  }
  return result;
}

int launch_quillbrook_thread2(quillbrook_speech_t *session) {
  return launch(session, *quillbrook_run_of(session->recognition->context2), quillbrook_thread2,
                {"Initialize the plugin2.\n", "Failed to intialize quillbrook plugin2\n", "launch_quillbrook_thread2"});
}

void *quillbrook_thread(void *data) {
  return enter(data, prepare_first);
}

void *quillbrook_thread2(void *data) {
  return enter(data, prepare_second);
}
