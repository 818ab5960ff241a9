// Ending a recognition: the steps that collecting a result, abandoning a recognition and destroying a session share.
// All run on the dialplan thread, which owns the recognition, and none does anything when there is none.
//
// Their order is what makes the freeing safe: the plugin is told to stop, its threads are joined, and only then is a
// run freed.
#pragma once

#include "../record/session.h"

// Closes the stream, if it is open.
void quillbrook_close_stream(quillbrook_recognition_t *recognition);

// Refuses all calls of the plugin from here on. Waits for one that is being handled.
void quillbrook_shut_gates(quillbrook_recognition_t *recognition);

// Waits for the calls of the plugin that are being handled, and with them for what the grammars say to a text.
void quillbrook_wait_for_calls(quillbrook_recognition_t *recognition);

// Calls plugin_stop for the first run and then for the second, as far as they exist, and raises `finalize`, which also
// ends a streaming thread in its waits, for a plugin that does not. No lock is held.
void quillbrook_stop_plugin(quillbrook_speech_t *session);

// Joins the streaming threads, as far as they exist. A plugin that has not returned from its loop after the engine's
// `stoptimeout` is left behind with an ERROR line: its gate is shut, the recognition is never released, and the module
// can no longer be unloaded.
void quillbrook_join_threads(quillbrook_speech_t *session);

// Deletes the stream file (unless the engine keeps files), frees the detector and the recognition with all that it
// owns. The threads have been joined.
void quillbrook_release_session_recognition(quillbrook_speech_t *session);

// All of the above, for a recognition whose result nobody wants any more; `reason` is for the log.
void quillbrook_abandon_recognition(quillbrook_speech_t *session, const char *reason);
