// The names of sessions: "QBK-" and the tag of the call, or else the session's address. They stand in front of log
// lines and in the names of result files, so no two living sessions have one name: a name that is in use gets "-2",
// "-3" and so on behind its tag.
#pragma once

#include "../record/session.h"

// Names a session; an empty `tag` stands for none. A name that is too long is cut.
void quillbrook_name_session(quillbrook_speech_t *session, const char *tag);

// The name is free again.
void quillbrook_free_name(const quillbrook_speech_t *session);
