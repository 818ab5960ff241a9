#include "entries.h"
#include "../record/session.h"

int quillbrook_recog_dtmf(struct ast_speech *speech, const char *dtmf) {
  quillbrook_speech_t *session = quillbrook_session_of(speech);
  session_notice(session, "Signal DTMF %s\n", shown(dtmf));
  session->digits_pending = 1;
  return 0;
}

int quillbrook_recog_change(struct ast_speech *speech, const char *name, const char *value) {
  session_notice(quillbrook_session_of(speech), "Change setting name: %s value:%s\n", shown(name), shown(value));
  return 0;
}

int quillbrook_recog_get_settings(struct ast_speech *speech, const char *name, char *, size_t) {
  session_notice(quillbrook_session_of(speech), "Get settings name: %s\n", shown(name));
  return -1;
}

int quillbrook_recog_change_results_type(struct ast_speech *speech, enum ast_speech_results_type results_type) {
  session_notice(quillbrook_session_of(speech), "Get result type: %d\n", static_cast<int>(results_type));
  return -1;
}
