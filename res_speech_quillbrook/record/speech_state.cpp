#include "speech_state.h"

namespace {

// Never destroyed: a PBX that ends without unloading its modules leaves the watch asleep on it, and to destroy what a
// thread waits on is to wait for that thread.
alignas(Bell) char bell_storage[sizeof(Bell)];

}  // namespace

Bell &quillbrook_watch_bell = *new (bell_storage) Bell();

void quillbrook_note_result(quillbrook_speech_t *session) {
  session->watch.result_waits = 1;
  session->watch.looks_not_ready = 0;
  quillbrook_watch_bell.ring();
}

void quillbrook_queue_result(struct ast_speech *speech, quillbrook_speech_t *session, const char *result) {
  str_fifo_push(&session->last_results, result);
  quillbrook_note_result(session);
  quillbrook_set_done(speech, session);
}

void quillbrook_set_done(struct ast_speech *speech, quillbrook_speech_t *session) {
  session_notice(session, "Set state DONE\n");
  ast_speech_change_state(speech, AST_SPEECH_STATE_DONE);
}

void quillbrook_set_ready(struct ast_speech *speech, quillbrook_speech_t *session) {
  session_notice(session, "Set state READY\n");
  ast_speech_change_state(speech, AST_SPEECH_STATE_READY);
}
