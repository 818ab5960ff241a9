// A plugin opened as the module opens it, and one recognition driven as the module drives it, for tests of plugins.
// A program of such tests links the library plugin_driver, which has its main, and is run as: PROGRAM PLUGIN.so [URL]
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "quillbrook.h"

struct Plugin {
  void *library = nullptr;
  quillbrook_function_init *init = nullptr;
  quillbrook_function_loop *loop = nullptr;
  quillbrook_function_stop *stop = nullptr;

  void open();
  // Expects that nothing of the library stays in the process.
  void close();
};

// The plugin under test.
Plugin &plugin();

// The URL that the program was given for it; else an empty one.
const std::string &plugin_url();

// A folder of this process, removed at its end.
const std::string &scratch_folder();

// 16-bit samples of 8 kHz, as bytes.
std::string tone(int milliseconds, double amplitude = 3000);

// What a plugin said in one call of the callback that was no tick.
struct Report {
  std::string text;
  int score;
  std::string json = {};
  bool operator==(const Report &other) const { return text == other.text && score == other.score; }
};
void PrintTo(const Report &report, std::ostream *out);

// What plugins complained of since the latest call.
std::vector<std::string> take_complaints();

class Recognition {
public:
  explicit Recognition(const std::string &format = "wav");
  // Stops it if need be.
  ~Recognition();
  Recognition(const Recognition &) = delete;
  Recognition &operator=(const Recognition &) = delete;

  // Appends to the stream file.
  void append(const std::string &bytes) const;
  void remove_file() const;
  // Runs init, and the loop on a thread of its own.
  void start();
  // Stops the plugin and joins the loop. May be called at any time, and again.
  void stop();
  void finalize(bool raised = true) { __atomic_store_n(&record.finalize, raised ? 1 : 0, __ATOMIC_RELEASE); }
  void expect_untouched_fields() const;

  // Waits for something that the plugin brings about. The limit is for a broken plugin: no test waits for it to pass.
  template <class Condition>
  bool wait(Condition condition) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, std::chrono::seconds(20), condition);
  }
  bool wait_reports(size_t count) {
    return wait([&] { return reports_.size() >= count; });
  }
  // Waits for such a report to be the last one.
  bool wait_last(const Report &report) {
    return wait([&] { return !reports_.empty() && reports_.back() == report; });
  }
  bool wait_calls(int more) {
    return wait([&, until = calls() + more] { return calls_ >= until; });
  }
  bool wait_return() {
    return wait([&] { return returned_; });
  }
  std::vector<Report> reports();
  // Calls of the callback, ticks included.
  int calls();
  // The calls that the module could count on since the start, a third of them: a busy machine takes its share.
  long due_calls() const { return (std::chrono::steady_clock::now() - begun_) / std::chrono::milliseconds(300); }

  quillbrook_context record = {};
  bool refusing = false;    // the module takes nothing
  bool continuous = false;  // the module goes on after a result

private:
  void run();
  int take(const char *text, int score);
  static int receive(quillbrook_context *context, const char *text, int score);

  quillbrook_context given_ = {};
  int silence_ = 0;
  char text_[8] = "call-1";
  std::string format_;
  std::string path_;
  std::chrono::steady_clock::time_point begun_;
  std::thread loop_;
  std::mutex lock_;  // guards what follows
  std::condition_variable changed_;
  std::vector<Report> reports_;
  int calls_ = 0;
  bool has_words_ = false;
  bool result_out_ = false;
  bool returned_ = false;
};
