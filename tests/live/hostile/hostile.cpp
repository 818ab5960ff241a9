// A plugin that does what no plugin should. `configuration` is its script: words separated by blanks, done one after
// the other in the function to which they belong. Behind the last word of the loop it ticks until it is stopped.
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "quillbrook.h"

namespace {

void say(quillbrook_context &context, const char *text, int score) {
  (void)context.callback(&context, text, score);
}

void sleep_ms(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// Of its own, in case the script leaves the record's marks alone.
bool is_stopped(const quillbrook_context &context) {
  return __atomic_load_n(&context.session, __ATOMIC_ACQUIRE) != 0;
}

// Threads that report for a record until it is stopped, and outlive its loop.
std::mutex reporters_lock;
std::multimap<quillbrook_context *, std::thread> reporters;

void add_reporter(quillbrook_context &context) {
  const std::lock_guard<std::mutex> held(reporters_lock);
  reporters.emplace(&context, [&context] {
    for (int turn = 0; !is_stopped(context); ++turn) {
      const char *const texts[] = {"from a thread", nullptr, "", "of its own"};
      const int scores[] = {QUILLBROOK_SCORE_INTERIM, 70, QUILLBROOK_SCORE_FINISH, QUILLBROOK_SCORE_END, -77};
      say(context, texts[turn % 4], scores[turn % 5]);
      sleep_ms(1);
    }
  });
}

void end_reporters(quillbrook_context &context) {
  std::vector<std::thread> over;
  {
    const std::lock_guard<std::mutex> held(reporters_lock);
    const auto [first, last] = reporters.equal_range(&context);
    for (auto each = first; each != last; ++each) over.push_back(std::move(each->second));
    reporters.erase(first, last);
  }
  for (std::thread &reporter : over) reporter.join();
}

void report_nonsense(quillbrook_context &context) {
  for (const int score : {-3, -199, -201, INT_MIN, INT_MAX, 101}) {
    for (const char *text : {static_cast<const char *>(nullptr), "", "words"}) say(context, text, score);
  }
}

void report_much(quillbrook_context &context) {
  const std::string text(2000000, 'x');
  context.extra_pointer = context.api_pointer = text.c_str();
  say(context, text.c_str(), QUILLBROOK_SCORE_INTERIM);
  for (int piece = 0; piece < 3; ++piece) say(context, text.c_str(), 50);
  context.extra_pointer = context.api_pointer = nullptr;
}

// More results than a session takes.
void report_results(quillbrook_context &context) {
  for (int result = 0; result < 1100; ++result) {
    say(context, "one of many", 70);
    say(context, "", QUILLBROOK_SCORE_FINISH);
  }
}

void report_bytes(quillbrook_context &context) {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
  context.extra_pointer = context.api_pointer = bytes.c_str();
  say(context, bytes.c_str(), 60);
  context.extra_pointer = context.api_pointer = nullptr;
}

void scribble(quillbrook_context &context) {
  std::memset(context.extra, 'E', sizeof(context.extra));
  std::memset(context.errors, 'E', sizeof(context.errors));
  for (int *field : {&context.hangup, &context.quantum, &context.completetimeout, &context.incompletetimeout}) {
    __atomic_store_n(field, INT_MIN, __ATOMIC_RELEASE);
  }
  __atomic_store_n(&context.finalize, -5, __ATOMIC_RELEASE);
}

[[noreturn]] void throw_exception(quillbrook_context &) {
  throw std::runtime_error("thrown");
}
[[noreturn]] void throw_number(quillbrook_context &) {
  throw 7;
}
[[noreturn]] void stand_still(quillbrook_context &) {
  for (;;) pause();
}

enum class Where { kInit, kLoop, kStop };

struct Word {
  std::string_view word;
  Where where;
  void (*run)(quillbrook_context &context);
};

const Word kWords[] = {
    {"init-throws", Where::kInit, throw_exception},
    {"init-speaks", Where::kInit, [](quillbrook_context &context) { say(context, "at once", 90); }},
    {"words", Where::kLoop, [](quillbrook_context &context) { say(context, "words", QUILLBROOK_SCORE_INTERIM); }},
    {"final", Where::kLoop, [](quillbrook_context &context) { say(context, "final", 80); }},
    {"lost", Where::kLoop, [](quillbrook_context &context) { say(context, "not kept", QUILLBROOK_SCORE_FINISH); }},
    {"unsure", Where::kLoop, [](quillbrook_context &context) { say(context, "not kept", 0); }},
    {"end", Where::kLoop, [](quillbrook_context &context) { say(context, "", QUILLBROOK_SCORE_END); }},
    {"nonsense", Where::kLoop, report_nonsense},
    {"much", Where::kLoop, report_much},
    {"bytes", Where::kLoop, report_bytes},
    {"flood", Where::kLoop, report_results},
    {"scribble", Where::kLoop, scribble},
    {"unlink", Where::kLoop, [](quillbrook_context &context) { (void)unlink(context.filename); }},
    {"error", Where::kLoop, [](quillbrook_context &context) { (void)strcpy(context.extra, "ERROR: lost"); }},
    {"thread", Where::kLoop, add_reporter},
    {"throw", Where::kLoop, throw_exception},
    {"throw-number", Where::kLoop, throw_number},
    {"exit", Where::kLoop, [](quillbrook_context &) { pthread_exit(nullptr); }},
    {"silent", Where::kLoop,
     [](quillbrook_context &context) {
       while (!is_stopped(context)) sleep_ms(5);
     }},
    {"never", Where::kLoop, stand_still},
    {"stop-throws", Where::kStop, throw_number},
    {"stop-slow", Where::kStop, [](quillbrook_context &) { sleep_ms(200); }},
    {"stop-speaks", Where::kStop, [](quillbrook_context &context) { say(context, "at the end", 90); }},
};

// Whether the script has the word, which stands for no action.
bool asks_for(const quillbrook_context &context, std::string_view word) {
  std::istringstream script(context.configuration);
  for (std::string each; script >> each;) {
    if (each == word) return true;
  }
  return false;
}

void follow(quillbrook_context &context, Where where) {
  std::istringstream script(context.configuration);
  for (std::string each; script >> each;) {
    for (const Word &word : kWords) {
      if (word.where == where && word.word == each) word.run(context);
    }
  }
}

}  // namespace

#define HOSTILE_ENTRY extern "C" __attribute__((visibility("default")))

HOSTILE_ENTRY int quillbrook_init(quillbrook_context *context) {
  follow(*context, Where::kInit);
  return asks_for(*context, "refuse") ? -1 : 0;
}

HOSTILE_ENTRY void *quillbrook_loop(quillbrook_context *context) {
  follow(*context, Where::kLoop);
  while (!asks_for(*context, "return") && !is_stopped(*context)) {
    say(*context, nullptr, QUILLBROOK_SCORE_INTERIM);
    sleep_ms(20);
  }
  return nullptr;
}

HOSTILE_ENTRY void quillbrook_stop(quillbrook_context *context) {
  __atomic_store_n(&context->session, 1, __ATOMIC_RELEASE);
  end_reporters(*context);
  if (!asks_for(*context, "stop-mute")) {
    __atomic_store_n(&context->hangup, QUILLBROOK_HANGUP_STOPPED, __ATOMIC_RELEASE);
    __atomic_store_n(&context->finalize, 1, __ATOMIC_RELEASE);
  }
  follow(*context, Where::kStop);
}
