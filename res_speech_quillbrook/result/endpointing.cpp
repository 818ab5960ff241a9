#include "endpointing.h"

#include "../session/state.h"

namespace {

// A complete timeout above this is already that of free speech, and long speech does not change it.
constexpr int kExtensionLimit = 2500;
// What a plugin gets to send its last words after it was asked to finalise.
constexpr int kFinalizeTime = 1000;

void finish(quillbrook_message &message) {
  trace(2, "Set score = -2 !\n");
  if (!message.hold) {
    message.score = QUILLBROOK_SCORE_FINISH;
  }
}

int64_t text_silence(const quillbrook_speech_t *session) {
  return ast_tvdiff_ms(session->datelast, session->datesilence);
}

// New words restart the silence. A repeated hypothesis does not keep a recognition alive.
void move_silence_date(const quillbrook_message &message) {
  quillbrook_speech_t *session = message.session;
  if (ast_tvzero(session->datesilence)) {
    session->datesilence = session->datelast;
  } else if (!message.has_text()) {
    return;
  } else if (!session->text_interim) {
    trace(2, "CALLBACK: New text after silence, no silence!\n");
    session->datesilence = session->datelast;
  } else if (strcmp(message.text, session->text_interim) != 0) {
    trace(2, "CALLBACK: New text, no silence!\n");
    session->datesilence = session->datelast;
  } else {
    return;
  }
  session->incomplete_reported = 0;
}

// A final counts as silence that began the provider's delay before it arrived.
void shift_silence_date(const quillbrook_message &message) {
  quillbrook_speech_t *session = message.session;
  if (message.score > 0 && shared_load(message.context->finalize) == 0) {
    const int shift = session->providertimeout;
    session->datesilence = ast_tvsub(session->datesilence, ast_tv(shift / 1000, (shift % 1000) * 1000L));
    trace(2, "CALLBACK: Silence started %dms before...\n", shift);
  }
}

// Long speech gets a longer pause.
void extend_complete_timeout(const quillbrook_message &message, int duration) {
  const int speechtimeout = shared_load(message.session->speechtimeout);
  const int extendedtimeout = shared_load(message.session->extendedtimeout);
  if (speechtimeout && duration > speechtimeout && extendedtimeout &&
      shared_load(message.context->completetimeout) <= kExtensionLimit) {
    shared_store(message.context->completetimeout, extendedtimeout);
    trace(2, "CALLBACK: extend completetimeout to [%d]\n", extendedtimeout);
  }
}

// The utterance is complete. A plugin that can flush is asked to, and gets a second for it, which the incomplete
// timeout then ends; else the recognition ends here.
void complete(quillbrook_message &message) {
  quillbrook_context *context = message.context;
  const int finalize = shared_load(context->finalize);
  if (finalize != 0) {
    trace(2, "Finalize = %d...\n", finalize);
  } else if (shared_load(context->quantum)) {
    trace(2, "Set finalize =1 !\n");
    message.session->datefinalize = message.session->datelast;
    // The limit stands before the plugin sees the flag.
    shared_store(context->incompletetimeout, shared_load(context->completetimeout) + kFinalizeTime);
    shared_store(context->finalize, 1);
    trace(2, "Try to finalize a result after completetimeout !\n");
    trace(2, "Gives 1s from now to get a result...\n");
  } else {
    finish(message);
  }
}

void test_complete_timeout(quillbrook_message &message, int duration) {
  const quillbrook_speech_t *session = message.session;
  if (!session->timeouts || !shared_load(message.context->completetimeout)) {
    return;
  }
  extend_complete_timeout(message, duration);
  const int timeout = shared_load(message.context->completetimeout);
  const int64_t stt = text_silence(session);
  const int dsp = shared_load(session->silence);
  trace(2, "CALLBACK: completetimeout delay silence [stt=%d,dsp=%d] > %d\n", static_cast<int>(stt), dsp, timeout);
  if (dsp > timeout || stt > timeout) {
    complete(message);
  }
}

// One error for one silence: in a continuous session nothing else would end the repetition.
void report_incomplete(const quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock) {
  quillbrook_speech_t *session = message.session;
  if (session->incomplete_reported) {
    return;
  }
  session->incomplete_reported = 1;
  ast_log(LOG_ERROR, "(%s) Error with incomplete timeout!\n", session->name);
  quillbrook_queue_result(message.speech, message.session, "error");
  shared_store(message.context->finalize, 1);
}

void test_incomplete_timeout(quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock) {
  const quillbrook_speech_t *session = message.session;
  const int timeout = shared_load(message.context->incompletetimeout);
  if (!session->timeouts || !timeout) {
    return;
  }
  const int64_t stt = text_silence(session);
  trace(2, "CALLBACK: incompletetimeout delay silence [%d] < %d\n", static_cast<int>(stt), timeout);
  if (stt <= timeout) {
    return;
  }
  const int completetimeout = shared_load(message.context->completetimeout);
  if (completetimeout && completetimeout < timeout) {
    finish(message);
  } else {
    report_incomplete(message);
  }
}

}  // namespace

