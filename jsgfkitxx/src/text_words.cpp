#include "text_words.h"

#include "characters.h"
#include "utf8.h"

namespace quillbrook::jsgf {

namespace {

enum class Piece { kFigures, kLetters, kSigns };

Piece piece_at(std::string_view word, size_t at, size_t &length) {
  const CharacterClass kind = classify(decode_utf8(word, at, length));
  return kind == CharacterClass::kFigure   ? Piece::kFigures
         : kind == CharacterClass::kLetter ? Piece::kLetters
                                           : Piece::kSigns;
}

// A dash in front of figures takes something off them: such words stay whole.
bool can_be_taken_apart(std::string_view word) {
  size_t length = 0;
  if (classify(decode_utf8(word, 0, length)) == CharacterClass::kDash) {
    return false;
  }
  for (size_t at = 0; at < word.size(); at += length) {
    if (piece_at(word, at, length) == Piece::kFigures) {
      return true;
    }
  }
  return false;
}

// The bytes of the characters of one kind at the start of a text.
size_t first_piece(std::string_view text, Piece &kind) {
  size_t length = 0;
  kind = piece_at(text, 0, length);
  size_t end = length;
  while (end < text.size() && piece_at(text, end, length) == kind) {
    end += length;
  }
  return end;
}

bool is_punctuation(std::string_view word) {
  size_t length = 0;
  for (size_t at = 0; at < word.size(); at += length) {
    if (is_word_class(classify(decode_utf8(word, at, length)))) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool TextWords::next() {
  is_first_ = false;
  for (;;) {
    if (rest_.empty()) {
      if (!splitter_.next()) {
        return false;
      }
      is_first_ = true;
      if (next_written()) {
        return true;
      }
    } else if (take_piece()) {
      return true;
    }
  }
}

// Whether the word that was read last counts as a whole.
bool TextWords::next_written() {
  is_single_ = false;
  word_ = splitter_.word();
  number_ = vocabulary_.find(word_);
  const bool is_kept_whole = figures_ == Figures::kWholeIfKnown && number_ != Vocabulary::kUnknown;
  if (!is_kept_whole && can_be_taken_apart(word_)) {
    rest_ = word_;
    return false;
  }
  return number_ != Vocabulary::kUnknown || !splitter_.marks_only();
}

// Whether the next piece of the rest counts.
bool TextWords::take_piece() {
  size_t length = 0;
  Piece kind = Piece::kFigures;
  is_single_ = singles_ > 0;
  if (!is_single_) {
    const size_t whole = first_piece(rest_, kind);
    piece_at(rest_, 0, length);
    is_single_ =
        kind == Piece::kFigures && whole > length && vocabulary_.find(rest_.substr(0, whole)) == Vocabulary::kUnknown;
    singles_ = is_single_ ? whole : 0;
    length = is_single_ ? length : whole;
  } else {
    piece_at(rest_, 0, length);
  }
  singles_ -= is_single_ ? length : 0;
  word_ = rest_.substr(0, length);
  rest_.remove_prefix(length);
  number_ = vocabulary_.find(word_);
  return number_ != Vocabulary::kUnknown || kind != Piece::kSigns || !is_punctuation(word_);
}

size_t last_figures(std::string_view word) {
  size_t begin = word.size();
  size_t length = 0;
  for (size_t at = 0; at < word.size(); at += length) {
    if (piece_at(word, at, length) != Piece::kFigures) {
      begin = word.size();
    } else if (begin == word.size()) {
      begin = at;
    }
  }
  return begin;
}

}  // namespace quillbrook::jsgf
