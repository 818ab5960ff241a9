// Each `new`, each allocation of the host's, each system call and each thread of a life of the module fails, once alone
// and once with all behind it. What must hold then: nothing crashes, hangs or is left over, no exception gets out, no
// caller waits for ever, and where anything is not as usual there is a line in the log.
//
// The short form takes one place in so many; QUILLBROOK_THOROUGH in the environment takes all.
#include <gtest/gtest.h>

#include <dirent.h>

#include <csignal>
#include <new>
#include <thread>

#include "scenario.h"
#include "stand_in.h"

using stand_in::Fault;

// Leaks are looked for where the address sanitizer keeps count.
extern "C" __attribute__((weak)) size_t __sanitizer_get_current_allocated_bytes();
extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();

void *operator new(size_t size) {
  void *memory = stand_in::fails_inside(Fault::kNew) ? nullptr : malloc(size ? size : 1);
  return memory ? memory : throw std::bad_alloc();
}
void *operator new(size_t size, const std::nothrow_t &) noexcept {
  return stand_in::fails_inside(Fault::kNew) ? nullptr : malloc(size ? size : 1);
}
void operator delete(void *memory) noexcept {
  free(memory);
}
void operator delete(void *memory, size_t) noexcept {
  free(memory);
}

namespace {

constexpr int kDensity = 6;  // of the short form: this many places in a row, and ever fewer behind them
constexpr int kFarAway = 1 << 30;
constexpr unsigned kHangSeconds = 20;  // a run takes milliseconds

// What is under way, for the one who finds the program killed.
char under_way[100] = "no failure";
void say_what_hangs(int) {
  (void)!write(STDERR_FILENO, under_way, strlen(under_way));
  abort();
}

int entries_of(const char *folder) {
  DIR *directory = opendir(folder);
  int count = 0;
  while (readdir(directory)) ++count;
  closedir(directory);
  return count;
}

std::set<std::string> complaints() {
  std::set<std::string> texts;
  for (const stand_in::Line &line : stand_in::log_lines()) {
    if (line.level == __LOG_WARNING || line.level == __LOG_ERROR) texts.insert(line.text);
  }
  return texts;
}

struct Life {
  Outcome outcome;
  std::set<std::string> complaints;
  int failures = 0;
  int files_left = 0;

  bool is_like(const Life &usual) const { return outcome == usual.outcome && files_left == usual.files_left; }
  bool tells_more_than(const Life &usual) const {
    return !std::includes(usual.complaints.begin(), usual.complaints.end(), complaints.begin(), complaints.end());
  }
  std::string difference(const Life &usual) const {
    const auto [here, there] =
        std::mismatch(outcome.begin(), outcome.end(), usual.outcome.begin(), usual.outcome.end());
    if (there == usual.outcome.end()) return std::to_string(files_left) + " files left";
    return "'" + (here == outcome.end() ? "the end" : *here) + "' instead of '" + *there + "'";
  }
};

class SweepTest : public testing::TestWithParam<std::tuple<Fault, const char *>> {
protected:
  void SetUp() override {
    signal(SIGALRM, say_what_hangs);
    offer_plugins();
  }
  void TearDown() override { alarm(0); }

  Life live(bool twin) {
    alarm(kHangSeconds);
    stand_in::reset_log();
    Life life;
    life.outcome = run_scenario(twin);
    life.failures = stand_in::stop_failing();
    life.complaints = complaints();
    for (const std::string &path : stand_in::files()) {
      life.files_left += path != kPluginLog;
      unlink(stand_in::real_path(path).c_str());
    }
    return life;
  }

