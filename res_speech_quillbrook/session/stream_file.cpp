#include "stream_file.h"

namespace {

constexpr mode_t kStreamMode = 0600;  // it holds what callers say
constexpr char kRewindPrefix[] = "/tmp/quillbrook2";

void copy_frames(struct ast_filestream *from, struct ast_filestream *to) {
  while (struct ast_frame *frame = ast_readframe(from)) {
    ast_writestream(to, frame);
    ast_frame_free(frame, 1);
  }
}

}  // namespace

quillbrook_stream_name quillbrook_name_stream(const char *prefix, const void *address, const char *format) {
  quillbrook_stream_name name;
  snprintf(name.base, sizeof(name.base), "%s_%p", prefix, address);
  snprintf(name.full, sizeof(name.full), "%s.%s", name.base, format);
  return name;
}

struct ast_filestream *quillbrook_create_stream(const quillbrook_stream_name &name, const char *format) {
  // A format too long for the name would have the host create another file than the one that the plugin is told.
  if (strlen(name.base) + 1 + strlen(format) >= sizeof(name.full)) {
    return nullptr;
  }
  unlink(name.full);
  return ast_writefile(name.base, format, nullptr, O_WRONLY | O_CREAT | O_TRUNC | O_EXCL | O_NOFOLLOW, 0, kStreamMode);
}

void quillbrook_rewind_stream(quillbrook_speech_t *session, quillbrook_recognition_t *recognition) {
  const char *format = session->engine->ws_format;
  const int early = shared_load(session->earlyspeechtimeout);
  const quillbrook_stream_name &name = recognition->stream;
  const quillbrook_stream_name second = quillbrook_name_stream(kRewindPrefix, recognition->context1, format);
  trace(3, "Process earlyspeech rewind...");

  // Held until the tail is copied: a frame that comes meanwhile waits, and lands in the new file.
  HostMutexLock held(recognition->lock);
  if (recognition->file) {
    ast_closestream(recognition->file);
    recognition->file = nullptr;
  }
  if (rename(name.full, second.full)) {
    shared_store(recognition->opened, 0);
    return;
  }
  struct ast_filestream *gathered = ast_readfile(second.base, format, nullptr, 0, 0, kStreamMode);
  if (!gathered) {
    return;
  }
  ast_seekstream(gathered, 0, SEEK_END);
  trace(3, "File end position = %ld!", static_cast<long>(ast_tellstream(gathered)));
  ast_stream_rewind(gathered, early);
  trace(3, "File end position (rewind early) = %ld (%dms)!", static_cast<long>(ast_tellstream(gathered)), early);
  recognition->file = quillbrook_create_stream(name, format);
  if (recognition->file) {
    copy_frames(gathered, recognition->file);
    fflush(recognition->file->f);
  }
  ast_closestream(gathered);
  unlink(second.full);
}
