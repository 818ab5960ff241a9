// What sessions tell their observer (observe/observer.h): where a call passes, one line each. A session without an
// observer, which is the rule, costs a look at a pointer.
//
// All may be called with locks of the session held.
#pragma once

#include "session.h"

// Gives the session an observer when its engine reports anything. Dialplan thread, before others know the session.
void quillbrook_observe_session(quillbrook_speech_t *session);

// The recognition has taken its place in the session; and is over, by a cause that may be empty.
void quillbrook_observe_start(const quillbrook_speech_t *session, const quillbrook_recognition_t *recognition);
inline void quillbrook_observe_end(const quillbrook_speech_t *session, const char *cause) {
  if (session->observer) {
    session->observer->end(cause);
  }
}

inline bool quillbrook_is_traced(const quillbrook_speech_t *session) {
  return session->observer && session->observer->traces();
}

// A call of the plugin, as it came; `session_ended` when it reports the end of its session.
void quillbrook_trace_call(const quillbrook_speech_t *session, const quillbrook_run_t &run, const char *text, int score,
                           bool session_ended) QUILLBROOK_REQUIRES(session->result_lock);
inline void quillbrook_observe_call(const quillbrook_speech_t *session, const quillbrook_run_t &run, const char *text,
                                    int score, bool session_ended) QUILLBROOK_REQUIRES(session->result_lock) {
  if (quillbrook_is_traced(session)) {
    quillbrook_trace_call(session, run, text, score, session_ended);
  }
}

// What the timers found at a call.
struct quillbrook_timers {
  int complete;         // the complete timeout, as the grammars chose it; 0: it does not run
  const char *expired;  // the timer that has run out, or null, and its limit
  int limit;
};
void quillbrook_trace_timers(const quillbrook_speech_t *session, quillbrook_run_t &run, const quillbrook_timers &timers)
    QUILLBROOK_REQUIRES(session->result_lock);
inline void quillbrook_observe_timers(const quillbrook_speech_t *session, quillbrook_run_t &run,
                                      const quillbrook_timers &timers) QUILLBROOK_REQUIRES(session->result_lock) {
  if (quillbrook_is_traced(session)) {
    quillbrook_trace_timers(session, run, timers);
  }
}

// Another timer has run out.
void quillbrook_trace_expiry(const quillbrook_speech_t *session, const char *timer, int limit);
inline void quillbrook_observe_expiry(const quillbrook_speech_t *session, const char *timer, int limit) {
  if (quillbrook_is_traced(session)) {
    quillbrook_trace_expiry(session, timer, limit);
  }
}

// Words that are news.
inline void quillbrook_observe_words(const quillbrook_speech_t *session, const char *text, int score) {
  if (session->observer) {
    session->observer->words(text, score);
  }
}

void quillbrook_trace_state(const quillbrook_speech_t *session, const char *state);
inline void quillbrook_observe_state(const quillbrook_speech_t *session, const char *state) {
  if (quillbrook_is_traced(session)) {
    quillbrook_trace_state(session, state);
  }
}

// A result goes into the queue under that text.
inline void quillbrook_observe_result(const quillbrook_speech_t *session, const char *text,
                                      const quillbrook_result_t &details) {
  if (session->observer) {
    const char *heard = details.input.empty() ? text : details.input.c_str();
    session->observer->result(
        {heard, text, details.score, quillbrook_cause_name(details.cause), details.reason.c_str()});
  }
}
