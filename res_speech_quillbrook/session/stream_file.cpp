#include "stream_file.h"

#include "../support/own_files.h"

namespace {

constexpr mode_t kStreamMode = 0600;  // it holds what callers say
constexpr char kStreamPrefix[] = "/tmp/quillbrook";
constexpr char kRewindPrefix[] = "/tmp/quillbrook2";

quillbrook_stream_name name_of(const char *prefix, const void *address, const char *behind, const char *format) {
  quillbrook_stream_name name;
  snprintf(name.base, sizeof(name.base), "%s_%p%s", prefix, address, behind);
  snprintf(name.full, sizeof(name.full), "%s.%s", name.base, format);
  return name;
}

void copy_frames(struct ast_filestream *from, struct ast_filestream *to) {
  while (struct ast_frame *frame = ast_readframe(from)) {
    ast_writestream(to, frame);
    ast_frame_free(frame, 1);
  }
}

}  // namespace

quillbrook_stream_name quillbrook_name_stream(const void *address, const quillbrook_engine_t &engine) {
  quillbrook_stream_name name = name_of(kStreamPrefix, address, "", engine.ws_format);
  for (int number = 2; engine.keepfiles && quillbrook_file_exists(name.full); ++number) {
    char behind[16];
    snprintf(behind, sizeof(behind), "-%d", number);
    name = name_of(kStreamPrefix, address, behind, engine.ws_format);
  }
  return name;
}

struct ast_filestream *quillbrook_create_stream(const quillbrook_stream_name &name, const quillbrook_engine_t &engine) {
  const char *format = engine.ws_format;
  // A format too long for the name would have the host create another file than the one that the plugin is told.
  if (strlen(name.base) + 1 + strlen(format) >= sizeof(name.full)) {
    return nullptr;
  }
  quillbrook_claim_file(name.full, engine.keepfiles);
  if (!engine.keepfiles) {
    unlink(name.full);
  }
  return ast_writefile(name.base, format, nullptr, O_WRONLY | O_CREAT | O_TRUNC | O_EXCL | O_NOFOLLOW, 0, kStreamMode);
}

void quillbrook_remove_stream(const quillbrook_stream_name &name, const quillbrook_engine_t &engine) {
  if (!name.full[0] || engine.keepfiles) {
    return;
  }
  notice("Delete stream file (%s)\n", name.full);
  unlink(name.full);
  quillbrook_disclaim_file(name.full);
}

void quillbrook_rewind_stream(quillbrook_speech_t *session, quillbrook_recognition_t *recognition) {
  const quillbrook_engine_t &engine = *session->engine;
  const int early = shared_load(session->earlyspeechtimeout);
  const quillbrook_stream_name &name = recognition->stream;
  const quillbrook_stream_name second = name_of(kRewindPrefix, recognition->context1, "", engine.ws_format);
  trace(3, "Process earlyspeech rewind...");

  // Held until the tail is copied: a frame that comes meanwhile waits, and lands in the new file.
  HostMutexLock held(recognition->lock);
  if (recognition->file) {
    ast_closestream(recognition->file);
    recognition->file = nullptr;
  }
  quillbrook_claim_file(second.full, false);
  if (rename(name.full, second.full)) {
    quillbrook_disclaim_file(second.full);
    shared_store(recognition->opened, 0);
    return;
  }
  struct ast_filestream *gathered = ast_readfile(second.base, engine.ws_format, nullptr, 0, 0, kStreamMode);
  if (!gathered) {
    return;
  }
  ast_seekstream(gathered, 0, SEEK_END);
  trace(3, "File end position = %ld!", static_cast<long>(ast_tellstream(gathered)));
  ast_stream_rewind(gathered, early);
  trace(3, "File end position (rewind early) = %ld (%dms)!", static_cast<long>(ast_tellstream(gathered)), early);
  recognition->file = quillbrook_create_stream(name, engine);
  if (recognition->file) {
    copy_frames(gathered, recognition->file);
    fflush(recognition->file->f);
  }
  ast_closestream(gathered);
  unlink(second.full);
  quillbrook_disclaim_file(second.full);
}
