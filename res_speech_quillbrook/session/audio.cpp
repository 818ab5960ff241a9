#include "../support/guard.h"
#include "entries.h"
#include "../record/session.h"
#include "stream_file.h"

namespace {

// One frame of the host, in a buffer on the stack: the host's offset, and 200 ms of signed linear audio at 8 kHz.
constexpr int kFrameWords = 1632;
constexpr int kFrameBytesMax = kFrameWords * 2 - AST_FRIENDLY_OFFSET;

void measure_silence(const quillbrook_engine_t &engine, quillbrook_recognition_t *recognition,
                     struct ast_frame *frame) {
  if (!recognition->dsp) {
    return;
  }
  int silence = 0;
  if (engine.dsp) {
    silence = recognition->silence;
    ast_dsp_silence(recognition->dsp, frame, &silence);
  }
  shared_store(recognition->silence, silence);
}

constexpr int kClosed = -1;

// 0, an errno, or kClosed when there is no open stream.
int append_to_stream(quillbrook_recognition_t *recognition, struct ast_frame *frame) {
  if (!recognition) {
    return kClosed;
  }
  HostMutexLock held(recognition->lock);
  return recognition->file ? quillbrook_write_frame(recognition->file, frame) : kClosed;
}

void write_piece(struct ast_speech *speech, quillbrook_speech_t *session, const char *data, int length) {
  int16_t buffer[kFrameWords];
  char *audio = reinterpret_cast<char *>(buffer) + AST_FRIENDLY_OFFSET;
  memcpy(audio, data, static_cast<size_t>(length));

  struct ast_frame frame = {};
  frame.frametype = AST_FRAME_VOICE;
  frame.subclass.format = ast_format_slin;
  frame.datalen = length;
  frame.samples = length / 2;
  frame.offset = AST_FRIENDLY_OFFSET;
  frame.src = "QuillBrook";
  frame.data.ptr = audio;

  quillbrook_recognition_t *recognition = session->recognition;
  if (recognition) {
    measure_silence(*session->engine, recognition, &frame);
  }
  if (frame.samples < 1) {
    return;
  }
  const int error = append_to_stream(recognition, &frame);
  if (error == kClosed) {
    session_notice(session, "Write with file closed!\n");
  } else if (error) {
    quillbrook_lose_audio(speech, session, recognition, "write", error);
  }
}

}  // namespace

int quillbrook_recog_write(struct ast_speech *speech, void *data, int len) {
  return guarded("quillbrook_recog_write", 0, [=] {
    quillbrook_speech_t *session = quillbrook_session_of(speech);
    const char *audio = static_cast<const char *>(data);
    // Telephones may send packets of half a second: such a frame goes in pieces.
    for (int left = len; left > 0;) {
      const int piece = std::min(left, kFrameBytesMax);
      write_piece(speech, session, audio, piece);
      audio += piece;
      left -= piece;
    }
    return 0;
  });
}
