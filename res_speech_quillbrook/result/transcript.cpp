#include "transcript.h"

#include "json_pieces.h"
#include "../support/printable.h"

namespace {

constexpr int kScoreOfInterim = 50;

size_t length_of(const quillbrook_transcript_t &transcript) {
  return transcript.text ? transcript.text_length : 0;
}

void report_overflow(quillbrook_message &message) {
  if (!std::exchange(message.transcript.overflow_reported, 1)) {
    session_log(LOG_ERROR, message.session, "The transcript has more than %zu bytes: what is beyond is dropped\n",
                kTranscriptMax);
  }
}

void clear(quillbrook_transcript_t &transcript, char *text) {
  text[0] = '\0';
  transcript.text_length = 0;
  transcript.text_full = false;
}

// Makes room for a text of `length` bytes and its end. Room doubles, so that many small pieces cost no more than they
// have bytes. False when there is no memory.
bool make_room(quillbrook_transcript_t &transcript, size_t length) {
  constexpr size_t kFirstSize = 256;
  const size_t size = transcript.text ? transcript.text_size : 0;
  if (length < size) {
    return true;
  }
  const size_t larger = std::max({kFirstSize, 2 * size, length + 1});
  char *grown = host_realloc_text(transcript.text, larger);
  if (!grown) {
    return false;
  }
  if (!transcript.text) {
    clear(transcript, grown);
  }
  transcript.text = grown;
  transcript.text_size = larger;
  return true;
}

// Appends a piece behind `between`, as far as it is within the limit of the transcript, and nothing behind one that was
// cut off there. The room has been made.
void append(quillbrook_message &message, const char *between, const char *piece) {
  quillbrook_transcript_t &transcript = message.transcript;
  const size_t separated = transcript.text_length + strlen(between);
  if (transcript.text_full || separated >= kTranscriptMax) {
    transcript.text_full = true;
    report_overflow(message);
    return;
  }
  memcpy(transcript.text + transcript.text_length, between, strlen(between));
  char *end = transcript.text + separated;
  copy_text(end, kTranscriptMax - separated + 1, piece);
  const size_t taken = strlen(end);
  transcript.text_length = separated + taken;
  if (piece[taken]) {
    transcript.text_full = true;
    report_overflow(message);
  }
}

// The length that a text has within the limit; more of it is not looked at.
size_t bounded_length(const char *text) {
  return text ? strnlen(text, kTranscriptMax) : 0;
}

// Between two pieces, and behind the last one.
const char *separator(const quillbrook_engine_t &engine) {
  return engine.endpointing ? ".\n" : " ";
}
const char *ending(const quillbrook_engine_t &engine) {
  return engine.endpointing ? "." : "";
}

void copy_extra(char *&target, const void *source) {
  quillbrook_release_text(target);
  target = ast_strdup(static_cast<const char *>(source));
}

// The running average of the finals. The sum stops at its limit instead of overflowing.
void add_score(quillbrook_transcript_t &transcript, int score) {
  transcript.scores_total = score > INT_MAX - transcript.scores_total ? INT_MAX : transcript.scores_total + score;
  transcript.scores_count += 1;
  transcript.score = transcript.scores_total / transcript.scores_count;
}

}  // namespace

void quillbrook_take_extras(quillbrook_message &message) {
  if (!message.has_text()) {
    return;
  }
  quillbrook_transcript_t &transcript = message.transcript;
  if (message.context->extra_pointer) {
    copy_extra(transcript.json, message.context->extra_pointer);
    transcript.json_of_interim = message.score == QUILLBROOK_SCORE_INTERIM;
    trace(2, "CALLBACK: set json extra %s\n", Printable(transcript.json).text());
  }
  if (message.context->api_pointer) {
    copy_extra(transcript.interpretation, message.context->api_pointer);
    trace(2, "CALLBACK: set interpretation %s\n", Printable(transcript.interpretation).text());
  }
}

bool quillbrook_is_repeated_interim(const quillbrook_message &message) {
  const char *stored = message.transcript.text_interim;
  if (message.score != QUILLBROOK_SCORE_INTERIM || !message.has_text() || !stored ||
      strcmp(message.text, stored) != 0) {
    return false;
  }
  trace(2, "CALLBACK: No news, same interim text = %s...\n", Printable(stored).text());
  return true;
}

void quillbrook_store_interim(quillbrook_message &message) {
  if (message.score != QUILLBROOK_SCORE_INTERIM || !message.has_text()) {
    return;
  }
  const size_t length = bounded_length(message.text);
  if (char *copy = host_alloc_text(length + 1)) {
    copy_text(copy, length + 1, message.text);
    if (message.text[length]) {
      report_overflow(message);
    }
    quillbrook_release_text(message.transcript.text_interim);
    message.transcript.text_interim = copy;
    trace(2, "CALLBACK: Store last interim =%s\n", Printable(copy).text());
  }
}

