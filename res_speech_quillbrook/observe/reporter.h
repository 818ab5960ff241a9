// The reporting thread: one for the whole module, which sends manager events and writes traces, so that no thread of a
// call does. It gets small records through a queue of limited length. A producer holds the queue's lock, a leaf, for
// one append, and never waits for the thread; what finds the queue full is lost, counted, and told in the log.
//
// While events are sent and files written no lock of the module is held.
#pragma once

#include "../host.h"

class Observer;

struct quillbrook_report {
  enum Kind {
    kEvent,      // `text` are the fields of the manager event `event`
    kInterim,    // the observer has one to send
    kTrace,      // `text` is the first line of a new trace
    kTraceLine,  // one more
    kTraceEnd    // the last one
  };
  std::shared_ptr<Observer> observer;
  Kind kind;
  const char *event;  // constant
  std::string text;
};

// Records that wait at most.
constexpr size_t kReportsMax = 4096;

// Any thread. Never fails: without memory the record is lost too.
void quillbrook_report_push(quillbrook_report report);

// Handles what waits. Gives the milliseconds until an interim that was held back is due, or -1. The thread's; and a
// test's, where there is no thread.
int quillbrook_report_all();

// Start and end the thread. Loading thread. False when there is none to be had; then nothing is reported. What waits at
// the end is handled first.
bool quillbrook_reporter_start();
void quillbrook_reporter_stop();
