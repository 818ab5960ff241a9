// What no input may do: take a stack, take more than a fair time, stop the process, or meet another thread's match.

#include <jsgfkitxx.h>

#include <pthread.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using quillbrook::jsgf::LastWord;
using quillbrook::jsgf::Viability;

const std::string kHead = "#JSGF V1.0;\ngrammar g;\n";

std::unique_ptr<Grammar> load(const std::string &source) {
  std::istringstream in(source);
  return std::make_unique<Grammar>(in);
}

std::string repeated(const std::string &text, size_t count) {
  std::string all;
  all.reserve(text.size() * count);
  for (size_t i = 0; i < count; ++i) {
    all += text;
  }
  return all;
}

TEST(Limits, DepthAndLengthTakeNoStack) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, size_t{256} * 1024), 0);
  ASSERT_EQ(pthread_setattr_default_np(&attributes), 0);
  constexpr size_t kDeep = 30'000;  // a match gives up after 2 s, on a busy machine too
  std::thread([] {
    const auto groups = load(kHead + "public <r> = " + repeated("(", kDeep) + "x {T}" + repeated(")", kDeep) + ";");
    EXPECT_EQ(groups->getMatchingPublicRule("x"), "r");
    const auto optional = load(kHead + "public <r> = " + repeated("[a ", kDeep) + "x" + repeated("]", kDeep) + ";");
    EXPECT_EQ(optional->getMatchingPublicRule("a a a"), "r");
    const auto repeats = load(kHead + "public <r> = " + repeated("(", kDeep) + "x" + repeated(")*", kDeep) + " y;");
    EXPECT_EQ(repeats->getMatchingPublicRule("x x y"), "r");
    std::string chain = kHead + "public <r0> = <r1> {T};";
    std::string cycle = kHead + "public <r0> = x <r1>;";
    for (size_t i = 1; i < kDeep; ++i) {
      const std::string rule = "<r" + std::to_string(i) + "> = ";
      const std::string next = "<r" + std::to_string(i + 1) + ">";
      chain += rule + next + ";";
      cycle += rule + "x " + (i + 1 == kDeep ? "<r0> {T} | y {Y}" : next) + ";";
    }
    EXPECT_EQ(load(chain + "<r" + std::to_string(kDeep) + "> = x;")->getMatchingPublicRule("x"), "r0");
    const auto recursive = load(cycle);
    const std::string words = repeated("x ", 3 * kDeep - 1) + "y";
    const auto tags = Grammar::getMatchingTags(recursive->matchesRule(recursive->getRule("r0"), words));
    EXPECT_EQ(std::count(tags.begin(), tags.end(), "T"), 2);
    EXPECT_EQ(groups->getViability("x", LastWord::kMayGrow), Viability::kComplete);
    EXPECT_EQ(optional->getViability("a a a", LastWord::kMayGrow), Viability::kCompleteSoFar);
    EXPECT_EQ(repeats->getViability("x x", LastWord::kMayGrow), Viability::kBeginning);
    EXPECT_EQ(recursive->getViability(words, LastWord::kMayGrow), Viability::kComplete);
    EXPECT_THROW(load(kHead + "public <r> = " + repeated("(", kDeep)), std::runtime_error);
  }).join();
}

double cpu_seconds(const std::function<void()> &work) {
  const auto now = [] {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
  };
  const double start = now();
  work();
  return now() - start;
}

// Eight times the input takes some eight to sixteen times the processor time; what grows with the square takes 64. The
// bound stands between them. Other work on the machine only ever adds, so each side counts with the least of its turns,
// and they take turns until it fits.
void expect_time_grows_with_the_input(const std::function<void()> &once, const std::function<void()> &eight_times) {
  constexpr double kBound = 32;
  double least = 1e9;
  double least_of_eight = 1e9;
  for (int turn = 0; turn < 30 && (turn < 2 || least_of_eight > kBound * least); ++turn) {
    least = std::min(least, cpu_seconds(once));
    least_of_eight = std::min(least_of_eight, cpu_seconds(eight_times));
  }
  EXPECT_LT(least_of_eight, kBound * least);
}

TEST(Limits, TimeOfAMatchGrowsWithTheText) {
  const struct {
    std::string rules;
    std::string before, behind;
    bool is_match;
  } rows[] = {
      {"public <r> = (a*)* b;", "", "b", true},
      {"public <r> = a (a | a a | [a] a)* a c; <b> = b;", "b ", "a", false},
      {"public <r> = a <r> {T} | a a <r> | b;", "", "b", true},
      {"public <r> = b ((a | a a)* [a])* b;", "", "b", false},
  };
  for (const auto &row : rows) {
    const auto grammar = load(kHead + row.rules);
    const auto match = [&](size_t count) {
      return [&, text = row.before + repeated("a ", count) + row.behind] {
        EXPECT_EQ(grammar->getMatchingPublicRule(text) == "r", row.is_match) << row.rules;
        grammar->getViability(text, LastWord::kMayGrow);
      };
    };
    expect_time_grows_with_the_input(match(1500), match(8 * 1500));
  }
}

// The tags as texts, which a caller gets, would take a gigabyte.
TEST(Limits, TagsOfAMatchCount) {
  const auto grammar = load(kHead + "public <r> = (a {" + std::string(100'000, 't') + "})*;");
  const std::string text = repeated("a ", 5'000);
  EXPECT_EQ(grammar->getMatchingPublicRule(text), "r");
  EXPECT_THROW(grammar->matchesRule(grammar->getRule("r"), text), quillbrook::jsgf::MatchGaveUp);
}

TEST(Limits, TimeOfALoadGrowsWithTheSource) {
  // Written out this is 2 to the power of the number of rules.
  const auto loading = [](size_t rules) {
    std::string text = kHead + "public <r0> = <r1> <r1>;";
    for (size_t i = 1; i < rules; ++i) {
      const std::string next = "<r" + std::to_string(i + 1) + ">";
      text += "<r" + std::to_string(i) + "> = a b | " + next + " [" + next + "];";
    }
    text += "<r" + std::to_string(rules) + "> = x;";
    return [text] { EXPECT_EQ(load(text)->getMatchingPublicRule("x x x"), "r0"); };
  };
  expect_time_grows_with_the_input(loading(500), loading(8 * 500));
}

TEST(Limits, ThreadsMatchOneGrammar) {
  const auto grammar = load(kHead + "public <r> = (<d> {T})+; <d> = one {1} | two {2} [<d>];");
  const auto work = [&] {
    for (int i = 0; i < 300; ++i) {
      const std::string text = i % 2 == 0 ? "one two two one" : "two one one";
      const std::string rule = grammar->getMatchingPublicRule(text);
      const auto tags = Grammar::getMatchingTags(grammar->matchesRule(grammar->getRule(rule), text));
      EXPECT_EQ(std::count(tags.begin(), tags.end(), "2"), i % 2 == 0 ? 2 : 1);
      EXPECT_EQ(grammar->getViability(text, LastWord::kIsWhole), Viability::kCompleteSoFar);
      EXPECT_EQ(grammar->getAllWords().size(), 2U);
      EXPECT_EQ(grammar->getName(), "g");
    }
  };
  std::thread other(work);
  work();
  other.join();
}

}  // namespace
