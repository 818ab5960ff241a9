#include "word_splitter.h"

#include <algorithm>
#include <array>

#include "case_folding.h"
#include "characters.h"
#include "utf8.h"

namespace quillbrook::jsgf {

namespace {

constexpr std::array<char, 0x80> ascii_folded() {
  std::array<char, 0x80> folded{};
  for (unsigned c = 0; c < 0x80; ++c) {
    folded[c] = static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
  }
  return folded;
}

constexpr std::array<char, 0x80> kAsciiFolded = ascii_folded();

// Texts of lower characters alone are composed as they are.
constexpr char32_t kFirstAccent = 0x300;

char32_t comparable(char32_t c) {
  return c == 0x2019 || c == 0x2BC ? U'\'' : fold_case(c);
}

}  // namespace

bool WordSplitter::letter_follows(size_t at) const {
  while (at < text_.size()) {
    size_t length = 0;
    const CharacterClass following = classify(comparable(decode_utf8(text_, at, length)));
    if (following != CharacterClass::kDropped) {
      return following == CharacterClass::kLetter;
    }
    at += length;
  }
  return false;
}

// Takes a word of ASCII letters and digits between blanks, the plain case, where it stands. False for anything else.
bool WordSplitter::next_plain() {
  const auto class_at = [&](size_t at) {
    const auto byte = static_cast<unsigned char>(text_[at]);
    return byte < 0x80 ? kAsciiClasses[byte] : CharacterClass::kMark;
  };
  size_t begin = position_;
  while (begin < text_.size() && class_at(begin) == CharacterClass::kSpace) {
    ++begin;
  }
  size_t end = begin;
  bool is_folded = true;
  for (; end < text_.size() && is_word_class(class_at(end)); ++end) {
    is_folded = is_folded && kAsciiFolded[static_cast<unsigned char>(text_[end])] == text_[end];
  }
  position_ = begin;
  if (begin == end || (end < text_.size() && class_at(end) != CharacterClass::kSpace)) {
    return false;
  }
  position_ = end;
  word_ = text_.substr(begin, end - begin);
  if (!is_folded) {
    buffer_.assign(word_);
    std::transform(buffer_.begin(), buffer_.end(), buffer_.begin(),
                   [](char c) { return kAsciiFolded[static_cast<unsigned char>(c)]; });
    word_ = buffer_;
  }
  marks_only_ = false;
  return true;
}

bool WordSplitter::next() {
  if (next_plain()) {
    return true;
  }
  buffer_.clear();
  size_t begin = std::string::npos;  // of the word within the buffer, edges stripped
  size_t end = 0;
  bool after_letter = false;
  bool after_wide_mark = false;
  bool may_be_decomposed = false;
  marks_only_ = true;
  while (position_ < text_.size()) {
    size_t length = 0;
    const char32_t c = comparable(decode_utf8(text_, position_, length));
    const CharacterClass kind = classify(c);
    if (kind == CharacterClass::kSpace) {
      position_ += length;
      if (!buffer_.empty()) {
        break;
      }
      continue;
    }
    if (kind == CharacterClass::kDropped) {
      position_ += length;
      continue;
    }
    if (kind == CharacterClass::kDash && after_letter && letter_follows(position_ + length)) {
      position_ += length;
      break;
    }
    if (after_wide_mark && kind != CharacterClass::kMark) {
      break;
    }
    position_ += length;
    if (kind != CharacterClass::kMark) {
      begin = std::min(begin, buffer_.size());
    }
    append_utf8(buffer_, c);
    if (kind != CharacterClass::kMark) {
      end = buffer_.size();
    }
    after_letter = kind == CharacterClass::kLetter;
    after_wide_mark = kind == CharacterClass::kMark && !marks_only_ && is_wide(c);
    may_be_decomposed = may_be_decomposed || c >= kFirstAccent;
    marks_only_ = marks_only_ && !is_word_class(kind);
  }
  if (buffer_.empty()) {
    return false;
  }
  word_ = buffer_;
  if (begin != std::string::npos) {  // else it is punctuation alone
    word_ = word_.substr(begin, end - begin);
  }
  if (may_be_decomposed) {
    buffer_ = composed(word_);
    word_ = buffer_;
  }
  return true;
}

}  // namespace quillbrook::jsgf
