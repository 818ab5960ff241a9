// The stream file: the audio of a recognition on disk, grown by the module and read by the plugin.
#pragma once

#include "../record/session.h"

// "PREFIX_ADDRESS" and "PREFIX_ADDRESS.FORMAT". The address keeps recognitions apart.
quillbrook_stream_name quillbrook_name_stream(const char *prefix, const void *address, const char *format);

inline constexpr char kStreamPrefix[] = "/tmp/quillbrook";

// Creates the file and opens it for writing; null when it cannot be created. What stands under that name is removed
// first and nothing is opened that is there again by then, so that a link planted in /tmp does no harm.
struct ast_filestream *quillbrook_create_stream(const quillbrook_stream_name &name, const char *format);

// Replaces the stream file by one that holds only the last `earlyspeechtimeout` milliseconds, and goes on writing
// there. Frames wait meanwhile. On a failure the stream stays closed; when the file could not even be moved away, what
// stands under the name is no longer taken for ours (`opened`). Streaming thread.
void quillbrook_rewind_stream(quillbrook_speech_t *session, quillbrook_recognition_t *recognition);
