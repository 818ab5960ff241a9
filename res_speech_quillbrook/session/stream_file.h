// The stream file: the audio of a recognition on disk, grown by the module and read by the plugin.
#pragma once

#include "session.h"

// Names of the stream file. The host's file functions take a base name and a format, which is the extension.
struct quillbrook_stream_name {
  char base[100];
  char full[120];

  // "PREFIX_ADDRESS" and "PREFIX_ADDRESS.FORMAT". The address keeps recognitions apart.
  quillbrook_stream_name(const char *prefix, const void *address, const char *format);
};

inline constexpr char kStreamPrefix[] = "/tmp/quillbrook";

// Creates the file and opens it for writing; null when it cannot be created. What stands under that name is removed
// first and nothing is opened that is there again by then, so that a link planted in /tmp does no harm.
struct ast_filestream *quillbrook_create_stream(const quillbrook_stream_name &name, const char *format);

// Replaces the stream file by one that holds only the last `earlyspeechtimeout` milliseconds, and goes on writing
// there. Frames wait meanwhile. On a failure the stream stays closed. Streaming thread.
void quillbrook_rewind_stream(quillbrook_speech_t *session);
