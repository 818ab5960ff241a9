#include "json_pieces.h"

#include "../support/guard.h"
#include "../support/json_text.h"

namespace {

bool fits(const quillbrook_message &message, size_t size) {
  if (message.transcript.json_pieces.size() + size <= kJsonPiecesMax) {
    return true;
  }
  session_log(LOG_WARNING, message.session, "The JSON of an utterance is longer than %zu bytes: a piece is left out\n",
              kJsonPiecesMax);
  return false;
}

void add(const quillbrook_message &message, const char *json, const char *text) {
  if (json && !fits(message, strlen(json))) {
    return;
  }
  const std::string value = json && is_json(json) ? json : json_text(json ? json : text);
  if (!fits(message, value.size())) {
    return;
  }
  std::string &pieces = message.transcript.json_pieces;
  pieces.reserve(pieces.size() + value.size() + 1);  // what follows cannot fail half way
  if (!pieces.empty()) {
    pieces += ',';
  }
  pieces += value;
}

}  // namespace

void quillbrook_add_json_piece(const quillbrook_message &message, const char *json, const char *text) {
  if (!message.session->engine->jsonpieces) {
    return;
  }
  guarded("quillbrook_add_json_piece", 0, [&] {
    add(message, json, text);
    return 0;
  });
}

void quillbrook_close_json_pieces(const quillbrook_message &message) {
  quillbrook_transcript_t &transcript = message.transcript;
  if (transcript.json_pieces.empty()) {
    return;
  }
  const size_t size = transcript.json_pieces.size() + sizeof("[]");
  if (char *array = host_alloc_text(size)) {
    snprintf(array, size, "[%s]", transcript.json_pieces.c_str());
    quillbrook_release_text(transcript.json);
    transcript.json = array;
  }
}
