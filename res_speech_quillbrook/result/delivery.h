// A finished text becomes what the host gets: the text itself, or the path of a JSON or NLSML file, by the engine's
// settings. It is queued, and the state of the speech object says so.
#pragma once

#include "message.h"

// Delivers the session's text, if there is any. A file that cannot be written gives the result "error".
void quillbrook_deliver(quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock);
