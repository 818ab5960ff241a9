#include "transcript.h"

#include "json_pieces.h"
#include "../support/printable.h"

namespace {

constexpr int kScoreOfInterim = 50;

size_t length_of(const char *text) {
  return text ? strlen(text) : 0;
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
  if (char *copy = ast_strdup(message.text)) {
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
  char *copy = ast_strdup(message.text);
  if (!copy) {
    return;
  }
  quillbrook_release_text(message.transcript.text);
  message.transcript.text = copy;
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
  const char *between = transcript.text && transcript.text[0] ? separator(*message.session->engine) : "";
  const size_t before = length_of(transcript.text);
  const size_t size = before + strlen(between) + strlen(message.text) + 1;
  trace(2, "CALLBACK: Forgive last interim =%s\n", Printable(transcript.text_interim).text());
  trace(2, "CALLBACK: Last text =%s\n", Printable(transcript.text).text());
  char *grown = host_realloc_text(transcript.text, size);
  if (!grown) {
    return;
  }
  snprintf(grown + before, size - before, "%s%s", between, message.text);
  transcript.text = grown;
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

void quillbrook_close_text(quillbrook_message &message) {
  quillbrook_transcript_t &transcript = message.transcript;
  const quillbrook_engine_t &engine = *message.session->engine;
  trace(2, "CALLBACK: finalize result\n");
  const size_t confirmed = length_of(transcript.text);
  const size_t unconfirmed = length_of(transcript.text_interim);
  if (verbose && host_verbosity_at_least(2)) {
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
  char *merged = host_realloc_text(transcript.text, length + 2);
  if (!merged) {
    return;
  }
  snprintf(merged + confirmed, length + 2 - confirmed, "%s%s%s", between,
           transcript.text_interim ? transcript.text_interim : "", behind);
  transcript.text = merged;
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
