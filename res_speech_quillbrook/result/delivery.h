// A finished text becomes what the host gets: the text itself, or the path of a JSON or NLSML file, by the engine's
// settings. It is queued, and the state of the speech object says so.
#pragma once

#include "judgement.h"
#include "message.h"

// Delivers the session's text, if there is any, and what its grammars say to it. A file that cannot be written gives
// the result "error".
void quillbrook_deliver(quillbrook_message &message, const quillbrook_judgement &judgement)
    QUILLBROOK_REQUIRES(message.session->result_lock);
