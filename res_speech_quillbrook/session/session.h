// The session: the module's state for one ast_speech object, that is, for one speech resource of one call.
//
// quillbrook_recog_create makes it and hangs it on the `data` field of ast_speech; quillbrook_recog_destroy releases
// it. In between it serves one recognition after the other.
//
// Threads. The host's entries run on the channel's dialplan thread. A recognition adds a streaming thread
// (streaming_thread.h), which runs the plugin, and the plugin reports through quillbrook_callback on that thread or on
// one of its own. Each group of fields below says who writes it.
//
// Locks, in the order in which they are taken:
//   result_lock    the result engine's fields, and the pair of a queued result and the host's state
//   grammar_lock   `grammars`
//   lock           `file`
//   leaf locks     the queue's own (str_fifo.h) and quillbrook_stat_lock (ops/statistics.h)
// The host's lock of ast_speech may be held by our caller; the module never takes it. None of ours is held while a
// plugin's function runs or a thread is joined.
#pragma once

#include "../engine/engine.h"
#include "../grammar/grammar_manager.h"
#include "../host.h"
#include "../support/bounded_text.h"
#include "../support/mutex.h"
#include "../support/shared_flag.h"
#include "../support/str_fifo.h"

// Sizes in bytes of the session's texts, the terminating zero included.
constexpr size_t kNameSize = 150;
constexpr size_t kUniqueidSize = 152;
constexpr size_t kMarkSize = 150;
constexpr size_t kLoggingtagSize = 400;
constexpr size_t kGrammarNameSize = 20;

// The value of `thread` of a context that has no thread: before its launch, and after the join.
const pthread_t kNoThread = static_cast<pthread_t>(-1);

// How far the first streaming thread is; the second one waits for it (twin mode).
enum quillbrook_stream_phase { kStreamWaiting = 0, kStreamReady = 1 };

// Texts by pointer are heap strings that the session owns, or null. Times in int are milliseconds.
struct quillbrook_speech_t {
  // Constant after create.
  char name[kNameSize];          // "QBK-..." in front of each log line, and in the names of result files
  char uniqueid[kUniqueidSize];  // of the channel; lent to the plugin
  char mark[kMarkSize];          // remote party; lent to the plugin
  quillbrook_engine_t *engine;   // an entry of the engine table
  quillbrook_engine_t *engine2;  // not used

  // The audio. `dsp` is used by the dialplan thread only; `file` is guarded by `lock`, which guards nothing else.
  struct ast_dsp *dsp;
  struct ast_filestream *file;
  ast_mutex_t lock;
  int silence;  // ms of silence at the latest frame. Written by the dialplan thread; shared with the plugin

  // Settings of the session: written by the dialplan thread (create and the grammar commands). Those marked shared are
  // read by a running recognition.
  int timeouts;
  float speedvsaccuracy;
  int completetimeout;
  int incompletetimeout;
  int minspeechtimeout;  // shared
  int maxspeechtimeout;
  int speechtimeout;       // shared
  int extendedtimeout;     // shared
  int earlyspeechtimeout;  // shared
  int providertimeout;
  int prompting;  // parties at the rendezvous of the prompting wait; shared between start and the streaming thread
  char loggingtag[kLoggingtagSize];

  // Dates of the recognition; unset when zero. Written under result_lock.
  struct timeval datestart;
  struct timeval datelast;     // the call of the callback being handled
  struct timeval datevoice;    // first call that found no silence; not reset between recognitions
  struct timeval datefirst;    // first text
  struct timeval datesilence;  // from when on the text stream counts as silent
  struct timeval datestop;     // not used
  struct timeval datespeech;   // not used
  struct timeval datefinalize;
  struct timeval dateclose;  // from when on the plugin is closing
  int plugin_closed;         // 1 once the plugin has reported the end of its session; shared

  // The running recognition, or null. Written by the dialplan thread, which owns them; the streaming threads read them
  // only between their creation and their join.
  quillbrook_context *context1;
  quillbrook_context *context2;  // twin mode

  char grammar_id[kGrammarNameSize];  // grammar that results are attributed to; guarded by grammar_lock
  char model[QUILLBROOK_TEXT_SIZE];
  char language[QUILLBROOK_TEXT_SIZE];
  char voice[QUILLBROOK_TEXT_SIZE];
  char configuration[QUILLBROOK_TEXT_SIZE];
  char context[QUILLBROOK_TEXT_SIZE];
  char extra[QUILLBROOK_TEXT_SIZE];
  char *phrases;
  char config_name[kGrammarNameSize];
  char *config_pointer;  // content of a configuration file, a zero byte behind it; lent to the plugin
  char context_name[kGrammarNameSize];
  char context_text[QUILLBROOK_TEXT_SIZE];

  // The result engine's (result/); written under result_lock.
  char *text;          // confirmed text
  char *text_interim;  // latest interim
  int scores_total;
  int scores_count;
  int score;  // percent
  char *interpretation;
  char *json;
  int counter_result;  // result files written by the session

  str_fifo last_results;  // oldest first

  GrammarManager grammars QUILLBROOK_GUARDED_BY(grammar_lock);

  // Not told to plugins or the host.
  Mutex result_lock;
  Mutex grammar_lock;
  int stream_phase;         // quillbrook_stream_phase; shared between the two streaming threads of twin mode
  int digits_pending;       // digits were reported since the last start. Dialplan thread only
  int incomplete_reported;  // the incomplete error of the present silence is out. Written under result_lock
  std::vector<char *> retired_configs;  // former config_pointers that the running recognition still points at
};

// Releases a text and clears its pointer.
inline void quillbrook_release_text(char *&text) {
  ast_free(text);
  text = nullptr;
}

// The session of a speech object, or null once it has been taken apart.
inline quillbrook_speech_t *quillbrook_session_of(const struct ast_speech *speech) {
  return static_cast<quillbrook_speech_t *>(shared_load(speech->data));
}
