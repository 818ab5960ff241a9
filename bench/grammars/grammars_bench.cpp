// What it costs that many sessions load the same large grammar: a list of 2 MB. Once as it is, and once with a file
// that is changed in front of each load, so that each compiles it for itself.
//
// Usage: grammars_bench [SESSIONS]
#include <gtest/gtest.h>

#include <malloc.h>
#include <sys/stat.h>

#include <chrono>

#include "stand_in.h"

#include "record/grammar_manager.h"
#include "record/shared_grammars.h"

namespace {

constexpr size_t kListBytes = 2'000'000;

std::string list() {
  std::string text = "#JSGF V1.0;\ngrammar list;\npublic <name> = ";
  for (int number = 0; text.size() < kListBytes; ++number) {
    text += "given" + std::to_string(number) + " family" + std::to_string(number % 5000) + " {" +
            std::to_string(number) + "} | ";
  }
  return text + "nobody {0};\n";
}

double megabytes() {
  return static_cast<double>(mallinfo2().uordblks + mallinfo2().hblkhd) / 1e6;
}

void measure(const char *what, const std::string &path, int sessions, bool changed) {
  using Clock = std::chrono::steady_clock;
  quillbrook_forget_shared_grammars();
  const double before = megabytes();
  std::vector<GrammarManager> sets(static_cast<size_t>(sessions));
  double first = 0;
  const auto begun = Clock::now();
  for (GrammarManager &set : sets) {
    if (changed) chmod(path.c_str(), 0600);
    set.load("list", path);
    const std::chrono::duration<double, std::milli> since = Clock::now() - begun;
    first = first > 0 ? first : since.count();
  }
  const std::chrono::duration<double, std::milli> all = Clock::now() - begun;
  printf("%-10s %4d sessions: first %8.1f ms, all %8.1f ms, %8.1f MB\n", what, sessions, first, all.count(),
         megabytes() - before);
}

}  // namespace

int main(int argc, char **argv) {
  stand_in::reset();
  const int sessions = argc > 1 ? atoi(argv[1]) : 100;
  const std::string path = stand_in::real_path("/etc/asterisk/list.jsgf");
  stand_in::write_file(path, list());
  using namespace std::chrono;
  // A day later the file is no longer one that has just been changed.
  stand_in::set_clock_ms(duration_cast<milliseconds>((system_clock::now() + hours(24)).time_since_epoch()).count());
  measure("apart", path, sessions, true);
  measure("shared", path, sessions, false);
  stand_in::reset();
  return 0;
}
