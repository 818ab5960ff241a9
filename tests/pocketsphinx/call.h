/*
 * One call as the plugin sees it: the plugin loaded from its file, a record, a stream file that grows, and what came
 * back through the callback.
 */
#ifndef TESTS_POCKETSPHINX_CALL_H
#define TESTS_POCKETSPHINX_CALL_H

#include <pthread.h>
#include <quillbrook.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct Message {
  std::string text;
  int score;
  std::chrono::steady_clock::time_point at;
};

/* The plugin's three functions, from a shared object that is unloaded again. */
class Plugin {
public:
  explicit Plugin(const std::string &path);
  ~Plugin();
  Plugin(const Plugin &) = delete;
  Plugin &operator=(const Plugin &) = delete;

  quillbrook_function_init *init;
  quillbrook_function_loop *loop;
  quillbrook_function_stop *stop;

private:
  void *library_;
};

using Samples = std::vector<int16_t>;

/* Of a wav file with 16 bits at 8 kHz and a header of 44 bytes. */
Samples read_wav(const std::string &path);
/* Faint noise, as a telephone line has it. */
Samples quiet(int milliseconds);
/* All of them, with so much quiet ahead of each and behind the last. */
Samples in_a_row(const std::vector<Samples> &parts, int pause_ms);

class Call {
public:
  using Answer = std::function<int(const Message &)>; /* the callback's result */

  explicit Call(const Plugin &plugin, const char *format = "wav");
  ~Call();
  Call(const Call &) = delete;
  Call &operator=(const Call &) = delete;

  quillbrook_context &record() { return *record_; }
  void set(char (&field)[QUILLBROOK_TEXT_SIZE], const std::string &text);
  void answer_with(Answer answer) { answer_ = std::move(answer); }

  void start(); /* plugin_init, and a thread with plugin_loop */
  void stop();  /* plugin_stop, and a join */
  bool has_returned() const { return __atomic_load_n(&returned_, __ATOMIC_ACQUIRE); }

  void append_bytes(const void *bytes, size_t count);
  void append(const Samples &samples);
  /* 20 ms at a time, with 20 ms between two. */
  void play(const Samples &samples);

  std::vector<Message> messages() const;
  std::vector<Message> with_text() const;
  /* Waits until a message with a score of 0 or more has come, as many as `count` of them; false when it takes longer.
   */
  bool wait_for_results(size_t count, std::chrono::milliseconds longest) const;
  std::vector<Message> results() const;
  std::string path() const { return path_; }
  /* Longest time between two calls of the callback, from the start of the loop to now. */
  std::chrono::milliseconds longest_gap() const;
  double loop_cpu_seconds() const { return cpu_seconds_; }

private:
  static void *run(void *call);
  static int on_message(quillbrook_context *context, const char *text, int score);

  const Plugin &plugin_;
  std::unique_ptr<quillbrook_context> record_;
  std::string folder_;
  std::string path_;
  std::string format_;
  std::string uniqueid_ = "test-1";
  int file_;
  pthread_t thread_{};
  bool running_ = false;
  bool returned_ = false;
  double cpu_seconds_ = 0;
  Answer answer_;
  std::chrono::steady_clock::time_point started_{};
  mutable std::mutex lock_; /* guards messages_ */
  std::vector<Message> messages_;
};

#endif
