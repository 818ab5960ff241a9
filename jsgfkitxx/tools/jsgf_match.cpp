// jsgf-match: shows what a grammar makes of texts, to try it before callers do.

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "jsgfkitxx.h"

namespace {

constexpr int kAllMatched = 0;
constexpr int kSomeDidNotMatch = 1;
constexpr int kError = 2;

constexpr const char *kUsage =
    "usage: jsgf-match GRAMMAR [TEXT...]\n"
    "       jsgf-match --words GRAMMAR\n"
    "\n"
    "Matches each TEXT, or each line of standard input, against the public rules of a JSGF grammar file and prints\n"
    "the text, the rule and the tags. With --words prints the words that a recogniser is told to listen for.\n"
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

bool report(const Grammar &grammar, const std::string &text) try {
  const std::string rule = grammar.getMatchingPublicRule(text);
  if (rule.empty()) {
    std::cout << "no match: " << text << '\n';
    return false;
  }
  std::cout << "match: " << text << "\n  rule: " << rule << "\n  tags:";
  for (const std::string &tag : Grammar::getMatchingTags(grammar.matchesRule(grammar.getRule(rule), text))) {
    if (!tag.empty()) {
      std::cout << " {" << tag << '}';
    }
  }
  std::cout << '\n';
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
    const Grammar grammar(in);
    if (wants_words) {
      for (const std::string &word : grammar.getAllWords()) {
        std::cout << word << '\n';
      }
      return kAllMatched;
    }
    bool all_matched = true;
    for (size_t i = 1; i < arguments.size(); ++i) {
      all_matched = report(grammar, arguments[i]) && all_matched;
    }
    std::string line;
    while (arguments.size() == 1 && std::getline(std::cin, line)) {
      if (!line.empty() && line.back() == '\r') {
        line.pop_back();
      }
      all_matched = report(grammar, line) && all_matched;
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
