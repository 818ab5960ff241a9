// What becomes of the plugin's texts: the last hypothesis is kept apart from the confirmed text, final pieces are
// appended and their confidences averaged, and a finish merges the unconfirmed rest into one text and one score.
//
// All hold the session's result_lock and are called in this order. A message for whose text there is no memory is
// dropped; what was stored before stays.
#pragma once

#include "message.h"

// Copies the JSON and the interpretation that the plugin gives with a text.
void quillbrook_take_extras(quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock);

// Whether this is the hypothesis that is stored already; there is then nothing more to do.
bool quillbrook_is_repeated_interim(const quillbrook_message &message)
    QUILLBROOK_REQUIRES(message.session->result_lock);

// An interim replaces the one before.
void quillbrook_store_interim(quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock);

// One byte that is no blank, without confidence: the provider understood nothing. It becomes the text, and the message
// a finish.
void quillbrook_take_no_match(quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock);

// A final piece is appended and scored. The message becomes a finish when the two timeouts are equal, so that each
// piece is a result of its own, or when the call is ending.
void quillbrook_append_final(quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock);

// The text as it would be if it ended here.
std::string quillbrook_text_so_far(const quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock);

// Merges a stored interim into the text. A result made of an interim alone gets the score 50.
void quillbrook_close_text(quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock);
