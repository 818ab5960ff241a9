#pragma once

#include <array>
#include <string>
#include <string_view>

namespace quillbrook::jsgf {

// What a character is to the comparison of texts. The classes are those of Unicode but for signs that say something:
// in figures, addresses and names nobody means the same with and without them.
enum class CharacterClass : unsigned char {
  kLetter,  // of any script, and what no version of Unicode knows yet
  kFigure,  // a decimal digit of any script
  kOther,   // every other character that makes a word one
  kMark,    // punctuation, stripped from the edges of a word
  kSymbol,  // punctuation that stays there: + # % & $ @ / and the like
  kDash,
  kSpace,
  kDropped,
};

constexpr std::array<CharacterClass, 0x80> ascii_classes() {
  std::array<CharacterClass, 0x80> classes{};
  for (unsigned c = 0; c < 0x80; ++c) {
    const unsigned lower = c | 0x20U;
    classes[c] = lower >= 'a' && lower <= 'z' ? CharacterClass::kLetter
                 : c >= '0' && c <= '9'       ? CharacterClass::kFigure
                 : c > ' ' && c < 0x7F        ? CharacterClass::kSymbol
                                              : CharacterClass::kOther;
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

CharacterClass classify(char32_t c);

inline bool is_word_class(CharacterClass kind) {
  return kind <= CharacterClass::kOther;
}

// Whether the next word may follow without a blank, as it does in Chinese and Japanese.
bool is_wide(char32_t mark);

// The text with each letter and its accents as one character, wherever there is one (Unicode's form C). A text that
// isn't UTF-8 comes back as it is.
std::string composed(std::string_view text);

}  // namespace quillbrook::jsgf