  static void expect_nothing_left(int descriptors) {
    EXPECT_EQ(stand_in::module_references(), 0);
    EXPECT_EQ(stand_in::channel_references(), 0);
    EXPECT_EQ(stand_in::open_plugins(), 0);
    EXPECT_EQ(stand_in::format_caps(), 0);
    EXPECT_TRUE(stand_in::engine_names().empty());
    EXPECT_TRUE(stand_in::command_names().empty());
    EXPECT_TRUE(stand_in::http_uris().empty());
    EXPECT_EQ(stand_in::noted("ast_dsp_new"), stand_in::noted("ast_dsp_free") + dsp_failed);
    EXPECT_EQ(entries_of("/proc/self/fd"), descriptors);
  }
  static inline int dsp_failed = 0;
  static Fault fault() { return std::get<0>(GetParam()); }

  // Whether the failure of the `nth` use happened at all.
  bool fail_at(int nth, int times, int error, bool twin, const Life &usual) {
    snprintf(under_way, sizeof(under_way), "%s %d, %d times, %s, twin %d\n", std::get<1>(GetParam()), nth, times,
             strerror(error), twin);
    SCOPED_TRACE(under_way);
    const int descriptors = entries_of("/proc/self/fd");
    const size_t before = __sanitizer_get_current_allocated_bytes ? __sanitizer_get_current_allocated_bytes() : 0;
    bool failed;
    {
      stand_in::fail(fault(), nth, times, error);
      const Life faulty = live(twin);
      failed = faulty.failures > 0;
      for (const std::string &line : faulty.outcome) EXPECT_NE(line.rfind("broken:", 0), 0U) << line;
      // The host's allocators tell of a failure themselves. Which twin comes first is chance.
      const bool told = fault() == Fault::kAllocation || twin || faulty.tells_more_than(usual);
      EXPECT_TRUE(told || faulty.is_like(usual)) << "not as usual, and not a word: " << faulty.difference(usual);
      dsp_failed = fault() == Fault::kDetector ? faulty.failures : 0;
      expect_nothing_left(descriptors);
      stand_in::reset_log();
    }
    if (__sanitizer_get_current_allocated_bytes && __sanitizer_get_current_allocated_bytes() > before + 100) {
      EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
    }
    return failed;
  }
};

TEST_P(SweepTest, NothingBreaks) {
  const bool whole = getenv("QUILLBROOK_THOROUGH");
  const std::vector<int> reasons =
      fault() > Fault::kAllocation ? std::vector<int>{ENOSPC, EIO, EACCES, EMFILE} : std::vector<int>{ENOMEM};
  int tried = 0;
  for (const bool twin : {false, true}) {
    live(twin);
    const Life usual = live(twin);
    EXPECT_TRUE(std::any_of(usual.outcome.begin(), usual.outcome.end(),
                            [](const std::string &line) { return line.find(kReloaded) != std::string::npos; }));
    bool failed = true;
    for (int nth = 1; failed; nth += whole ? 1 : 1 + nth / kDensity) {
      failed = false;
      for (const int times : {1, kFarAway}) {
        for (const int reason : reasons) {
          // The short form takes them in turn.
          if (!whole && (tried % 2 != (times == 1) || reason != reasons[tried / 2 % reasons.size()])) continue;
          failed |= fail_at(nth, times, reason, twin, usual);
        }
      }
      ++tried;
      if (HasFailure()) return;
    }
  }
  std::cout << tried << " places\n";
}

#define FAULT(name) std::make_tuple(Fault::k##name, #name)
INSTANTIATE_TEST_SUITE_P(Sweep, SweepTest,
                         testing::Values(FAULT(New), FAULT(Allocation), FAULT(Open), FAULT(Write), FAULT(Descriptor),
                                         FAULT(Stat), FAULT(Read), FAULT(Flush), FAULT(Unlink), FAULT(Frame),
                                         FAULT(TemporaryFile), FAULT(WriteStream), FAULT(ReadStream), FAULT(Rename),
                                         FAULT(Detector), FAULT(Thread), FAULT(FormatCap), FAULT(EngineRegister),
                                         FAULT(CliRegister), FAULT(HttpLink), FAULT(ClosePlugin)),
                         [](const auto &test) { return std::string(std::get<1>(test.param)); });

}  // namespace
