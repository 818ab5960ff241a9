// The session: the module's state for one ast_speech object, that is, for one speech resource of one call.
//
// quillbrook_recog_create makes it and hangs it on the `data` field of ast_speech; quillbrook_recog_destroy releases
// it. In between it serves one recognition after the other.
//
// Threads. The host's entries run on the channel's dialplan thread. A recognition adds a streaming thread
// (session/streaming_thread.h), which runs the plugin, and the plugin reports through quillbrook_callback on that
// thread or on one of its own. The module's watch thread (session/watch.h) looks at it now and then. Each group of
// fields below says who writes it.
//
// Locks, in the order in which they are taken:
//   the list's          (session_list.h) which sessions exist
//   gate               of a run (recognition.h): one call of its plugin at a time, while there is a session for it
//   result_lock        what the runs have reported, the pointer to the recognition, and the pair of a queued result and
//                      the host's state
//   grammar_lock       `grammars` and `grammar_id`; a match runs on a copy, and with the gate alone
//   lock               of a recognition: `file`
//   leaf locks         the queue's own (str_fifo.h) and quillbrook_stat_lock (ops/statistics.h)
// The host's lock of ast_speech may be held by our caller; the module never takes it. None of ours is held while a
// plugin's function runs or a thread is joined.
#pragma once

#include "../host.h"
#include "../observe/observer.h"
#include "../support/bounded_text.h"
#include "../support/mutex.h"
#include "../support/shared_flag.h"
#include "../support/str_fifo.h"
#include "../support/text.h"
#include "engine.h"
#include "engine_statistics.h"
#include "grammar_manager.h"
#include "recognition.h"
#include "result.h"

// Sizes in bytes of the session's texts, the terminating zero included.
constexpr size_t kNameSize = 150;
constexpr size_t kLoggingtagSize = 400;
constexpr size_t kGrammarNameSize = 20;

struct quillbrook_speech_t;

// The session's place in the list of sessions (session_list.h), guarded by the list's lock.
struct quillbrook_session_place {
  struct ast_speech *speech;  // constant while it is listed
  quillbrook_speech_t *next;
  quillbrook_speech_t *previous;
  int visits;  // under way; the session stays as long
};

// What the watch (session/watch.h) keeps of a session, under result_lock.
struct quillbrook_watch_entry {
  int result_waits;     // a result was queued, and no get has come since
  int looks_not_ready;  // in a row, that found a result waiting and the object NOT_READY
  int passed_over;      // the host will not collect what waits
  int quieted;          // words switched off the dialplan's timeout, and no result has come since, nor a start
};

// Messages with a score that does not exist have one line a second.
struct quillbrook_bad_scores {
  bool came;
  int more;           // since the last line
  int64_t last_line;  // when it was written
};

// Texts by pointer are heap strings that the session owns, or null. Times in int are milliseconds.
struct quillbrook_speech_t {
  // Constant after create.
  char name[kNameSize];                      // "QBK-..." in front of each log line, and in the names of result files
  char uniqueid[kUniqueidSize];              // of the channel; lent to the plugin
  char mark[kMarkSize];                      // remote party; lent to the plugin
  quillbrook_engine_t *engine;               // an entry of `engines`
  quillbrook_engine_t *engine2;              // not used
  quillbrook_engine_statistics *statistics;  // of the engine
  std::shared_ptr<Observer> observer;        // null when the engine reports nothing
  std::shared_ptr<const HostCallId> call;    // whose dialplan made the session

  // The recognition, from a full start until it has been collected or abandoned; null in between. The dialplan thread
  // makes and ends it, and writes the pointer under result_lock, so that others may read it under that.
  quillbrook_recognition_t *recognition;

  // Settings of the session: written by the dialplan thread (create and the grammar commands). Those marked shared are
  // read by a running recognition.
  int timeouts;
  float speedvsaccuracy;
  int completetimeout;    // shared
  int incompletetimeout;  // shared
  int minspeechtimeout;   // shared
  int maxspeechtimeout;
  int speechtimeout;       // shared
  int extendedtimeout;     // shared
  int earlyspeechtimeout;  // shared
  int providertimeout;
  int grammartimeouts;  // shared
  int matchtimeout;     // shared
  char loggingtag[kLoggingtagSize];

  char grammar_id[kGrammarNameSize];  // grammar that results are attributed to; guarded by grammar_lock
  char model[QUILLBROOK_TEXT_SIZE];
  char language[QUILLBROOK_TEXT_SIZE];
  char voice[QUILLBROOK_TEXT_SIZE];
  char configuration[QUILLBROOK_TEXT_SIZE];
  char context[QUILLBROOK_TEXT_SIZE];
  char extra[QUILLBROOK_TEXT_SIZE];
  char *phrases;
  char config_name[kGrammarNameSize];
  std::shared_ptr<char> config_pointer;  // content of a configuration file, a zero byte behind it; lent to the plugin
  char context_name[kGrammarNameSize];
  char context_text[QUILLBROOK_TEXT_SIZE];
  std::set<std::string> grammar_names;  // under which something was loaded

  // Results. Written under result_lock.
  int score;           // percent, of the recognition that was collected last
  int counter_result;  // result files written by the session

  quillbrook_bad_scores bad_scores;

  str_fifo last_results;  // oldest first

  // What is known about the result that the host fetched last, since the latest start, and about what keeps the
  // recognition from having any. Empty when there is none. Under result_lock.
  std::shared_ptr<const quillbrook_result_t> fetched;
  std::shared_ptr<const quillbrook_result_t> failure;

  GrammarManager grammars QUILLBROOK_GUARDED_BY(grammar_lock);

  // Not told to plugins or the host.
  EngineTable engines;  // of the configuration that the session began with. Constant
  Mutex result_lock;
  Mutex grammar_lock;
  quillbrook_session_place place;
  quillbrook_watch_entry watch;
  int digits_pending;  // digits were reported since the last start. Dialplan thread only
};

// A line of the log about a session: "[ENGINE] (NAME) ...".
#define session_log(level, session, format, ...) \
  ast_log(level, "[%s] (%s) " format, EngineHostName(*(session)->engine).text, (session)->name, ##__VA_ARGS__)

// The session of a speech object, or null once it has been taken apart.
inline quillbrook_speech_t *quillbrook_session_of(const struct ast_speech *speech) {
  return static_cast<quillbrook_speech_t *>(shared_load(speech->data));
}
