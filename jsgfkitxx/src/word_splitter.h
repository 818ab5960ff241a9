#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quillbrook::jsgf {

// Cuts a text into words that can be compared byte by byte. The same cutting is applied to the tokens of a grammar and
// to a transcript, so that "Yes, twenty-one." and `yes twenty one` meet:
//
//  - white space separates words; U+FEFF, U+200B, U+00AD and other characters for layout vanish;
//  - letters lose their case, and are composed with their accents; ’ and ʼ become ';
//  - punctuation at the edges of a word goes, but + - * # % & $ @ / and other signs that say something stay;
//  - a hyphen between two letters separates words, elsewhere it stays; so does the punctuation of Chinese and Japanese,
//    which have no blanks.
//
// A word of punctuation and dashes alone comes whole and marked, since whether it counts depends on the grammar.
class WordSplitter {
public:
  // The text must outlive the splitter.
  explicit WordSplitter(std::string_view text) : text_(text) {}

  // Moves to the next word; false when there is none.
  bool next();

  // The current word in UTF-8, never empty, valid until the next call of next().
  std::string_view word() const { return word_; }
  bool marks_only() const { return marks_only_; }

private:
  bool next_plain();
  bool letter_follows(size_t at) const;

  const std::string_view text_;
  size_t position_ = 0;
  std::string buffer_;
  std::string_view word_;
  bool marks_only_ = false;
};

}  // namespace quillbrook::jsgf
