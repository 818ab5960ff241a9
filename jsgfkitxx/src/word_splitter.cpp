#include "word_splitter.h"

#include <algorithm>
#include <array>

#include "case_folding.h"
#include "utf8.h"

namespace quillbrook::jsgf {

namespace {

enum class CharacterClass : unsigned char {
  kLetter,
  kDigit,   // and every other character that makes a word one
  kMark,    // stripped from the edges of a word
  kSymbol,  // a mark that stays at an edge
  kDash,
  kSpace,
  kDropped,
};

constexpr std::array<CharacterClass, 0x80> ascii_classes() {
  std::array<CharacterClass, 0x80> classes{};
  for (unsigned c = 0; c < 0x80; ++c) {
    const unsigned lower = c | 0x20U;
    classes[c] = lower >= 'a' && lower <= 'z' ? CharacterClass::kLetter
                 : c >= '0' && c <= '9'       ? CharacterClass::kDigit
                 : c > ' ' && c < 0x7F        ? CharacterClass::kSymbol
                                              : CharacterClass::kDigit;
  }
  for (const char c : {'.', ',', ';', ':', '!', '?', '"', '\'', '(', ')'}) {
    classes[static_cast<unsigned char>(c)] = CharacterClass::kMark;
  }
  for (const char c : {' ', '\t', '\n', '\v', '\f', '\r'}) {
    classes[static_cast<unsigned char>(c)] = CharacterClass::kSpace;
  }
  classes['-'] = CharacterClass::kDash;
  return classes;
}

constexpr std::array<CharacterClass, 0x80> kAsciiClasses = ascii_classes();

constexpr std::array<char, 0x80> ascii_folded() {
  std::array<char, 0x80> folded{};
  for (unsigned c = 0; c < 0x80; ++c) {
    folded[c] = static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
  }
  return folded;
}

constexpr std::array<char, 0x80> kAsciiFolded = ascii_folded();

bool is_word_class(CharacterClass kind) {
  return kind == CharacterClass::kLetter || kind == CharacterClass::kDigit;
}

CharacterClass classify(char32_t c) {
  if (c < 0x80) {
    return kAsciiClasses[c];
  }
  switch (c) {
    case 0x85:
    case 0xA0:
    case 0x202F:
    case 0x3000:
      return CharacterClass::kSpace;
    case 0xAD:
    case 0x200B:
    case 0xFEFF:
      return CharacterClass::kDropped;
    case 0x2026:  // …
    case 0x2018:  // ‘
    case 0x201C:  // “
    case 0x201D:  // ”
    case 0x201E:  // „
    case 0xAB:    // «
    case 0xBB:    // »
    case 0x2039:  // ‹
    case 0x203A:  // ›
    case 0xBF:    // ¿
    case 0xA1:    // ¡
      return CharacterClass::kMark;
    case 0xAA:  // ª
    case 0xB5:  // µ
    case 0xBA:  // º
      return CharacterClass::kLetter;
    case 0xD7:  // ×
    case 0xF7:  // ÷
      return CharacterClass::kDigit;
    default:
      break;
  }
  if (c >= 0x2000 && c <= 0x200A) {
    return CharacterClass::kSpace;
  }
  if (c >= 0x2010 && c <= 0x2014) {
    return CharacterClass::kDash;
  }
  // The rest of the controls, Latin-1 signs, general punctuation to arrows and shapes, and the CJK marks. All else
  // counts as a letter: only the hyphen between two letters asks for it.
  const bool sign = c < 0xC0 || (c >= 0x2000 && c < 0x2C00) || (c >= 0x3001 && c < 0x3040);
  return sign ? CharacterClass::kDigit : CharacterClass::kLetter;
}

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
    position_ += length;
    if (kind != CharacterClass::kMark) {
      begin = std::min(begin, buffer_.size());
    }
    append_utf8(buffer_, c);
    if (kind != CharacterClass::kMark) {
      end = buffer_.size();
    }
    after_letter = kind == CharacterClass::kLetter;
    marks_only_ = marks_only_ && !is_word_class(kind);
  }
  if (buffer_.empty()) {
    return false;
  }
  word_ = buffer_;
  if (begin != std::string::npos) {  // else it is punctuation alone
    word_ = word_.substr(begin, end - begin);
  }
  return true;
}

}  // namespace quillbrook::jsgf
