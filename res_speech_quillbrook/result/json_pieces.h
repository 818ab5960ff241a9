// The JSON of an utterance that came in several pieces. A provider sends a document with each final piece, and the
// transcript keeps the last one; with the key `jsonpieces=all` it gets an array with one value for each piece.
#pragma once

#include "message.h"

// Adds the value of a final piece, or of the hypothesis that ends the text: its document, which is taken as it is, or
// without one (null) its text as a JSON string. One that is no JSON becomes a string too, so that parsers read the
// array. What lies beyond kJsonPiecesMax bytes is left out, with a line in the log.
constexpr size_t kJsonPiecesMax = 4194304;
void quillbrook_add_json_piece(const quillbrook_message &message, const char *json, const char *text)
    QUILLBROOK_REQUIRES(message.session->result_lock);

// Makes the array the transcript's JSON, if there are pieces.
void quillbrook_close_json_pieces(const quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock);
