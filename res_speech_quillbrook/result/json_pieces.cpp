#include "json_pieces.h"

#include "../support/guard.h"
#include "../support/json_escape.h"

namespace {

// Each byte of a text takes six at most, in `\u00XX`.
constexpr size_t kEscapedByte = 6;

// Half of a pair of UTF-16, written as if it were UTF-8. Escaped it would have the form of JSON, and parsers refuse it.
bool has_surrogate(const char *text) {
  constexpr unsigned char kFirstBehindLead = 0xA0;
  for (; (text = strchr(text, '\xED')) != nullptr; ++text) {
    if (static_cast<unsigned char>(text[1]) >= kFirstBehindLead) {
      return true;
    }
  }
  return false;
}

// A text that is not UTF-8 is no JSON string.
std::string quoted(const char *text) {
  std::string inside(strlen(text) * kEscapedByte + 1, '\0');
  if (has_surrogate(text) || !json_escape_unicode_copy(inside.data(), text, inside.size())) {
    return "null";
  }
  inside.resize(strlen(inside.c_str()));
  return "\"" + inside + "\"";
}

void add(const quillbrook_message &message, const std::string &value) {
  std::string &pieces = message.transcript.json_pieces;
  if (pieces.size() + value.size() > kJsonPiecesMax) {
    ast_log(LOG_WARNING, "(%s) The JSON of an utterance is longer than %zu bytes: a piece is left out\n",
            message.session->name, kJsonPiecesMax);
    return;
  }
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
    add(message, json ? json : quoted(text));
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
