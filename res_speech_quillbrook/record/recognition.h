// One recognition: everything that belongs to it and to nothing else. A full start makes it, fresh and zeroed; when it
// is over it goes as a whole. So nothing of one recognition can reach the next, and no start needs a list of what to
// reset.
//
//   quillbrook_recognition_t      the stream, the detector, the way through the waits
//     quillbrook_run_t            one run of the plugin (two in twin mode): the record that the plugin gets, its
//     thread,
//                                 and its gate
//       quillbrook_transcript_t   what this run has reported: dates, texts, scores
//
// Life. Made by quillbrook_recog_start (session/start.cpp); ended by the get of a single-shot session, by a start that
// abandons it, or by destroy (session/recognition.cpp). A run whose plugin does not return from its loop is left behind
// with its recognition, and neither is ever released: what the plugin may still look at stays as it is.
//
// Threads. The dialplan thread makes and ends it and owns what has no other word beside it. A streaming thread gets its
// run, and uses the session only while the plugin's loop has not begun or while it holds the gate.
#pragma once

#include "../host.h"
#include "../support/mutex.h"
#include "../support/shared_flag.h"
#include "engine.h"
#include "quillbrook.h"
#include "result.h"

struct quillbrook_recognition_t;
struct quillbrook_speech_t;

// Sizes in bytes, the terminating zero included.
constexpr size_t kUniqueidSize = 152;
constexpr size_t kMarkSize = 150;

// The value of `thread` of a context that has no thread: before its launch, and after the join.
const pthread_t kNoThread = static_cast<pthread_t>(-1);

// Names of the stream file. The host's file functions take a base name and a format, which is the extension.
struct quillbrook_stream_name {
  char base[100];
  char full[120];
};

// What the words of a text are to the active grammars, when they choose the limit of its silence.
enum quillbrook_extent {
  kExtentUnknown = 0,  // nobody has asked them, or they have no answer
  kExtentImpossible,   // no text that they accept begins like that
  kExtentBeginning,
  kExtentCompleteSoFar,  // accepted, and more may follow
  kExtentComplete,       // accepted, and nothing may follow
};

// Bytes of a transcript at most, confirmed and unconfirmed text together. What is beyond is dropped.
constexpr size_t kTranscriptMax = size_t{1} << 20;

// What one run of the plugin has reported. Written under result_lock of the session. Texts are heap strings that the
// transcript owns, or null. A date is unset when it is zero.
struct quillbrook_transcript_t {
  struct timeval datestart;
  struct timeval datelast;     // the call of the callback being handled
  struct timeval datevoice;    // first call that found no silence
  struct timeval datefirst;    // first text
  struct timeval datewords;    // latest words that were new, until a result comes
  struct timeval datesilence;  // from when on the text stream counts as silent
  struct timeval datefinalize;
  struct timeval dateclose;  // from when on the plugin is closing

  char *text;          // confirmed text
  size_t text_length;  // of `text`, and what it was allocated with, and whether a piece of it was cut off. They mean
  size_t text_size;    // nothing while it is null
  bool text_full;
  char *text_interim;  // latest interim
  int scores_total;
  int scores_count;
  int score;  // percent
  char *interpretation;
  char *json;
  int json_of_interim;       // `json` came with an interim
  std::string json_pieces;   // with `jsonpieces`: a value for each final piece of `text`, separated by commas
  int incomplete_reported;   // the incomplete error of the present silence is out
  int overflow_reported;     // the transcript has reached its limit
  int no_match;              // the plugin has said that nothing was understood
  int overtaken;             // another run has made the result of this utterance (result/utterance.h)
  int unanswered;            // a text has stopped the prompt, and the session has queued no result since
  quillbrook_extent extent;  // of the latest text
  int extent_given_up;       // judging an earlier text took too much: no more of this utterance is judged
};

// What a trace (observation.h) knows of a run. Under result_lock.
struct quillbrook_traced {
  struct timeval datesilence;
  int complete;  // limits
  int incomplete;
  bool quiet;
  bool finalize;
  const char *expired;
};

// How far a run is. Only inside the plugin's loop is a thread left behind: everywhere else it comes to an end by
// itself.
enum quillbrook_run_phase { kRunBefore = 0, kRunInLoop = 1, kRunAfter = 2 };

// The value of `next_timer` while no timer runs.
constexpr int64_t kNoTimer = INT64_MAX;

struct quillbrook_run_t {
  quillbrook_context context;  // first: the callback gets its address
  quillbrook_transcript_t transcript;
  quillbrook_traced traced;
  quillbrook_recognition_t *recognition;
  struct ast_speech *speech;  // there as long as the session is
  int64_t next_timer;         // no timer expires earlier, by the monotonic clock in ms. Written by the callback; shared

