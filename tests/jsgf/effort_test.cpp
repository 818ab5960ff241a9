// What a match may take: all of its memory is counted, and what takes too much ends as an error of its own kind.

#include "match.h"
#include "program.h"
#include "viability.h"

#include "../../bench/jsgf/heap_count.h"

#include <chrono>
#include <memory>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace {

using quillbrook::jsgf::LastWord;
using quillbrook::jsgf::Match;
using quillbrook::jsgf::MatchGaveUp;
using quillbrook::jsgf::MatchLimits;
using quillbrook::jsgf::Program;
using quillbrook::jsgf::RuleSharing;

std::shared_ptr<const Program> load(const std::string &rules) {
  std::istringstream in("#JSGF V1.0;\ngrammar g;\n" + rules);
  return Program::load(in, RuleSharing::kEverywhere);
}

std::string repeated(const std::string &text, size_t count) {
  std::string all;
  for (size_t i = 0; i < count; ++i) {
    all += text;
  }
  return all;
}

// Rules of `depth` levels, each of which calls the next one as `expansion` tells, with % for its name.
std::string levels(size_t depth, const std::string &expansion, const std::string &last) {
  std::string rules;
  for (size_t i = 0; i < depth; ++i) {
    rules += (i == 0 ? "public <r" : "<r") + std::to_string(i) + "> = ";
    for (const char c : expansion) {
      rules += c == '%' ? "<r" + std::to_string(i + 1) + ">" : std::string(1, c);
    }
    rules += ";";
  }
  return rules + "<r" + std::to_string(depth) + "> = " + last + ";";
}

enum class Question { kDerivation, kViability };

// "" when the question was answered, for the first rule, else why it was given up.
std::string outcome(const Program &program, const std::string &text, const MatchLimits &limits,
                    Question question = Question::kDerivation) {
  try {
    if (question == Question::kViability) {
      viability_of(program, text, LastWord::kMayGrow, limits);
    } else {
      Match(program, text, limits).derive(0);
    }
    return "";
  } catch (const MatchGaveUp &error) {
    return error.what();
  }
}

// Each row makes other parts of a match the large ones. A match that may have a byte less than its heap takes at most
// gives up, and one that may have all of them doesn't.
TEST(Effort, AllMemoryOfAMatchIsCounted) {
  const struct {
    std::string rules, text;
  } rows[] = {
      {"public <r> = a*;", repeated("a ", 100'000)},
      {"public <r> = (<l>)* b; <l> = a [<l>] {t};", repeated("a ", 10'000) + "b"},
      {"public <r> = <x> <r> {T} | b; <x> = a | a a;", repeated("a ", 10'000) + "b"},
      {"public <r> = a <r> {t} | b;", repeated("a ", 10'000) + "b"},
      {"public <r> = <l> <l>; <l> = (a a a)* (a a)* | b;", repeated("a ", 3'000)},
      {"public <r> = (" + repeated("<l> [b] | ", 200) + "a)*; <l> = a | a a;", repeated("a ", 100)},
      {levels(40, "% %", "[a]"), repeated("a ", 300)},
      {levels(20'000, "% {t}", "a"), "a"},
      {levels(2'000, "% | (% {t})* [a]", "a+"), repeated("a ", 10)},
      {"public <r> = (<x> {" + repeated("t} {", 2'000) + "t})*; <x> = a;", repeated("a ", 100)},
      {"public <r> = " + repeated("(", 10'000) + "<NULL> {n} | a" + repeated(")*", 10'000) + ";", "a a"},
  };
  for (const auto &row : rows) {
    const auto program = load(row.rules);
    program->prefix_index();
    for (const Question question : {Question::kDerivation, Question::kViability}) {
      SCOPED_TRACE(row.rules.substr(0, 80) + (question == Question::kViability ? ", viability" : ""));
      heap_bytes_at_most = heap_bytes;
      const size_t before = heap_bytes;
      MatchLimits limits;
      EXPECT_EQ(outcome(*program, row.text, limits, question), "");
      const size_t taken = heap_bytes_at_most - before;
      limits.bytes = taken - 1;
      EXPECT_NE(outcome(*program, row.text, limits, question), "") << taken;
      limits.bytes = taken;
      EXPECT_EQ(outcome(*program, row.text, limits, question), "") << taken;
    }
  }
}

int looks;  // at the clock, one for so many rounds of work

// Calls whose parts fit together in as many ways as the square or the cube of the words. With the square, four times
// the words take 16 times the work, with the cube 64.
TEST(Effort, WorkGrowsWithTheSquareOfTheText) {
  const struct {
    std::string rules, behind;
    size_t count;
  } rows[] = {
      {"public <r> = <l> <l>; <l> = a [<l>] {T};", "", 1000},
      {"public <r> = (<l>)* b; <l> = a [<l>] {T};", "b", 1000},
      {"public <r> = (" + repeated("<l> {T} | ", 200) + "a)*; <l> = a [<l>] {T};", "", 50},
      {levels(40, "% %", "[a]"), "", 100},
      {levels(30, "[%] [%]", "a {A}"), "", 100},
  };
  MatchLimits limits;
  limits.now = [] { return std::chrono::steady_clock::time_point(std::chrono::milliseconds(++looks)); };
  for (const auto &row : rows) {
    const auto program = load(row.rules);
    for (const Question question : {Question::kDerivation, Question::kViability}) {
      const auto work = [&](size_t count) {
        looks = 0;
        EXPECT_EQ(outcome(*program, repeated("a ", count) + row.behind, limits, question), "");
        return looks;
      };
      const int once = work(row.count);
      EXPECT_LE(work(4 * row.count), 20 * (1 + once)) << row.rules.substr(0, 80);
    }
  }
}

TEST(Effort, TimeRunsOut) {
  const auto program = load(levels(40, "% %", "[a] [a]"));
  const std::string text = repeated("a ", 600);
  MatchLimits limits;
  looks = 0;
  limits.now = [] { return std::chrono::steady_clock::time_point(std::chrono::seconds(3 * ++looks)); };
  EXPECT_EQ(outcome(*program, text, limits), "the match takes longer than 2000 ms");
  EXPECT_EQ(looks, 2);
  limits.now = [] { return std::chrono::steady_clock::time_point(std::chrono::milliseconds(++looks)); };
  EXPECT_EQ(outcome(*program, text, limits), "");
  EXPECT_GT(looks, 2);
}

}  // namespace
