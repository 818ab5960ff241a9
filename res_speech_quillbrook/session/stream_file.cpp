#include "stream_file.h"

namespace {

constexpr mode_t kStreamMode = 0666;
constexpr char kRewindPrefix[] = "/tmp/quillbrook2";

void copy_frames(struct ast_filestream *from, struct ast_filestream *to) {
  while (struct ast_frame *frame = ast_readframe(from)) {
    ast_writestream(to, frame);
    ast_frame_free(frame, 1);
  }
}

}  // namespace

quillbrook_stream_name::quillbrook_stream_name(const char *prefix, const void *address, const char *format) {
  snprintf(base, sizeof(base), "%s_%p", prefix, address);
  snprintf(full, sizeof(full), "%s.%s", base, format);
}

struct ast_filestream *quillbrook_create_stream(const quillbrook_stream_name &name, const char *format) {
  // A format too long for the name would have the host create another file than the one that the plugin is told.
  if (strlen(name.base) + 1 + strlen(format) >= sizeof(name.full)) {
    return nullptr;
  }
  unlink(name.full);
  return ast_writefile(name.base, format, nullptr, O_WRONLY | O_CREAT | O_TRUNC | O_EXCL | O_NOFOLLOW, 0, kStreamMode);
}

void quillbrook_rewind_stream(quillbrook_speech_t *session) {
  const char *format = session->engine->ws_format;
  const int early = shared_load(session->earlyspeechtimeout);
  const quillbrook_stream_name name(kStreamPrefix, session->context1, format);
  const quillbrook_stream_name second(kRewindPrefix, session->context1, format);
  trace(3, "Process earlyspeech rewind...");

  // Held until the tail is copied: a frame that comes meanwhile waits, and lands in the new file.
  HostMutexLock held(session->lock);
  if (session->file) {
    ast_closestream(session->file);
    session->file = nullptr;
  }
  rename(name.full, second.full);
  struct ast_filestream *gathered = ast_readfile(second.base, format, nullptr, 0, 0, kStreamMode);
  if (!gathered) {
    return;
  }
  ast_seekstream(gathered, 0, SEEK_END);
  trace(3, "File end position = %ld!", static_cast<long>(ast_tellstream(gathered)));
  ast_stream_rewind(gathered, early);
  trace(3, "File end position (rewind early) = %ld (%dms)!", static_cast<long>(ast_tellstream(gathered)), early);
  session->file = quillbrook_create_stream(name, format);
  if (session->file) {
    copy_frames(gathered, session->file);
    fflush(session->file->f);
  }
  ast_closestream(gathered);
  unlink(second.full);
}
