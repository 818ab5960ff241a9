// jsgf-match: shows what a grammar makes of texts, to try it before callers do.

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <vector>

#include "jsgfkitxx.h"

namespace {

using quillbrook::jsgf::LastWord;
using quillbrook::jsgf::Viability;

constexpr int kAllMatched = 0;
constexpr int kSomeDidNotMatch = 1;
constexpr int kError = 2;

constexpr const char *kUsage =
    "usage: jsgf-match [--explain] [--folder FOLDER] GRAMMAR [TEXT...]\n"
    "       jsgf-match --words GRAMMAR\n"
    "\n"
    "Matches each TEXT, or each line of standard input, against the public rules of a JSGF grammar file and prints\n"
    "the text, the rule and the tags. With --explain prints as well the words as which the text is compared, how far\n"
    "they fit, and what could follow there. With --words prints the words that a recogniser is told to listen for.\n"
    "\n"
    "Imported grammars are looked for below the folder of GRAMMAR, then below FOLDER, or where grammars are "
    "installed.\n"
    "\n"
    "Exit status: 0 when all texts matched, 1 when some didn't, 2 when the grammar can't be loaded.\n";

// "line 3, column 7: reason" as compilers write it: "file:3:7: reason".
std::string located(const std::string &file, const std::string &message) {
  size_t line = 0;
  size_t column = 0;
  try {
    size_t used = 0;
    line = std::stoul(message.substr(std::string("line ").size()), &used);
    const size_t at = message.find("column ") + std::string("column ").size();
    column = std::stoul(message.substr(at));
  } catch (const std::logic_error &) {
    return file + ": " + message;
  }
  return file + ":" + std::to_string(line) + ":" + std::to_string(column) + message.substr(message.find(':'));
}

using Words = std::vector<std::string>;

// The first `count` words.
std::string joined(const Words &words, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    text += (i == 0 ? "" : " ") + words[i];
  }
  return text;
}

Viability viability(const Grammar &grammar, const std::string &text) {
  return grammar.getViability(text, LastWord::kIsWhole);
}

// How many words a text that fits can begin with.
size_t fitting_words(const Grammar &grammar, const Words &words) {
  size_t fitting = 0;
  size_t beyond = words.size() + 1;
  while (fitting + 1 < beyond) {
    const size_t middle = (fitting + beyond) / 2;
    (viability(grammar, joined(words, middle)) == Viability::kImpossible ? beyond : fitting) = middle;
  }
  return fitting;
}

// The words of the grammar that can follow a text, in the order of the file; no more than `most`.
Words followers(const Grammar &grammar, const std::string &text, size_t most) {
  const std::string start = text + " ";
  Words found;
  std::unordered_set<std::string> seen;
  for (const std::string &token : grammar.getAllWords()) {
    for (const std::string &word : grammar.getWords(token)) {
      if (found.size() < most && seen.insert(word).second &&
          viability(grammar, start + word) != Viability::kImpossible) {
        found.push_back(word);
      }
    }
  }
  return found;
}

void explain(const Grammar &grammar, const std::string &text) {
  constexpr size_t kMostFollowers = 20;
  const Words words = grammar.getWords(text);
  const size_t fitting = fitting_words(grammar, words);
  const std::string start = joined(words, fitting);
  std::cout << "  words:" << (words.empty() ? " none" : "");
  for (const std::string &word : words) {
    std::cout << " [" << word << ']';
  }
  std::cout << "\n  fits as far as: " << (fitting == 0 ? "nothing" : start) << '\n';
  if (fitting < words.size()) {
    std::cout << "  then comes: " << words[fitting] << '\n';
  }
  const Words next = followers(grammar, start, kMostFollowers + 1);
  std::cout << "  could follow there:";
  for (size_t i = 0; i < std::min(next.size(), kMostFollowers); ++i) {
    std::cout << ' ' << next[i];
  }
  const Viability here = viability(grammar, start);
  const bool may_end = here == Viability::kComplete || here == Viability::kCompleteSoFar;
  std::cout << (next.size() > kMostFollowers ? " ..." : "")
            << (may_end ? (next.empty() ? " the end" : ", or the end") : "") << '\n';
}

bool report(const Grammar &grammar, const std::string &text, bool with_reasons) try {
  const std::string rule = grammar.getMatchingPublicRule(text);
  if (rule.empty()) {
    std::cout << "no match: " << text << '\n';
    if (with_reasons) {
      explain(grammar, text);
    }
    return false;
  }
  std::cout << "match: " << text << "\n  rule: " << rule << "\n  tags:";
  for (const std::string &tag : Grammar::getMatchingTags(grammar.matchesRule(grammar.getRule(rule), text))) {
    if (!tag.empty()) {
      std::cout << " {" << tag << '}';
    }
  }
  std::cout << '\n';
  if (with_reasons) {
    explain(grammar, text);
  }
  return true;
} catch (const quillbrook::jsgf::MatchGaveUp &error) {
  std::cout << "given up: " << text << "\n  " << error.what() << '\n';
  return false;
}

int run(std::vector<std::string> arguments) {
  const auto take = [&](const char *option) {  // in front of the grammar or right behind it
    const auto end = arguments.begin() + static_cast<std::ptrdiff_t>(std::min<size_t>(2, arguments.size()));
    const auto found = std::find(arguments.begin(), end, option);
    const bool is_there = found != end;
    if (is_there) {
      arguments.erase(found);
    }
    return is_there;
  };
  const bool wants_help = take("--help");
  const bool wants_words = take("--words");
  const bool wants_reasons = take("--explain");
  std::string folder = quillbrook::jsgf::kInstalledGrammars;
  if (arguments.size() > 2 && take("--folder")) {
    folder = arguments[0];
    arguments.erase(arguments.begin());
  }
  if (wants_help || arguments.empty() || (wants_words && arguments.size() > 1)) {
    (wants_help ? std::cout : std::cerr) << kUsage;
    return wants_help ? kAllMatched : kError;
  }
  std::ifstream in(arguments[0], std::ios::binary);
  if (!in) {
    std::cerr << arguments[0] << ": cannot be opened\n";
    return kError;
  }
  try {
    const size_t slash = arguments[0].rfind('/');
    const std::string own = slash == std::string::npos ? "." : arguments[0].substr(0, slash + 1);
    const Grammar grammar(in, {own, {folder}});
    if (wants_words) {
      for (const std::string &word : grammar.getAllWords()) {
        std::cout << word << '\n';
      }
      return kAllMatched;
    }
    bool all_matched = true;
    for (size_t i = 1; i < arguments.size(); ++i) {
      all_matched = report(grammar, arguments[i], wants_reasons) && all_matched;
    }
    std::string line;
    while (arguments.size() == 1 && std::getline(std::cin, line)) {
      if (!line.empty() && line.back() == '\r') {
        line.pop_back();
      }
      all_matched = report(grammar, line, wants_reasons) && all_matched;
    }
    return all_matched ? kAllMatched : kSomeDidNotMatch;
  } catch (const std::runtime_error &error) {
    std::cerr << located(arguments[0], error.what()) << '\n';
    return kError;
  }
}

}  // namespace

int main(int argc, char **argv) {
  try {
    return run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception &error) {
    std::cerr << "jsgf-match: " << error.what() << '\n';
    return kError;
  }
}
