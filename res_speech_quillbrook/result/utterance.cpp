#include "utterance.h"

namespace {

// A stop stands: the plugin may look for it in any of these fields.
bool is_ending(const quillbrook_run_t &run) {
  return shared_load(run.context.hangup) || shared_load(run.recognition->stopping);
}

}  // namespace

void quillbrook_take_timeouts(const quillbrook_speech_t *session, quillbrook_run_t &run) {
  if (!is_ending(run)) {
    shared_store(run.context.completetimeout, shared_load(session->completetimeout));
    shared_store(run.context.incompletetimeout, shared_load(session->incompletetimeout));
  }
}

void quillbrook_end_utterance(const quillbrook_speech_t *session, quillbrook_run_t &run) {
  quillbrook_transcript_t &transcript = run.transcript;
  const struct timeval now = ast_tvzero(transcript.datelast) ? transcript.datestart : transcript.datelast;
  quillbrook_clear_transcript(transcript);
  transcript.datestart = now;
  quillbrook_take_timeouts(session, run);
  if (!is_ending(run)) {
    shared_store(run.context.finalize, 0);
  }
}

void quillbrook_overtake_other_runs(const quillbrook_run_t &run) {
  quillbrook_for_each_run(run.recognition, [&run](quillbrook_run_t &other) {
    if (&other != &run && !ast_tvzero(other.transcript.datefirst)) {
      other.transcript.overtaken = 1;
    }
  });
}
