// What one session reports of itself: manager events (key `events`) and a trace of each recognition (key `trace`). A
// session that reports neither has no observer.
//
// Its functions are called on the threads of the call, whatever locks these hold; they make a text and hand it to the
// reporting thread (reporter.h). None throws.
#pragma once

#include "../host.h"
#include "../support/mutex.h"
#include "reporter.h"
#include "trace_file.h"

enum quillbrook_events { kEventsNone = 0, kEventsResults = 1, kEventsInterims = 2 };

// Milliseconds between two interim events of a session.
constexpr int64_t kInterimGap = 100;

// What the reporting thread is told of a result. Texts are used before the call returns.
struct quillbrook_result_report {
  const char *text;    // what was heard, else what the dialplan gets
  const char *result;  // what the dialplan gets
  int score;
  const char *cause;
  const char *reason;
};

// One line of a trace, a JSON object. Every line has `ms`, milliseconds from the start, and `what` first.
class TraceLine {
public:
  TraceLine(int64_t ms, const char *what);
  TraceLine &add(const char *name, int64_t number);
  TraceLine &add(const char *name, const char *text);
  std::string text() const { return text_ + "}\n"; }

private:
  std::string text_;
};

class Observer : public std::enable_shared_from_this<Observer> {
public:
  // `folder` is that of the traces, empty for none.
  Observer(quillbrook_observed identity, int events, std::string folder);

  const quillbrook_observed &identity() const { return identity_; }
  bool traces() const { return !folder_is_empty_; }

  // Milliseconds since the recognition began.
  int64_t now() const;

  // A recognition begins, and ends with a cause, which may be empty. `settings` are further fields of a trace's first
  // line.
  void begin(const std::function<void(TraceLine &)> &settings);
  void end(const char *cause);

  // New words: a hypothesis, or with a score above 0 a final piece.
  void words(const char *text, int score);
  void result(const quillbrook_result_report &result);

  // A line of the trace. Call it only where there is one.
  void line(const TraceLine &line);

  // --- The reporting thread's ---------------------------------------------------------------------------------------

  // Sends the newest interim, or gives the moment (monotonic) until which it has to wait. 0 when there is none left.
  int64_t send_interim();

  TraceFile &file() { return file_; }

private:
  void event(const char *name, std::string fields);

  const quillbrook_observed identity_;
  const int events_;
  const bool folder_is_empty_;
  const std::string who_;       // the fields that all events begin with
  std::atomic<int64_t> began_;  // monotonic

  Mutex lock_;                                           // a leaf but for the queue's of the reporter
  std::string interim_ QUILLBROOK_GUARDED_BY(lock_);     // fields of the one to send, empty when there is none
  bool announced_ QUILLBROOK_GUARDED_BY(lock_) = false;  // the reporting thread knows of it
  int64_t interim_sent_ = 0;                             // reporting thread
  TraceFile file_;                                       // reporting thread
};
