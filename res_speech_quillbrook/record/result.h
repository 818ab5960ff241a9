// What is known about a result besides its text and score: how the recognition ended, why, and what was heard. It
// travels beside the text in the queue of results, and the dialplan asks for it by name (session/settings.cpp).
#pragma once

#include "../host.h"

// How a recognition ends. docs/results.md has a row for each.
enum quillbrook_cause {
  kCauseUnderstood,  // there is a text
  kCauseNoMatch,     // something was said, and not understood or not accepted by an active grammar
  kCauseNothing,     // no words came
  kCauseIncomplete,  // words came, and neither an end nor silence above the complete timeout
  kCauseProvider,    // the plugin reported a failure
  kCauseStorage,     // the audio or the result document could not be written
  kCauseMemory,      // no memory, or no thread
  kCausePlugin,      // the plugin refused, fell silent, or returned without a result
  kCauseGrammar,     // there is a text, but matching an active grammar was given up
  kCauses
};

// The cause's name, as the dialplan, the metrics and the events show it.
const char *quillbrook_cause_name(quillbrook_cause cause);

// For the log: what to do about a failure of that cause. Empty for the first three, which are none.
const char *quillbrook_cause_advice(quillbrook_cause cause);

// Times are milliseconds from the start of the recognition, -1 when there was no such moment.
struct quillbrook_result_t {
  quillbrook_cause cause = kCauseNothing;
  std::string reason;   // of the provider or the system, in its own words
  int score = 0;        // percent
  std::string input;    // what was heard
  std::string meaning;  // tags of the grammar, or else the interpretation of the recogniser
  std::string grammar;  // that accepted the text
  std::string rule;     // by which of its public rules
  std::string json;     // of the provider
  int64_t first = -1;   // the first words
  int64_t length = -1;  // the result
};
