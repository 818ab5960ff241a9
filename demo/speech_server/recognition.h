// One run of a plugin, with the part of the module played here.
#pragma once

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "quillbrook.h"

namespace speech_server {

struct Plugin {
  quillbrook_function_init *init;
  quillbrook_function_loop *loop;
  quillbrook_function_stop *stop;
};

// Throws std::runtime_error.
Plugin load(const std::string &file);

// Something that was said. Without words when it was not understood.
struct Words {
  std::string text;
  int confidence = 0;  // in percent
};

class Recognition {
public:
  // Throws std::runtime_error. `phrases` are separated by commas.
  Recognition(const Plugin &plugin, const std::string &configuration, unsigned rate, const std::string &phrases);
  ~Recognition();
  Recognition(const Recognition &) = delete;
  Recognition &operator=(const Recognition &) = delete;

  // 16-bit linear samples.
  void hear(const std::string &audio);
  // The present hypothesis.
  std::string interim();
  // The oldest final that was not taken yet. False when there is none.
  bool take_final(Words &words);
  // Waits for one, for some seconds.
  bool await_final(Words &words);
  // Asks the plugin for its last words.
  void finalize();

private:
  void run();
  int take(const std::string &text, int score);

  const Plugin &plugin_;
  quillbrook_context record_ = {};
  std::string path_;
  FILE *file_ = nullptr;
  int silence_ = 0;
  std::thread loop_;
  std::mutex lock_;  // guards what follows
  std::condition_variable changed_;
  std::string interim_;
  std::deque<Words> finals_;
  bool over_ = false;
};

}  // namespace speech_server