void quillbrook_take_no_match(quillbrook_message &message) {
  if (!message.is_no_match()) {
    return;
  }
  trace(2, "CALLBACK: nomatch result\n");
  if (!make_room(message.transcript, 1)) {
    return;
  }
  clear(message.transcript, message.transcript.text);
  append(message, "", message.text);
  message.transcript.no_match = 1;
  message.transcript.json_pieces.clear();
  trace(2, "Set score = -2 !\n");
  message.score = QUILLBROOK_SCORE_FINISH;
}

void quillbrook_append_final(quillbrook_message &message) {
  if (message.score <= 0 || !message.has_text()) {
    return;
  }
  quillbrook_transcript_t &transcript = message.transcript;
  const size_t before = length_of(transcript);
  const char *between = before ? separator(*message.session->engine) : "";
  trace(2, "CALLBACK: Forgive last interim =%s\n", Printable(transcript.text_interim).text());
  trace(2, "CALLBACK: Last text =%s\n", Printable(transcript.text).text());
  if (!make_room(transcript, std::min(before + strlen(between) + bounded_length(message.text), kTranscriptMax))) {
    return;
  }
  append(message, between, message.text);
  quillbrook_release_text(transcript.text_interim);
  quillbrook_add_json_piece(message, static_cast<const char *>(message.context->extra_pointer), message.text);
  trace(2, "CALLBACK: New text =%s\n", Printable(transcript.text).text());

  add_score(transcript, message.score);
  trace(2, "CALLBACK: text [%s] score=%d\n", Printable(transcript.text).text(), transcript.score);

  const quillbrook_context *context = message.context;
  if (shared_load(context->completetimeout) == shared_load(context->incompletetimeout) && !message.hold) {
    trace(2, "CALLBACK: complete=incomplete validate result\n");
    trace(2, "Set score = -2 !\n");
    message.score = QUILLBROOK_SCORE_FINISH;
  }
  if (shared_load(context->hangup)) {
    trace(2, "CALLBACK: complete=hangup\n");
    trace(2, "Set score = -2 !\n");
    message.score = QUILLBROOK_SCORE_FINISH;
  }
}

std::string quillbrook_text_so_far(const quillbrook_message &message) {
  const quillbrook_transcript_t &transcript = message.transcript;
  std::string text(transcript.text ? transcript.text : "", length_of(transcript));
  if (transcript.text_interim) {
    text += text.empty() ? "" : separator(*message.session->engine);
    text += transcript.text_interim;
  }
  return text;
}

void quillbrook_close_text(quillbrook_message &message) {
  quillbrook_transcript_t &transcript = message.transcript;
  const quillbrook_engine_t &engine = *message.session->engine;
  trace(2, "CALLBACK: finalize result\n");
  const size_t confirmed = length_of(transcript);
  const size_t unconfirmed = bounded_length(transcript.text_interim);
  if (shared_load(verbose) && host_verbosity_at_least(2)) {
    if (transcript.text) {
      __ast_verbose(__FILE__, __LINE__, __PRETTY_FUNCTION__, 2, "CALLBACK: text [%s] score=%d len=%d\n",
                    Printable(transcript.text).text(), transcript.score, static_cast<int>(confirmed));
    }
    if (transcript.text_interim) {
      __ast_verbose(__FILE__, __LINE__, __PRETTY_FUNCTION__, 2, "CALLBACK: interim [%s] len=%d\n",
                    Printable(transcript.text_interim).text(), static_cast<int>(unconfirmed));
    }
  }

  const char *between = confirmed && unconfirmed ? separator(engine) : "";
  const char *behind = confirmed || unconfirmed ? ending(engine) : "";
  const size_t length = confirmed + unconfirmed + (confirmed && unconfirmed ? 2 : 0);
  trace(2, "CALLBACK: realloc[%d+2]\n", static_cast<int>(length));
  if (!make_room(transcript, std::min(length + 1, kTranscriptMax))) {
    return;
  }
  if (unconfirmed) {
    append(message, between, transcript.text_interim);
  }
  if (behind[0]) {
    append(message, "", behind);
  }
  if (!confirmed && unconfirmed) {
    transcript.score = kScoreOfInterim;
  }
  if (unconfirmed && !transcript.no_match) {
    quillbrook_add_json_piece(message, transcript.json_of_interim ? transcript.json : nullptr, transcript.text_interim);
  }
  quillbrook_close_json_pieces(message);
  quillbrook_release_text(transcript.text_interim);
  trace(2, "CALLBACK: FINAL RESULT text [%s] score = %d (completetimeout)\n", Printable(transcript.text).text(),
        transcript.score);
}
