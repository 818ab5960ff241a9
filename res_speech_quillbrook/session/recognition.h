// Ending a recognition: the steps that collecting a result, abandoning a recognition and destroying a session share.
// All run on the dialplan thread, which owns the contexts.
//
// Their order is what makes the freeing safe: the plugin is told to stop, its threads are joined, and only then is a
// context freed.
#pragma once

#include "session.h"

// Closes the stream, if it is open.
void quillbrook_close_stream(quillbrook_speech_t *session);

// Calls plugin_stop on the first context and then on the second, as far as they exist. No lock is held.
void quillbrook_stop_plugin(quillbrook_speech_t *session);

// Joins the streaming threads, as far as they exist. Waits for as long as the plugin's loop takes to return.
void quillbrook_join_threads(quillbrook_speech_t *session);

// Deletes the stream file (unless the engine keeps files) and frees the contexts with what they own. The threads have
// been joined.
void quillbrook_release_contexts(quillbrook_speech_t *session);

// Frees the silence detector, if there is one.
void quillbrook_release_dsp(quillbrook_speech_t *session);

// All of the above, for a recognition whose result nobody wants any more.
void quillbrook_abandon_recognition(quillbrook_speech_t *session);
