#include "transcript.h"

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
void add_score(quillbrook_speech_t *session, int score) {
  session->scores_total = score > INT_MAX - session->scores_total ? INT_MAX : session->scores_total + score;
  session->scores_count += 1;
  session->score = session->scores_total / session->scores_count;
}

}  // namespace

void quillbrook_take_extras(quillbrook_message &message) {
  if (!message.has_text()) {
    return;
  }
  quillbrook_speech_t *session = message.session;
  if (message.context->extra_pointer) {
    copy_extra(session->json, message.context->extra_pointer);
    trace(2, "CALLBACK: set json extra %s\n", shown(session->json));
  }
  if (message.context->api_pointer) {
    copy_extra(session->interpretation, message.context->api_pointer);
    trace(2, "CALLBACK: set interpretation %s\n", shown(session->interpretation));
  }
}

bool quillbrook_is_repeated_interim(const quillbrook_message &message) {
  const char *stored = message.session->text_interim;
  if (message.score != QUILLBROOK_SCORE_INTERIM || !message.has_text() || !stored ||
      strcmp(message.text, stored) != 0) {
    return false;
  }
  trace(2, "CALLBACK: No news, same interim text = %s...\n", stored);
  return true;
}

void quillbrook_store_interim(quillbrook_message &message) {
  if (message.score != QUILLBROOK_SCORE_INTERIM || !message.has_text()) {
    return;
  }
  if (char *copy = ast_strdup(message.text)) {
    quillbrook_release_text(message.session->text_interim);
    message.session->text_interim = copy;
    trace(2, "CALLBACK: Store last interim =%s\n", copy);
  }
}

void quillbrook_take_no_match(quillbrook_message &message) {
  const char *text = message.text;
  if (message.score != QUILLBROOK_SCORE_NO_CONFIDENCE || !message.has_text() || text[0] == ' ' || text[1]) {
    return;
  }
  trace(2, "CALLBACK: nomatch result\n");
  char *copy = ast_strdup(text);
  if (!copy) {
    return;
  }
  quillbrook_release_text(message.session->text);
  message.session->text = copy;
  trace(2, "Set score = -2 !\n");
  message.score = QUILLBROOK_SCORE_FINISH;
}

void quillbrook_append_final(quillbrook_message &message) {
  if (message.score <= 0 || !message.has_text()) {
    return;
  }
  quillbrook_speech_t *session = message.session;
  const char *between = session->text && session->text[0] ? separator(*session->engine) : "";
  const size_t before = length_of(session->text);
  const size_t size = before + strlen(between) + strlen(message.text) + 1;
  trace(2, "CALLBACK: Forgive last interim =%s\n", shown(session->text_interim));
  trace(2, "CALLBACK: Last text =%s\n", shown(session->text));
  char *grown = host_realloc_text(session->text, size);
  if (!grown) {
    return;
  }
  snprintf(grown + before, size - before, "%s%s", between, message.text);
  session->text = grown;
  quillbrook_release_text(session->text_interim);
  trace(2, "CALLBACK: New text =%s\n", session->text);

  add_score(session, message.score);
  trace(2, "CALLBACK: text [%s] score=%d\n", session->text, session->score);

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
  quillbrook_speech_t *session = message.session;
  trace(2, "CALLBACK: finalize result\n");
  const size_t confirmed = length_of(session->text);
  const size_t unconfirmed = length_of(session->text_interim);
  if (verbose && host_verbosity_at_least(2)) {
    if (session->text) {
      __ast_verbose(__FILE__, __LINE__, __PRETTY_FUNCTION__, 2, "CALLBACK: text [%s] score=%d len=%d\n", session->text,
                    session->score, static_cast<int>(confirmed));
    }
    if (session->text_interim) {
      __ast_verbose(__FILE__, __LINE__, __PRETTY_FUNCTION__, 2, "CALLBACK: interim [%s] len=%d\n",
                    session->text_interim, static_cast<int>(unconfirmed));
    }
  }

  const char *between = confirmed && unconfirmed ? separator(*session->engine) : "";
  const char *behind = confirmed || unconfirmed ? ending(*session->engine) : "";
  const size_t length = confirmed + unconfirmed + (confirmed && unconfirmed ? 2 : 0);
  trace(2, "CALLBACK: realloc[%d+2]\n", static_cast<int>(length));
  char *merged = host_realloc_text(session->text, length + 2);
  if (!merged) {
    return;
  }
  snprintf(merged + confirmed, length + 2 - confirmed, "%s%s%s", between,
           session->text_interim ? session->text_interim : "", behind);
  session->text = merged;
  if (!confirmed && unconfirmed) {
    session->score = kScoreOfInterim;
  }
  quillbrook_release_text(session->text_interim);
  trace(2, "CALLBACK: FINAL RESULT text [%s] score = %d (completetimeout)\n", session->text, session->score);
}
