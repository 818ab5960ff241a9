// Where the files of a model are, and the pronunciations in its dictionary.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "parameters.h"

namespace quillbrook::pocketsphinx {

struct ModelFiles {
  std::string acoustic;        // directory
  std::string dictionary;      // file
  std::string language_model;  // file; empty when the recognition has hints and needs none

  // The parameter `model` wins over the record's model, which is used when it is an absolute path: any other name
  // there is meant for another plugin. Both name a directory laid out as Debian does it. Throws std::runtime_error
  // with a sentence that names the missing file and the package to install.
  static ModelFiles find(const Parameters &parameters, std::string_view record_model, bool with_language_model);

  bool operator==(const ModelFiles &other) const {
    return acoustic == other.acoustic && dictionary == other.dictionary && language_model == other.language_model;
  }
};

// A pronunciation dictionary in memory: a word, its variants as "word(2)", and their phones, one to a line.
class Dictionary {
public:
  // Throws std::runtime_error when the file cannot be read.
  explicit Dictionary(const std::string &path);
  Dictionary(const Dictionary &) = delete;
  Dictionary &operator=(const Dictionary &) = delete;

  // Phones of the word and of its variants, in the order of the file; empty when the word is not there. Lower case.
  std::vector<std::string> pronunciations(std::string_view word) const;

private:
  struct Entry {
    std::string_view word;
    std::string_view phones;
  };
  std::string_view phones_of(std::string_view word) const;

  std::string text_;
  std::vector<Entry> entries_;  // views of text_, sorted by word
};

}  // namespace quillbrook::pocketsphinx
