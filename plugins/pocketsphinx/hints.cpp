#include "hints.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace quillbrook::pocketsphinx {
namespace {

constexpr std::string_view kWhiteSpace = " \t\r\n";
constexpr size_t kLongestWord = 64;

std::string lower_case(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
  return lower;
}

// Takes the text up to one of the white_space from the front of rest.
std::string_view take(std::string_view &rest, std::string_view white_space) {
  size_t end = rest.find_first_of(white_space);
  std::string_view piece = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return piece;
}

std::string_view trim_punctuation(std::string_view word) {
  auto is_mark = [](char byte) { return std::ispunct(static_cast<unsigned char>(byte)) != 0; };
  while (!word.empty() && is_mark(word.back())) word.remove_suffix(1);
  while (!word.empty() && is_mark(word.front())) word.remove_prefix(1);
  return word;
}

bool is_known(const Dictionary &dictionary, const std::string &word) {
  // "read(2)" is how a dictionary names the second way to say "read".
  return !word.empty() && word.size() <= kLongestWord && word.find('(') == std::string::npos &&
         !dictionary.pronunciations(word).empty();
}

class Parser {
public:
  Parser(Hints &hints, const Dictionary &dictionary) : hints_(hints), dictionary_(dictionary) {}

  void add_phrase(std::string_view text) {
    Hints::Phrase phrase;
    bool complete = true;
    while (!text.empty()) {
      std::string_view word = take(text, kWhiteSpace);
      if (!word.empty()) complete &= add_word(phrase, word);
    }
    if (complete && !phrase.empty() && seen_.insert(phrase).second) hints_.phrases.push_back(std::move(phrase));
  }

private:
  bool add_spelled(Hints::Phrase &phrase, std::string_view written) {
    std::string word = lower_case(written);
    if (!is_known(dictionary_, word)) return false;
    hints_.spelling.emplace(word, written);
    phrase.push_back(std::move(word));
    return true;
  }

  // As written, without marks around it ("yes!"), or as the parts between hyphens ("twenty-one").
  bool add_word(Hints::Phrase &phrase, std::string_view written) {
    if (add_spelled(phrase, written) || add_spelled(phrase, trim_punctuation(written))) return true;
    Hints::Phrase parts;
    std::string_view rest = trim_punctuation(written);
    bool complete = rest.find('-') != std::string_view::npos;
    while (complete && !rest.empty()) complete = add_spelled(parts, take(rest, "-"));
    if (!complete) {
      hints_.left_out.emplace_back(written.substr(0, kLongestWord));
      return false;
    }
    phrase.insert(phrase.end(), parts.begin(), parts.end());
    return true;
  }

  Hints &hints_;
  const Dictionary &dictionary_;
  std::set<Hints::Phrase> seen_;
};

}  // namespace

bool Hints::is_empty(std::string_view text) {
  return text.find_first_not_of(", \t\r\n") == std::string_view::npos;
}

Hints Hints::parse(std::string_view text, const Dictionary &dictionary) {
  Hints hints;
  Parser parser(hints, dictionary);
  while (!text.empty()) parser.add_phrase(take(text, ","));
  return hints;
}

std::string Hints::spell(std::string_view words) const {
  std::string text;
  while (!words.empty()) {
    std::string word(take(words, kWhiteSpace));
    if (word.empty()) continue;
    auto found = spelling.find(word);
    if (!text.empty()) text += ' ';
    text += found == spelling.end() ? word : found->second;
  }
  return text;
}

}  // namespace quillbrook::pocketsphinx
