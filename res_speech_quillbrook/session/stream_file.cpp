#include "stream_file.h"

#include "../record/speech_state.h"
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

// The errno of a failed call of the host, as far as the host's own line about it has left one.
int error_of_host() {
  return errno ? errno : EIO;
}

int copy_frames(struct ast_filestream *from, struct ast_filestream *to) {
  int error = 0;
  while (struct ast_frame *frame = ast_readframe(from)) {
    errno = 0;
    if (ast_writestream(to, frame) && !error) {
      error = error_of_host();
    }
    ast_frame_free(frame, 1);
  }
  return fflush(to->f) && !error ? errno : error;
}

struct Failure {
  const char *action;  // null when there is none
  int error;
};

// The gathered audio is in the file `second`. Its tail becomes the stream.
Failure copy_tail(quillbrook_recognition_t *recognition, const quillbrook_stream_name &second,
                  const quillbrook_engine_t &engine, int early) {
  // Without a mode the host takes it for a file that is only read; else it would write a header when it closes it.
  errno = 0;
  struct ast_filestream *gathered = ast_readfile(second.base, engine.ws_format, nullptr, 0, 0, 0);
  if (!gathered) {
    return {"read back", error_of_host()};
  }
  ast_seekstream(gathered, 0, SEEK_END);
  trace(3, "File end position = %ld!", static_cast<long>(ast_tellstream(gathered)));
  ast_stream_rewind(gathered, early);
  trace(3, "File end position (rewind early) = %ld (%dms)!", static_cast<long>(ast_tellstream(gathered)), early);
  recognition->file = quillbrook_create_stream(recognition->stream, engine);
  Failure failure = {};
  if (!recognition->file) {
    failure = {"open", quillbrook_why_no_stream(recognition->stream)};
  } else if (const int error = copy_frames(gathered, recognition->file)) {
    failure = {"write", error};
  }
  ast_closestream(gathered);
  return failure;
}

Failure cut_stream(quillbrook_recognition_t *recognition, const quillbrook_engine_t &engine, int early) {
  const quillbrook_stream_name &name = recognition->stream;
  const quillbrook_stream_name second = name_of(kRewindPrefix, recognition->context1, "", engine.ws_format);
  // Held until the tail is copied: a frame that comes meanwhile waits, and lands in the new file.
  HostMutexLock held(recognition->lock);
  if (recognition->file) {
    ast_closestream(recognition->file);
    recognition->file = nullptr;
  }
  quillbrook_claim_file(second.full, false);
  Failure failure = {};
  if (rename(name.full, second.full)) {
    failure = {"move", errno};
  } else {
    failure = copy_tail(recognition, second, engine, early);
    quillbrook_remove_file(second.full);
  }
  quillbrook_disclaim_file(second.full);
  if (!recognition->file) {
    shared_store(recognition->opened, 0);
  }
  return failure;
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
  quillbrook_remove_file(name.full);
  quillbrook_disclaim_file(name.full);
}

int quillbrook_why_no_stream(const quillbrook_stream_name &name) {
  const int descriptor = open(name.full, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kStreamMode);
  if (descriptor < 0) {
    return errno;
  }
  close(descriptor);
  unlink(name.full);
  return 0;
}

int quillbrook_write_frame(struct ast_filestream *file, struct ast_frame *frame) {
  errno = 0;
  const int error = ast_writestream(file, frame) ? error_of_host() : 0;
  return fflush(file->f) && !error ? errno : error;  // the plugin reads the file while it grows
}

void quillbrook_lose_audio(struct ast_speech *speech, quillbrook_speech_t *session,
                           quillbrook_recognition_t *recognition, const char *action, int error) {
  if (shared_exchange(recognition->audio_lost, 1)) {
    return;
  }
  char reason[sizeof(recognition->stream.full) + 100];
  snprintf(reason, sizeof(reason), "%s: %s", recognition->stream.full, error ? strerror(error) : "unknown format");
  session_log(LOG_ERROR, session, "Cannot %s the audio of the recognition, %s\n", action, reason);
  MutexLock held(session->result_lock);
  if (str_fifo_empty(&session->last_results)) {
    quillbrook_queue_error(speech, session, kCauseStorage, reason);
  }
}

void quillbrook_rewind_stream(struct ast_speech *speech, quillbrook_speech_t *session,
                              quillbrook_recognition_t *recognition) {
  trace(3, "Process earlyspeech rewind...");
  const Failure failure = cut_stream(recognition, *session->engine, shared_load(session->earlyspeechtimeout));
  if (failure.action) {
    quillbrook_lose_audio(speech, session, recognition, failure.action, failure.error);
  }
}
