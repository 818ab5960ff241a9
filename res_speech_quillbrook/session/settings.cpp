#include "../record/session.h"
#include "entries.h"

namespace {

// The host lets other threads read and write a channel's settings, and one of them may come as the session goes.
const char *name_of(const struct ast_speech *speech) {
  const quillbrook_speech_t *session = quillbrook_session_of(speech);
  return session ? session->name : "?";
}

}  // namespace

int quillbrook_recog_dtmf(struct ast_speech *speech, const char *dtmf) {
  quillbrook_speech_t *session = quillbrook_session_of(speech);
  session_notice(session, "Signal DTMF %s\n", shown(dtmf));
  session->digits_pending = 1;
  return 0;
}

int quillbrook_recog_change(struct ast_speech *speech, const char *name, const char *value) {
  notice("(%s) Change setting name: %s value:%s\n", name_of(speech), shown(name), shown(value));
  return 0;
}

int quillbrook_recog_get_settings(struct ast_speech *speech, const char *name, char *, size_t) {
  notice("(%s) Get settings name: %s\n", name_of(speech), shown(name));
  return -1;
}

int quillbrook_recog_change_results_type(struct ast_speech *speech, enum ast_speech_results_type results_type) {
  notice("(%s) Get result type: %d\n", name_of(speech), static_cast<int>(results_type));
  return -1;
}
