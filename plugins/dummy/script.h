// A script of the dummy plugin: text in, a checked list of steps out. The words are told in README.md.
//
// Everything that can be wrong with a script is found here, before the first step runs, and is named with its line.
// Sizes are bounded because a script may come from a dialplan variable.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "quillbrook.h"

namespace quillbrook::dummy {

constexpr std::size_t kMaxScriptBytes = 262144;
constexpr std::size_t kMaxSteps = 10000;
constexpr std::size_t kMaxNesting = 16;
constexpr long kMaxMilliseconds = 24L * 3600 * 1000;
constexpr long kMaxCount = 1000000;
constexpr long kMaxBytes = 1L << 40;

enum class Word {
  kInterim,
  kFinal,
  kTick,
  kFinish,
  kEnd,
  kNoMatch,
  kRaw,
  kSleep,
  kBytes,
  kQuantum,
  kHangup,
  kApi,
  kJson,
  kExtra,
  kWaitFinalize,
  kUntilStop,
  kReturn,
  kRepeat,
  kDone,
  kQuiet,
  kDeaf,
  kLog,
  kShow,
  kRefuse,
};

struct Step {
  Word word = Word::kReturn;
  long number = 0;        // score, count, milliseconds or bytes, by word
  long interval = 0;      // milliseconds between ticks
  bool has_text = false;  // a text was given, be it an empty one
  std::string text;
  std::size_t partner = 0;  // index of the done of a repeat, and of the repeat of a done
};

struct Script {
  std::vector<Step> steps;
  std::string report;  // path of the file that show and log append to; empty: none
  std::string error;   // empty, or the mistake: "line N: ..."
};

// What separates steps: a line of configuration has no line ends, so there a semicolon does it too.
enum class Separator { kLineEnd, kLineEndOrSemicolon };

// Reads steps. With an error set the steps are not to be run.
Script parse(std::string_view text, Separator separator);

// The script of one recognition: config_pointer, which a dialplan loads for its call, before configuration. A text
// "script=PATH" stands for the steps in that file. No text at all gives an empty script.
Script load(const quillbrook_context &context);

}  // namespace quillbrook::dummy
