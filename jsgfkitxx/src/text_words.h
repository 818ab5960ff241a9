#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "vocabulary.h"
#include "word_splitter.h"

namespace quillbrook::jsgf {

// Reads a text as the words of a grammar. A word that the grammar doesn't have and that has figures in it is taken
// apart between figures, letters and other signs, and a run of figures that the grammar doesn't have either is read
// figure by figure: a recogniser may write "1234" or "12:30" for what a grammar spells 1 2 3 4 or 12 30. So a word is
// taken whole wherever that's possible. Words of punctuation alone count where the grammar has them, and are left out
// otherwise.
class TextWords {
public:
  enum class Figures { kWholeIfKnown, kAlwaysApart };

  // Both must outlive the words.
  TextWords(const Vocabulary &vocabulary, std::string_view text, Figures figures = Figures::kWholeIfKnown)
      : vocabulary_(vocabulary), splitter_(text), figures_(figures) {}

  // Moves to the next word; false when there is none.
  bool next();

  // The current word, Vocabulary::kUnknown when the grammar doesn't have it.
  uint32_t number() const { return number_; }

  // All valid until the next call of next().
  std::string_view word() const { return word_; }
  std::string_view written() const { return splitter_.word(); }  // the word that it was taken out of, or itself
  bool is_first_of_written() const { return is_first_; }
  bool is_one_figure_of_many() const { return is_single_; }

private:
  bool next_written();
  bool take_piece();

  const Vocabulary &vocabulary_;
  WordSplitter splitter_;
  const Figures figures_;
  std::string_view rest_;  // of a word that is taken apart
  size_t singles_ = 0;     // bytes of the rest that are read figure by figure
  std::string_view word_;
  uint32_t number_ = Vocabulary::kUnknown;
  bool is_first_ = false;
  bool is_single_ = false;
};

// Where the figures at the end of a word begin; its size when there are none.
size_t last_figures(std::string_view word);

}  // namespace quillbrook::jsgf