void quillbrook_read_clock(quillbrook_message &message) {
  quillbrook_speech_t *session = message.session;
  const quillbrook_engine_t &engine = *session->engine;
  session->datelast = ast_tvnow();
  if (engine.waitclose && shared_load(message.context->finalize) > 0 && !shared_load(session->plugin_closed)) {
    if (ast_tvzero(session->dateclose)) {
      session->dateclose = session->datelast;
    }
    if (ast_tvdiff_ms(session->datelast, session->dateclose) < engine.closetimeout) {
      message.hold = 1;
    } else {
      trace(2, "CALLBACK: waitclose limit reached (%d ms)\n", engine.closetimeout);
    }
  }
  if (message.hold) {
    trace(2, "CALLBACK: the plugin is closing, hold the result\n");
  }
  trace(2, "CALLBACK: session duration [%d]\n", static_cast<int>(ast_tvdiff_ms(session->datelast, session->datestart)));
}

void quillbrook_note_voice(quillbrook_message &message) {
  quillbrook_speech_t *session = message.session;
  const int *silence = message.context->silence;
  if (ast_tvzero(session->datevoice) && silence && shared_load(*silence) == 0) {
    session->datevoice = session->datelast;
    trace(2, "CALLBACK: set date voice detection !\n");
    trace(2, "CALLBACK: session voice detection [%d]\n",
          static_cast<int>(ast_tvdiff_ms(session->datevoice, session->datestart)));
  }
}

void quillbrook_note_first_text(quillbrook_message &message) {
  quillbrook_speech_t *session = message.session;
  if (!message.has_text() || !ast_tvzero(session->datefirst)) {
    return;
  }
  session_notice(session, "Set flag QUIET|SPOKE.\n");
  shared_set_bits(message.speech->flags, static_cast<unsigned int>(AST_SPEECH_QUIET | AST_SPEECH_SPOKE));
  trace(2, "CALLBACK: Voice detected\n");
  session->datefirst = session->datelast;
  trace(2, "CALLBACK: delay first [%d]\n", static_cast<int>(ast_tvdiff_ms(session->datefirst, session->datestart)));
  trace(2, "CALLBACK: delay last [%d]\n", static_cast<int>(ast_tvdiff_ms(session->datelast, session->datestart)));
  session->datesilence = {};
}

void quillbrook_run_timers(quillbrook_message &message) {
  const quillbrook_speech_t *session = message.session;
  if (ast_tvzero(session->datefirst)) {
    trace(2, "CALLBACK: Waiting speech...\n");
    return;
  }
  const int duration = static_cast<int>(ast_tvdiff_ms(session->datelast, session->datefirst));
  trace(2, "CALLBACK: speech duration [%d]\n", duration);
  trace(2, "CALLBACK: DSP / VAD silence [%d]\n", shared_load(session->silence));
  move_silence_date(message);
  shift_silence_date(message);
  test_complete_timeout(message, duration);
  test_incomplete_timeout(message);
}
