#include "recognition.h"

#include "../support/text.h"

quillbrook_recognition_t *quillbrook_make_recognition() {
  void *memory = ast_calloc(1, sizeof(quillbrook_recognition_t));
  if (!memory) {
    return nullptr;
  }
  auto *recognition = new (memory) quillbrook_recognition_t();
  ast_mutex_init(&recognition->lock);
  return recognition;
}

quillbrook_run_t *quillbrook_add_run(quillbrook_recognition_t *recognition) {
  void *memory = ast_calloc(1, sizeof(quillbrook_run_t));
  if (!memory) {
    return nullptr;
  }
  auto *run = new (memory) quillbrook_run_t();
  run->recognition = recognition;
  run->context.thread = kNoThread;
  run->next_timer = kNoTimer;
  (recognition->context1 ? recognition->context2 : recognition->context1) = &run->context;
  if (!recognition->delivered) {
    recognition->delivered = &run->transcript;
  }
  return run;
}

bool quillbrook_words_came(quillbrook_recognition_t *recognition) {
  bool came = false;
  quillbrook_for_each_run(recognition,
                          [&came](quillbrook_run_t &run) { came = came || !ast_tvzero(run.transcript.datefirst); });
  return came;
}

void quillbrook_clear_transcript(quillbrook_transcript_t &transcript) {
  for (char **text : {&transcript.text, &transcript.text_interim, &transcript.interpretation, &transcript.json}) {
    quillbrook_release_text(*text);
  }
  transcript = {};
}

void quillbrook_release_recognition(quillbrook_recognition_t *&recognition) {
  quillbrook_recognition_t *over = std::exchange(recognition, nullptr);
  if (!over || over->left_behind) {
    return;
  }
  quillbrook_for_each_run(over, [](quillbrook_run_t &run) {
    quillbrook_clear_transcript(run.transcript);
    run.~quillbrook_run_t();
    ast_free(&run);
  });
  ast_mutex_destroy(&over->lock);
  over->~quillbrook_recognition_t();
  ast_free(over);
}
