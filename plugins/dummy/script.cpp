#include "script.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

namespace quillbrook::dummy {
namespace {

// What may follow a word.
enum class Form {
  kNothing,
  kText,          // TEXT, may be missing
  kTextRequired,  // TEXT
  kScoreText,     // SCORE [TEXT]
  kNumber,        // N
  kTicks,         // [COUNT [MS]]
};

struct WordRule {
  std::string_view name;
  Word word;
  Form form;
  long least;
  long most;
};

constexpr std::array kRules{
    WordRule{"interim", Word::kInterim, Form::kTextRequired, 0, 0},
    WordRule{"final", Word::kFinal, Form::kScoreText, 1, INT_MAX},
    WordRule{"tick", Word::kTick, Form::kTicks, 1, kMaxCount},
    WordRule{"finish", Word::kFinish, Form::kNothing, 0, 0},
    WordRule{"end", Word::kEnd, Form::kNothing, 0, 0},
    WordRule{"nomatch", Word::kNoMatch, Form::kText, 0, 0},
    WordRule{"raw", Word::kRaw, Form::kScoreText, INT_MIN, INT_MAX},
    WordRule{"sleep", Word::kSleep, Form::kNumber, 0, kMaxMilliseconds},
    WordRule{"bytes", Word::kBytes, Form::kNumber, 0, kMaxBytes},
    WordRule{"quantum", Word::kQuantum, Form::kNumber, INT_MIN, INT_MAX},
    WordRule{"hangup", Word::kHangup, Form::kNumber, INT_MIN, INT_MAX},
    WordRule{"api", Word::kApi, Form::kText, 0, 0},
    WordRule{"json", Word::kJson, Form::kText, 0, 0},
    WordRule{"extra", Word::kExtra, Form::kText, 0, 0},
    WordRule{"wait-finalize", Word::kWaitFinalize, Form::kNumber, 0, kMaxMilliseconds},
    WordRule{"until-stop", Word::kUntilStop, Form::kNothing, 0, 0},
    WordRule{"return", Word::kReturn, Form::kNothing, 0, 0},
    WordRule{"repeat", Word::kRepeat, Form::kNumber, 0, kMaxCount},
    WordRule{"done", Word::kDone, Form::kNothing, 0, 0},
    WordRule{"quiet", Word::kQuiet, Form::kNothing, 0, 0},
    WordRule{"deaf", Word::kDeaf, Form::kNumber, 0, kMaxMilliseconds},
    WordRule{"log", Word::kLog, Form::kTextRequired, 0, 0},
    WordRule{"show", Word::kShow, Form::kText, 0, 0},
    WordRule{"refuse", Word::kRefuse, Form::kNothing, 0, 0},
};

constexpr std::string_view kBlanks = " \t\r";
constexpr std::string_view kScriptKey = "script=";
constexpr std::string_view kReportKey = "report=";

bool starts_with(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

std::string_view trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Takes the first word off text.
std::string_view take_word(std::string_view &text) {
  const std::string_view word = text.substr(0, text.find_first_of(kBlanks));
  text = trim(text.substr(word.size()));
  return word;
}

// "\n" a line feed, "\e" nothing (for empty texts and outer blanks), "\\" a backslash; others stand for themselves.
std::string unescape(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char next = text[i] == '\\' && i + 1 < text.size() ? text[i + 1] : '\0';
    if (next == 'n')
      plain += '\n';
    else if (next == '\\')
      plain += '\\';
    else if (next != 'e')
      plain += text[i];
    if (next == 'n' || next == 'e' || next == '\\') ++i;
  }
  return plain;
}

// Puts the lines of one text together to a script.
class Parser {
public:
  Script parse(std::string_view text, Separator separator) {
    if (text.size() > kMaxScriptBytes) return failed("longer than " + std::to_string(kMaxScriptBytes) + " bytes");
    const std::string_view ends = separator == Separator::kLineEnd ? "\n" : "\n;";
    while (!text.empty()) {
      ++line_;
      const std::size_t end = text.find_first_of(ends);
      add_line(trim(text.substr(0, end)));
      if (!script_.error.empty()) return std::move(script_);
      text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    }
    if (!open_repeats_.empty()) return failed("repeat without done");
    return std::move(script_);
  }

private:
  Script failed(const std::string &reason) {
    fail(reason);
    return std::move(script_);
  }

  void fail(const std::string &reason) { script_.error = "line " + std::to_string(line_) + ": " + reason; }

