// The stream file: the audio of a recognition on disk, grown by the module and read by the plugin.
#pragma once

#include "../record/session.h"

// "/tmp/quillbrook_ADDRESS" and "/tmp/quillbrook_ADDRESS.FORMAT". The address keeps recognitions apart. An engine that
// keeps its files gets the first name that is free, with "-2", "-3" and so on behind the address.
quillbrook_stream_name quillbrook_name_stream(const void *address, const quillbrook_engine_t &engine);

// Creates the file and opens it for writing; null when it cannot be created. What stands under that name is removed
// first, unless the engine keeps its files, and nothing is opened that is there then, so that a link planted in /tmp
// does no harm.
struct ast_filestream *quillbrook_create_stream(const quillbrook_stream_name &name, const quillbrook_engine_t &engine);

// Removes the file, unless the engine keeps its files.
void quillbrook_remove_stream(const quillbrook_stream_name &name, const quillbrook_engine_t &engine);

// The errno that keeps a file of that name from being created, or 0 when one can be: the host knows no such format
// then.
int quillbrook_why_no_stream(const quillbrook_stream_name &name);

// Appends a frame, so that it is in the file when this returns. 0, or an errno. The caller holds the stream's lock.
int quillbrook_write_frame(struct ast_filestream *file, struct ast_frame *frame);

// Audio of the recognition is lost, because of the errno `error`: the first time there is an ERROR line, and the result
// "error", unless one waits. `action` is what could not be done with the file. Any thread that may use the session, no
// lock held.
void quillbrook_lose_audio(struct ast_speech *speech, quillbrook_speech_t *session,
                           quillbrook_recognition_t *recognition, const char *action, int error);

// Replaces the stream file by one that holds only the last `earlyspeechtimeout` milliseconds, and goes on writing
// there. Frames wait meanwhile. On a failure the audio is lost, the stream stays closed, and what stands under the name
// is no longer taken for ours (`opened`). Streaming thread.
void quillbrook_rewind_stream(struct ast_speech *speech, quillbrook_speech_t *session,
                              quillbrook_recognition_t *recognition);
