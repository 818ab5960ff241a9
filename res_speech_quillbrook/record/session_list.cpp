#include "session_list.h"

namespace {

// The first lock in the order of locks.
Mutex list_lock;
// Never destroyed, because threads of the host are under way when a PBX ends that does not unload its modules.
alignas(std::condition_variable_any) char visit_ended_storage[sizeof(std::condition_variable_any)];
std::condition_variable_any &visit_ended = *new (visit_ended_storage) std::condition_variable_any();
quillbrook_speech_t *first_session QUILLBROOK_GUARDED_BY(list_lock);

quillbrook_speech_t *find(const struct ast_speech *speech) QUILLBROOK_REQUIRES(list_lock) {
  quillbrook_speech_t *session = first_session;
  while (session && session->place.speech != speech) {
    session = session->place.next;
  }
  return session;
}

}  // namespace

void quillbrook_sessions_add(struct ast_speech *speech, quillbrook_speech_t *session) {
  MutexLock held(list_lock);
  session->place = {speech, first_session, nullptr, 0};
  if (first_session) {
    first_session->place.previous = session;
  }
  first_session = session;
}

void quillbrook_sessions_remove(quillbrook_speech_t *session) {
  MutexLock held(list_lock);
  quillbrook_session_place &place = session->place;
  if (place.next) {
    place.next->place.previous = place.previous;
  }
  if (place.previous) {
    place.previous->place.next = place.next;
  } else if (first_session == session) {
    first_session = place.next;
  }
  while (place.visits > 0) {
    visit_ended.wait(list_lock);
  }
}

SessionVisit::SessionVisit(const struct ast_speech *speech) {
  MutexLock held(list_lock);
  session_ = find(speech);
  if (session_) {
    ++session_->place.visits;
  }
}

SessionVisit::~SessionVisit() {
  if (!session_) {
    return;
  }
  MutexLock held(list_lock);
  if (--session_->place.visits == 0) {
    visit_ended.notify_all();
  }
}

void quillbrook_sessions_look(const std::function<void(quillbrook_speech_t &)> &look) {
  MutexLock held(list_lock);
  for (quillbrook_speech_t *session = first_session; session; session = session->place.next) {
    look(*session);
  }
}
