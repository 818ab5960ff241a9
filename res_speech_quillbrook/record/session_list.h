// The sessions that exist, for who is not on their dialplan thread: the console, and the host's manager and AGI, which
// may ask for a setting while the call ends.
#pragma once

#include "session.h"

// `speech` has to outlive its place in the list. Dialplan thread.
void quillbrook_sessions_add(struct ast_speech *speech, quillbrook_speech_t *session);

// From when this returns on no visit finds the session, and none is under way any more.
void quillbrook_sessions_remove(quillbrook_speech_t *session);

// Keeps the session of a speech object from going while it is looked at. No lock is held meanwhile, and a visit must be
// short: the end of the session waits for it.
class SessionVisit {
public:
  explicit SessionVisit(const struct ast_speech *speech);
  ~SessionVisit();
  SessionVisit(const SessionVisit &) = delete;
  SessionVisit &operator=(const SessionVisit &) = delete;

  // Null when the object has no session (any more).
  quillbrook_speech_t *session() const { return session_; }

private:
  quillbrook_speech_t *session_;
};

// Calls `look(session)` for each session, in no particular order, under the list's lock, which creating and ending a
// session needs: `look` must not wait for anything.
void quillbrook_sessions_look(const std::function<void(quillbrook_speech_t &)> &look);
