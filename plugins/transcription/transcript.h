// What the server made of an utterance.
#pragma once

#include <string>

namespace quillbrook::transcription {

// Confidence in percent of an answer without usable figures: above the module's 50 for words that were never
// confirmed, and below what a server gives words that it is sure of.
constexpr int kConfidenceWithoutFigures = 75;

// The models invent sentences for silence, and say so in their figures. Both limits have to be passed.
struct SilenceLimits {
  double no_speech = 0.6;  // no_speech_prob above
  double logprob = -1.0;   // avg_logprob below
};

struct Transcript {
  std::string text;     // UTF-8 without control characters; empty when there was no speech in it
  int confidence = 0;   // 1 to 100
  bool silent = false;  // the model's own figures say that some of its words were none
};

// Reads an answer of the form "json" or "verbose_json" that repaired() has seen. Confidence comes from the first of
// these that is there: the segments' avg_logprob, weighted by their length; the words' probability; the tokens'
// logprob. Throws Failure when it is no JSON object with a text.
Transcript parse_transcript(const std::string &json, const SilenceLimits &limits);

// The server's own words in the body of an error, in any of the usual forms; empty when there are none.
std::string error_message(const std::string &json);

// One event of a streamed answer. Other events have no text.
struct StreamEvent {
  bool is_delta = false;  // text goes behind the text up to now
  bool is_done = false;   // text is the whole
  std::string text;
};
StreamEvent parse_event(const std::string &json);

}  // namespace quillbrook::transcription
