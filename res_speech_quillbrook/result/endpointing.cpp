#include "endpointing.h"

#include "../record/speech_state.h"
#include "utterance.h"

namespace {

// A complete timeout above this is already that of free speech, and long speech does not change it.
constexpr int kExtensionLimit = 2500;
// Where both silences are asked for, the words alone count behind this many times the timeout: noise may keep the audio
// from ever being quiet.
constexpr int kTimeoutsInNoise = 3;
// What a plugin gets to send its last words after it was asked to finalise.
constexpr int kFinalizeTime = 1000;

// The timers in a trace.
constexpr char kCompleteTimeout[] = "completetimeout";
constexpr char kIncompleteTimeout[] = "incompletetimeout";
constexpr char kCloseTimeout[] = "closetimeout";

// A call that brings the first words keeps them: they are stored, and the timers count from the next call. A
// recogniser that lags behind the audio's silence, or a final that counts as silence from long ago, would else lose
// all it ever heard, because words are stored behind the timers.
bool brings_first_words(const quillbrook_message &message) {
  const quillbrook_transcript_t &transcript = message.transcript;
  const bool stored = (transcript.text && transcript.text[0]) || transcript.text_interim;
  return !stored && message.has_words();
}

void expire(quillbrook_message &message, const char *timer, int limit) {
  message.expired = timer;
  message.limit = limit;
}

void finish(quillbrook_message &message, const char *timer, int limit) {
  if (brings_first_words(message)) {
    return;
  }
  trace(2, "Set score = -2 !\n");
  if (!message.hold) {
    message.score = QUILLBROOK_SCORE_FINISH;
    message.timed_out = true;
    expire(message, timer, limit);
  }
}

int64_t text_silence(const quillbrook_transcript_t &transcript) {
  return ast_tvdiff_ms(transcript.datelast, transcript.datesilence);
}

// Whether the silence of the audio has to join that of the words. Without a detector it never would.
bool wants_both_silences(const quillbrook_message &message) {
  const quillbrook_engine_t &engine = *message.session->engine;
  return engine.both_silences && engine.dsp && message.recognition->dsp;
}

// New words restart the silence. A repeated hypothesis does not keep a recognition alive.
void move_silence_date(const quillbrook_message &message) {
  quillbrook_transcript_t &transcript = message.transcript;
  if (ast_tvzero(transcript.datesilence)) {
    transcript.datesilence = transcript.datelast;
  } else if (!message.has_text()) {
    return;
  } else if (!transcript.text_interim) {
    trace(2, "CALLBACK: New text after silence, no silence!\n");
    transcript.datesilence = transcript.datelast;
  } else if (strcmp(message.text, transcript.text_interim) != 0) {
    trace(2, "CALLBACK: New text, no silence!\n");
    transcript.datesilence = transcript.datelast;
  } else {
    return;
  }
  transcript.incomplete_reported = 0;
}

// A final counts as silence that began the provider's delay before it arrived.
void shift_silence_date(const quillbrook_message &message) {
  quillbrook_transcript_t &transcript = message.transcript;
  if (message.score > 0 && shared_load(message.context->finalize) == 0) {
    const int shift = message.session->providertimeout;
    transcript.datesilence = ast_tvsub(transcript.datesilence, ast_tv(shift / 1000, (shift % 1000) * 1000L));
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

// What the silence of the words has to exceed, where the complete timeout is `completetimeout`: the grammars know
// whether there is anything to wait for.
int limit_of_silence(const quillbrook_message &message, int completetimeout) {
  switch (message.transcript.extent) {
    case kExtentComplete: {
      const int matchtimeout = shared_load(message.session->matchtimeout);
      return matchtimeout ? matchtimeout : completetimeout;
    }
    case kExtentBeginning: {
      const int incompletetimeout = shared_load(message.context->incompletetimeout);
      return incompletetimeout ? incompletetimeout : completetimeout;
    }
    default:
      return completetimeout;
  }
}

// The utterance is complete, by a silence longer than `limit`. A plugin that can flush is asked to, and gets a second
// for it, which the incomplete timeout then ends; else the recognition ends here.
void complete(quillbrook_message &message, int limit) {
  quillbrook_context *context = message.context;
  const int finalize = shared_load(context->finalize);
  if (finalize != 0) {
    trace_state(message, "Finalize = %d...\n", finalize);
  } else if (shared_load(context->quantum)) {
    expire(message, kCompleteTimeout, limit);
    trace(2, "Set finalize =1 !\n");
    message.transcript.datefinalize = message.transcript.datelast;
    // The limit stands before the plugin sees the flag. Where the words have been silent for long, it lies ahead of
    // now.
    const int silence = wants_both_silences(message) ? static_cast<int>(text_silence(message.transcript)) : limit;
    shared_store(context->incompletetimeout, silence + kFinalizeTime);
    shared_store(context->finalize, 1);
    trace(2, "Try to finalize a result after completetimeout !\n");
    trace(2, "Gives 1s from now to get a result...\n");
  } else {
    finish(message, kCompleteTimeout, limit);
  }
}

bool is_silent_for(const quillbrook_message &message, int timeout) {
  const int64_t stt = text_silence(message.transcript);
  const int dsp = shared_load(message.recognition->silence);
  trace_state(message, "CALLBACK: completetimeout delay silence [stt=%d,dsp=%d] > %d\n", static_cast<int>(stt), dsp,
              timeout);
  if (wants_both_silences(message)) {
    return stt > timeout && (dsp > timeout || stt > int64_t{kTimeoutsInNoise} * timeout);
  }
  return dsp > timeout || stt > timeout;
}

void test_complete_timeout(quillbrook_message &message, int duration) {
  if (!message.session->timeouts || !shared_load(message.context->completetimeout)) {
    return;
  }
  extend_complete_timeout(message, duration);
  const int limit = limit_of_silence(message, shared_load(message.context->completetimeout));
  message.complete_limit = limit;
  if (is_silent_for(message, limit)) {
    complete(message, limit);
  }
}

// One error for one silence: in a continuous session nothing else would end the repetition.
void report_incomplete(quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock) {
  quillbrook_transcript_t &transcript = message.transcript;
  if (transcript.incomplete_reported || brings_first_words(message)) {
    return;
  }
  transcript.incomplete_reported = 1;
  message.failed = true;
  expire(message, kIncompleteTimeout, shared_load(message.context->incompletetimeout));
  if (transcript.overtaken) {
    return;
  }
  message.has_result = true;
  session_log(LOG_ERROR, message.session, "Error with incomplete timeout!\n");
  char reason[80];
  snprintf(reason, sizeof(reason), "no new words for %d ms and no end of the utterance",
           static_cast<int>(text_silence(transcript)));
  quillbrook_queue_error(message.speech, message.session, kCauseIncomplete, reason);
  shared_store(message.context->finalize, 1);
}

// The outer limit of a complete timeout delivers what there is; by itself it is an error.
bool incomplete_timeout_finishes(const quillbrook_message &message) {
  const int completetimeout = shared_load(message.context->completetimeout);
  return completetimeout && completetimeout < shared_load(message.context->incompletetimeout);
}

void test_incomplete_timeout(quillbrook_message &message) QUILLBROOK_REQUIRES(message.session->result_lock) {
  const quillbrook_transcript_t &transcript = message.transcript;
  const int timeout = shared_load(message.context->incompletetimeout);
  if (!message.session->timeouts || !timeout) {
    return;
  }
  const int64_t stt = text_silence(transcript);
  trace_state(message, "CALLBACK: incompletetimeout delay silence [%d] < %d\n", static_cast<int>(stt), timeout);
  if (stt <= timeout) {
    return;
  }
  if (incomplete_timeout_finishes(message)) {
    finish(message, kIncompleteTimeout, timeout);
  } else {
    report_incomplete(message);
  }
}

// How long a silence of `silence` ms needs to be above the timeout.
int left(int64_t timeout, int64_t silence) {
  return static_cast<int>(std::clamp<int64_t>(timeout + 1 - silence, 0, INT_MAX));
}

// What the complete timeout may be by the time that it expires: long speech exchanges it.
int shortest_complete_timeout(const quillbrook_message &message) {
  const int timeout = shared_load(message.context->completetimeout);
  const int extendedtimeout = shared_load(message.session->extendedtimeout);
  const bool is_exchanged =
      shared_load(message.session->speechtimeout) && extendedtimeout && timeout <= kExtensionLimit;
  return limit_of_silence(message, timeout && is_exchanged ? std::min(timeout, extendedtimeout) : timeout);
}

int left_of_complete(const quillbrook_message &message, int64_t words) {
  if (!shared_load(message.context->completetimeout) || shared_load(message.context->finalize) != 0) {
    return INT_MAX;
  }
  const int timeout = shortest_complete_timeout(message);
  const int audio = left(timeout, shared_load(message.recognition->silence));
  if (wants_both_silences(message)) {
    return std::min(std::max(left(timeout, words), audio), left(int64_t{kTimeoutsInNoise} * timeout, words));
  }
  return std::min(left(timeout, words), audio);
}

int left_of_incomplete(const quillbrook_message &message, int64_t words) {
  const int timeout = shared_load(message.context->incompletetimeout);
  const bool is_held = message.hold && incomplete_timeout_finishes(message);
  return timeout && !is_held && !message.transcript.incomplete_reported ? left(timeout, words) : INT_MAX;
}

bool is_before(const struct timeval &date, const struct timeval &other) {
  return timercmp(&date, &other, <);
}

// The wall clock may be set back in mid-utterance, which would stop all timers for as long. The dates go back with it.
void follow_clock(quillbrook_transcript_t &transcript, const struct timeval &now) {
  const struct timeval latest =
      is_before(transcript.datelast, transcript.datestart) ? transcript.datestart : transcript.datelast;
  if (!is_before(now, latest)) {
    return;
  }
  const struct timeval difference = ast_tvsub(latest, now);
  for (struct timeval *date :
       {&transcript.datestart, &transcript.datelast, &transcript.datevoice, &transcript.datefirst,
        &transcript.datewords, &transcript.datesilence, &transcript.datefinalize, &transcript.dateclose}) {
    if (!ast_tvzero(*date)) {
      *date = ast_tvsub(*date, difference);
    }
  }
}

}  // namespace

void quillbrook_read_clock(quillbrook_message &message) {
  quillbrook_transcript_t &transcript = message.transcript;
  const quillbrook_engine_t &engine = *message.session->engine;
  const struct timeval now = ast_tvnow();
  follow_clock(transcript, now);
  transcript.datelast = now;
  if (engine.waitclose && shared_load(message.context->finalize) > 0 &&
      !shared_load(message.recognition->plugin_closed)) {
    if (ast_tvzero(transcript.dateclose)) {
      transcript.dateclose = transcript.datelast;
    }
    if (ast_tvdiff_ms(transcript.datelast, transcript.dateclose) < engine.closetimeout) {
      message.hold = 1;
    } else {
      trace_state(message, "CALLBACK: waitclose limit reached (%d ms)\n", engine.closetimeout);
      expire(message, kCloseTimeout, engine.closetimeout);
    }
  }
  if (message.hold) {
    trace_state(message, "CALLBACK: the plugin is closing, hold the result\n");
  }
  trace_state(message, "CALLBACK: session duration [%d]\n",
              static_cast<int>(ast_tvdiff_ms(transcript.datelast, transcript.datestart)));
}

void quillbrook_note_voice(quillbrook_message &message) {
  quillbrook_transcript_t &transcript = message.transcript;
  const int *silence = message.context->silence;
  if (ast_tvzero(transcript.datevoice) && silence && shared_load(*silence) == 0) {
    transcript.datevoice = transcript.datelast;
    trace(2, "CALLBACK: set date voice detection !\n");
    trace(2, "CALLBACK: session voice detection [%d]\n",
          static_cast<int>(ast_tvdiff_ms(transcript.datevoice, transcript.datestart)));
  }
}

void quillbrook_note_first_text(quillbrook_message &message) {
  quillbrook_transcript_t &transcript = message.transcript;
  if (!message.has_text() || !ast_tvzero(transcript.datefirst)) {
    return;
  }
  session_notice(message.session, "Set flag QUIET|SPOKE.\n");
  shared_set_bits(message.speech->flags, static_cast<unsigned int>(AST_SPEECH_QUIET | AST_SPEECH_SPOKE));
  trace(2, "CALLBACK: Voice detected\n");
  transcript.datefirst = transcript.datelast;
  transcript.unanswered = 1;
  if (!std::exchange(message.recognition->first_words_counted, 1)) {
    message.session->statistics->first_words.add_ms(ast_tvdiff_ms(transcript.datefirst, transcript.datestart));
  }
  trace(2, "CALLBACK: delay first [%d]\n", static_cast<int>(ast_tvdiff_ms(transcript.datefirst, transcript.datestart)));
  trace(2, "CALLBACK: delay last [%d]\n", static_cast<int>(ast_tvdiff_ms(transcript.datelast, transcript.datestart)));
  transcript.datesilence = {};
  message.session->watch.quieted = 1;  // from here on the plugin has to keep calling
  quillbrook_watch_bell.ring();
  if (quillbrook_utterances_are_separate(*message.session->engine)) {
    quillbrook_take_timeouts(message.session, *quillbrook_run_of(message.context));
  }
}

void quillbrook_run_timers(quillbrook_message &message) {
  const quillbrook_transcript_t &transcript = message.transcript;
  if (ast_tvzero(transcript.datefirst)) {
    trace_state(message, "CALLBACK: Waiting speech...\n");
    return;
  }
  const int duration = static_cast<int>(ast_tvdiff_ms(transcript.datelast, transcript.datefirst));
  trace_state(message, "CALLBACK: speech duration [%d]\n", duration);
  trace_state(message, "CALLBACK: DSP / VAD silence [%d]\n", shared_load(message.recognition->silence));
  move_silence_date(message);
  shift_silence_date(message);
  test_complete_timeout(message, duration);
  test_incomplete_timeout(message);
}

int quillbrook_next_timer(const quillbrook_message &message) {
  const quillbrook_transcript_t &transcript = message.transcript;
  const quillbrook_engine_t &engine = *message.session->engine;
  if (ast_tvzero(transcript.datefirst)) {
    return INT_MAX;
  }
  if (!message.session->timeouts) {
    return INT_MAX;
  }
  const int64_t words = ast_tvzero(transcript.datesilence) ? 0 : text_silence(transcript);
  const int hold =
      message.hold ? left(engine.closetimeout - 1, ast_tvdiff_ms(transcript.datelast, transcript.dateclose)) : INT_MAX;
  return std::min({hold, left_of_complete(message, words), left_of_incomplete(message, words)});
}
