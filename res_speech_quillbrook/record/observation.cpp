#include "observation.h"

#include "../support/guard.h"

namespace {

quillbrook_observed identity_of(const quillbrook_speech_t *session) {
  char engine[kEngineNameSize];
  quillbrook_engine_host_name(*session->engine, engine, sizeof(engine));
  quillbrook_observed who = {session->uniqueid, "", session->name, engine};
  if (struct ast_channel *channel = host_channel_of_call(*session->call)) {
    ast_channel_lock(channel);
    who.channel = ast_channel_name(channel);
    if (who.uniqueid.empty()) {
      who.uniqueid = ast_channel_uniqueid(channel);
    }
    ast_channel_unlock(channel);
    host_channel_release(channel);
  }
  return who;
}

struct Setting {
  const char *name;
  int value;
};

void add_settings(TraceLine &line, const quillbrook_speech_t *session) {
  const quillbrook_engine_t &engine = *session->engine;
  for (const auto &[name, value] : {Setting{"timeouts", session->timeouts},
                                    {"completetimeout", shared_load(session->completetimeout)},
                                    {"incompletetimeout", shared_load(session->incompletetimeout)},
                                    {"providertimeout", session->providertimeout},
                                    {"speechtimeout", shared_load(session->speechtimeout)},
                                    {"extendedtimeout", shared_load(session->extendedtimeout)},
                                    {"minspeechtimeout", session->minspeechtimeout},
                                    {"maxspeechtimeout", session->maxspeechtimeout},
                                    {"earlyspeechtimeout", session->earlyspeechtimeout},
                                    {"closetimeout", engine.waitclose ? engine.closetimeout : 0},
                                    {"plugintimeout", engine.plugintimeout},
                                    {"stoptimeout", engine.stoptimeout},
                                    {"dsp", engine.dsp},
                                    {"silences_both", engine.both_silences}}) {
    line.add(name, value);
  }
}

// Of the second record of twin mode each line says so.
TraceLine line_of(const quillbrook_speech_t *session, const quillbrook_run_t &run, const char *what) {
  TraceLine line(session->observer->now(), what);
  if (&run.context == run.recognition->context2) {
    line.add("run", 2);
  }
  return line;
}

// What a call is, by its score. Null for one that brings nothing.
const char *kind_of(const char *text, int score, bool session_ended) {
  if (session_ended) {
    return "closed";
  }
  if (score == QUILLBROOK_SCORE_FINISH) {
    return "finish";
  }
  if (!text || !text[0]) {
    return nullptr;
  }
  if (score != QUILLBROOK_SCORE_NO_CONFIDENCE) {
    return score > 0 ? "final" : "interim";
  }
  // One byte that is no blank is a no match; any other text only says that the caller speaks.
  return text[0] != ' ' && !text[1] ? "nomatch" : "voice";
}

int milliseconds_between(const struct timeval &later, const struct timeval &earlier) {
  return static_cast<int>(ast_tvdiff_ms(later, earlier));
}

}  // namespace

void quillbrook_observe_session(quillbrook_speech_t *session) {
  const quillbrook_engine_t &engine = *session->engine;
  const char *folder = engine.trace ? engine.trace : "";
  if (!engine.events && !folder[0]) {
    return;
  }
  // A call is worth more than what is told about it.
  guarded("quillbrook_observe_session", 0, [&] {
    session->observer = std::make_shared<Observer>(identity_of(session), engine.events, folder);
    return 0;
  });
}

void quillbrook_observe_start(const quillbrook_speech_t *session, const quillbrook_recognition_t *recognition) {
  if (session->observer && recognition) {
    session->observer->begin([&](TraceLine &line) {
      line.add("audio", recognition->stream.full);
      add_settings(line, session);
    });
  }
}

void quillbrook_trace_call(const quillbrook_speech_t *session, const quillbrook_run_t &run, const char *text, int score,
                           bool session_ended) {
  const char *kind = kind_of(text, score, session_ended);
  const char *known = run.transcript.text_interim;
  if (!kind || (score == QUILLBROOK_SCORE_INTERIM && known && strcmp(text, known) == 0)) {
    return;
  }
  guarded("quillbrook_trace_call", 0, [&] {
    session->observer->line(line_of(session, run, kind).add("text", text).add("score", score));
    return 0;
  });
}

void quillbrook_trace_timers(const quillbrook_speech_t *session, quillbrook_run_t &run,
                             const quillbrook_timers &timers) {
  Observer &observer = *session->observer;
  const quillbrook_transcript_t &transcript = run.transcript;
  quillbrook_traced &known = run.traced;
  const int silence = shared_load(run.recognition->silence);
  const int incomplete = shared_load(run.context.incompletetimeout);
  const int finalize = shared_load(run.context.finalize);
  const bool counting = session->timeouts && !ast_tvzero(transcript.datefirst);
  const int text_silence = counting ? milliseconds_between(transcript.datelast, transcript.datesilence) : 0;
  guarded("quillbrook_trace_timers", 0, [&] {
    if (session->engine->dsp && (silence > 0) != known.quiet) {
      known.quiet = silence > 0;
      observer.line(line_of(session, run, "audio").add("silence", silence));
    }
    if (counting && (ast_tvcmp(transcript.datesilence, known.datesilence) != 0 || timers.complete != known.complete ||
                     incomplete != known.incomplete)) {
      known.datesilence = transcript.datesilence;
      known.complete = timers.complete;
      known.incomplete = incomplete;
      known.expired = nullptr;
      observer.line(line_of(session, run, "timers")
                        .add("since", observer.now() - text_silence)
                        .add("completetimeout", timers.complete)
                        .add("incompletetimeout", incomplete));
    }
    if (timers.expired && timers.expired != known.expired) {
      known.expired = timers.expired;
      observer.line(line_of(session, run, "expiry")
                        .add("timer", timers.expired)
                        .add("limit", timers.limit)
                        .add("words_silent", text_silence)
                        .add("audio_silent", silence));
    }
    if (finalize > 0 && !known.finalize) {
      observer.line(line_of(session, run, "finalize"));
    }
    known.finalize = finalize > 0;
    return 0;
  });
}

void quillbrook_trace_expiry(const quillbrook_speech_t *session, const char *timer, int limit) {
  Observer &observer = *session->observer;
  guarded("quillbrook_trace_expiry", 0, [&] {
    observer.line(TraceLine(observer.now(), "expiry").add("timer", timer).add("limit", limit));
    return 0;
  });
}

void quillbrook_trace_state(const quillbrook_speech_t *session, const char *state) {
  Observer &observer = *session->observer;
  guarded("quillbrook_trace_state", 0, [&] {
    observer.line(TraceLine(observer.now(), "state").add("state", state));
    return 0;
  });
}