  // The gate: calls of the plugin pass one at a time, and only while `session` stands. It lives and dies with the run,
  // so that a plugin that never returns meets it for as long as it likes. Taken before all locks of the session.
  Mutex gate;
  quillbrook_speech_t *session QUILLBROOK_GUARDED_BY(gate);  // null: closed
  quillbrook_run_phase phase QUILLBROOK_GUARDED_BY(gate);
  int complaints QUILLBROOK_GUARDED_BY(gate);  // of the plugin, that came

  // The end of the streaming thread, for a join with a limit.
  std::mutex end_lock;
  std::condition_variable end_changed;
  bool ended;  // guarded by end_lock
};
static_assert(std::is_standard_layout_v<quillbrook_run_t>, "the callback finds the run by the address of its record");

inline quillbrook_run_t *quillbrook_run_of(quillbrook_context *context) {
  return reinterpret_cast<quillbrook_run_t *>(context);
}

// How far the first streaming thread is; the second one waits for it (twin mode).
enum quillbrook_stream_phase { kStreamWaiting = 0, kStreamReady = 1 };

struct quillbrook_recognition_t {
  // Constant after the start.
  char uniqueid[kUniqueidSize];  // copies of the session's, lent to the plugin
  char mark[kMarkSize];
  std::shared_ptr<char> config;  // keeps what config_pointer of the contexts points at
  quillbrook_stream_name stream;
  quillbrook_context *context1;  // each within its run; null when there was no memory
  quillbrook_context *context2;  // twin mode

  // The audio. `dsp` is used by the dialplan thread; whether there is one does not change while a run lasts.
  struct ast_dsp *dsp;
  ast_mutex_t lock;             // guards `file`, and nothing else
  struct ast_filestream *file;  // null whenever no stream is open
  int opened;                   // the file under the stream's name is ours; shared with the streaming threads
  int audio_lost;               // a failure of the stream was reported; shared with them
  int silence;                  // ms of silence at the latest frame. Dialplan thread; shared with the plugin

  // The way to the plugin's loop; shared.
  int prompting;     // parties at the rendezvous of the prompting wait
  int stream_phase;  // quillbrook_stream_phase
  int running;       // streaming threads that have not come to their end
  int stopping;      // the module calls plugin_stop; written under result_lock

  int matches;    // texts that are being held against grammars, outside of result_lock; written under it
  int abandoned;  // nobody waits for a result of this any more; under result_lock

  int plugin_closed;  // 1 once the plugin has reported the end of its session; written under result_lock, shared
  quillbrook_transcript_t *delivered;  // of the run that made the latest result, else of the first; under result_lock

  int64_t last_call;     // of a plugin, by the monotonic clock; shared
  int silence_reported;  // the plugin's silence has ended this recognition; under result_lock

  // For the counters (engine_statistics.h). Moments by the monotonic clock, in microseconds.
  int64_t began;
  int64_t stop_began;  // the latest call of plugin_stop. Dialplan thread
  int64_t samples;     // that the stream held when it was closed; under `lock`
  int results;         // that were queued, and the cause of the latest; under result_lock
  quillbrook_cause cause;
  int results_dropped;      // the log has said that the queue is full; under result_lock
  int first_words_counted;  // under result_lock

  int left_behind;      // a run did not return: nothing of this is released
  EngineTable engines;  // then also the plugin that it runs in, and the texts of its engine
};

// Make an empty recognition, and a run in it, which becomes its context1 and then context2. Null when there is no
// memory.
quillbrook_recognition_t *quillbrook_make_recognition();
quillbrook_run_t *quillbrook_add_run(quillbrook_recognition_t *recognition);

// Releases the recognition with its runs and their texts, and makes the pointer null. Files are closed, threads joined,
// the detector freed by then. One that is left behind stays.
void quillbrook_release_recognition(quillbrook_recognition_t *&recognition);

// Whether a run has reported words. Under result_lock.
bool quillbrook_words_came(quillbrook_recognition_t *recognition);

// Releases the texts and makes everything unset.
void quillbrook_clear_transcript(quillbrook_transcript_t &transcript);

// Calls `visit(run)` for the runs of a recognition, which may be null.
template <typename Visit>
void quillbrook_for_each_run(quillbrook_recognition_t *recognition, Visit &&visit) {
  if (!recognition) {
    return;
  }
  for (quillbrook_context *context : {recognition->context1, recognition->context2}) {
    if (context) {
      visit(*quillbrook_run_of(context));
    }
  }
}
