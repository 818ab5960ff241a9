// The words and phrases that the dialplan expects: the record's `phrases`, separated by commas.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "model.h"

namespace quillbrook::pocketsphinx {

struct Hints {
  using Phrase = std::vector<std::string>;  // words as the dictionary spells them: lower case

  std::vector<Phrase> phrases;
  std::unordered_map<std::string, std::string> spelling;  // dictionary word to the way the hint wrote it
  std::vector<std::string> left_out;                      // words that the dictionary lacks; their phrases are gone

  // True when the text names no phrase at all, so that the language model is wanted.
  static bool is_empty(std::string_view text);

  static Hints parse(std::string_view text, const Dictionary &dictionary);

  // The words of a hypothesis, blank-separated, in the spelling of the hints.
  std::string spell(std::string_view words) const;
};

}  // namespace quillbrook::pocketsphinx
