// What the operator sets for this plugin: "key=value" pairs in the record's `configuration`, separated by commas,
// semicolons or blanks. README.md explains each key to the operator.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quillbrook::pocketsphinx {

struct Parameters {
  bool endpointing = true;     // endpointing: false sends interims and ticks only
  bool loop = true;            // loop: several hints may follow each other in one utterance
  int silence_ms = 500;        // silence: quiet time that ends an utterance
  int threshold = 30;          // threshold: a final with a lower confidence becomes a no-match; 0 accepts everything
  int longest_ms = 30000;      // longest: speech after which an utterance is ended without a pause
  std::string model;           // model: directory; empty for the one that Debian installs
  std::string dictionary;      // dict: file; empty for the model's
  std::string language_model;  // lm: file; empty for the model's

  std::vector<std::string> complaints;  // one sentence for each pair that was not understood and was left out

  // Never fails: what it does not understand becomes a complaint, and the default stands.
  static Parameters parse(std::string_view text);
};

}  // namespace quillbrook::pocketsphinx