  void add_line(std::string_view line) {
    if (line.empty() || line.front() == '#') return;
    if (starts_with(line, kReportKey)) {
      script_.report = trim(line.substr(kReportKey.size()));
      return;
    }
    if (starts_with(line, kScriptKey)) return fail("script= has to be the first and only step");
    const std::string_view name = take_word(line);
    for (const WordRule &rule : kRules)
      if (rule.name == name) return add_step(rule, line);
    fail("no such step: " + std::string(name.substr(0, 40)));
  }

  void add_step(const WordRule &rule, std::string_view rest) {
    if (script_.steps.size() == kMaxSteps) return fail("more than " + std::to_string(kMaxSteps) + " steps");
    Step step;
    step.word = rule.word;
    if (!read_arguments(rule, rest, step)) return;
    if (step.word == Word::kHangup && step.number == QUILLBROOK_HANGUP_STOPPED)
      return fail("hangup 2 is left to the stop function");
    if (step.word == Word::kRefuse && !script_.steps.empty()) return fail("refuse has to be the first step");
    if (!pair_repeat(step)) return;
    script_.steps.push_back(std::move(step));
  }

  bool read_arguments(const WordRule &rule, std::string_view rest, Step &step) {
    switch (rule.form) {
      case Form::kNothing:
        break;
      case Form::kText:
      case Form::kTextRequired:
        return read_text(rule, rest, step);
      case Form::kScoreText:
        return read_number(rule, take_word(rest), rule.least, rule.most, step.number) && read_text(rule, rest, step);
      case Form::kNumber:
        if (!read_number(rule, take_word(rest), rule.least, rule.most, step.number)) return false;
        break;
      case Form::kTicks:
        step.number = 1;
        step.interval = 50;
        if (!rest.empty() && !read_number(rule, take_word(rest), rule.least, rule.most, step.number)) return false;
        if (!rest.empty() && !read_number(rule, take_word(rest), 0, kMaxMilliseconds, step.interval)) return false;
        break;
    }
    if (rest.empty()) return true;
    fail(std::string(rule.name) + ": unexpected text: " + std::string(rest.substr(0, 40)));
    return false;
  }

  bool read_text(const WordRule &rule, std::string_view rest, Step &step) {
    if (rest.empty() && (rule.form == Form::kTextRequired || rule.word == Word::kFinal)) {
      fail(std::string(rule.name) + ": text missing");
      return false;
    }
    step.has_text = !rest.empty();
    step.text = unescape(rest);
    return true;
  }

  bool read_number(const WordRule &rule, std::string_view digits, long least, long most, long &number) {
    const auto [end, code] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (code == std::errc() && end == digits.data() + digits.size() && number >= least && number <= most) return true;
    fail(std::string(rule.name) + ": a number from " + std::to_string(least) + " to " + std::to_string(most) +
         " is wanted");
    return false;
  }

  bool pair_repeat(Step &step) {
    const std::size_t index = script_.steps.size();
    if (step.word == Word::kRepeat) {
      if (open_repeats_.size() == kMaxNesting) {
        fail("repeat nested deeper than " + std::to_string(kMaxNesting));
        return false;
      }
      open_repeats_.push_back(index);
    } else if (step.word == Word::kDone) {
      if (open_repeats_.empty()) {
        fail("done without repeat");
        return false;
      }
      step.partner = open_repeats_.back();
      script_.steps[step.partner].partner = index;
      open_repeats_.pop_back();
    }
    return true;
  }

  Script script_;
  int line_ = 0;
  std::vector<std::size_t> open_repeats_;
};

struct CloseFile {
  void operator()(std::FILE *file) const { (void)std::fclose(file); }
};

// The file's bytes, at most one more than a script may have; nothing when it cannot be read.
std::optional<std::string> read_file(const std::string &path) {
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "re"));
  if (!file) return std::nullopt;
  std::string text(kMaxScriptBytes + 1, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file.get()));
  if (std::ferror(file.get()) != 0) return std::nullopt;
  return text;
}

}  // namespace

Script parse(std::string_view text, Separator separator) {
  return Parser().parse(text, separator);
}

Script load(const quillbrook_context &context) {
  const char *own = static_cast<const char *>(context.config_pointer);
  const bool has_own = own != nullptr && *own != '\0';
  const std::string_view text = trim(has_own ? own : context.configuration);
  if (!starts_with(text, kScriptKey))
    return parse(text, has_own ? Separator::kLineEnd : Separator::kLineEndOrSemicolon);

  const std::string path(trim(text.substr(kScriptKey.size())));
  if (const std::optional<std::string> steps = read_file(path)) return parse(*steps, Separator::kLineEnd);
  Script script;
  script.error = "script " + path + ": " + std::strerror(errno);
  return script;
}

}  // namespace quillbrook::dummy
