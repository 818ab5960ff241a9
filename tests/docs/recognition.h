// A plugin opened as the module opens it, and one recognition driven as the module drives it, for tests of plugins.
#ifndef TESTS_DOCS_RECOGNITION_H
#define TESTS_DOCS_RECOGNITION_H

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "quillbrook.h"

// Path of the plugin under test; set before the first use of plugin().
inline std::string plugin_path;

struct Plugin {
  void *library = nullptr;
  quillbrook_function_init *init = nullptr;
  quillbrook_function_loop *loop = nullptr;
  quillbrook_function_stop *stop = nullptr;

  Plugin() : library(dlopen(plugin_path.c_str(), RTLD_LAZY)) {
    find(init, "quillbrook_init", "init");
    find(loop, "quillbrook_loop", "loop");
    find(stop, "quillbrook_stop", "hangup");
  }
  template <typename Function>
  void find(Function *&function, const char *first, const char *second) const {
    void *symbol = library ? dlsym(library, first) : nullptr;
    if (library && !symbol) symbol = dlsym(library, second);
    function = reinterpret_cast<Function *>(symbol);
  }
};

inline const Plugin &plugin() {
  static const Plugin opened;
  return opened;
}

struct Message {
  std::string text;
  int score;
  bool operator==(const Message &other) const { return text == other.text && score == other.score; }
};

inline void PrintTo(const Message &message, std::ostream *out) {
  *out << message.score << " [" << message.text << "]";
}

// One recognition, driven as the module does it, with a stream file in a folder of its own.
class Recognition {
public:
  // samples: what the file holds from the start. answer: what the callback gives.
  explicit Recognition(const std::vector<int16_t> &samples = {}, int answer = 0) : answer_(answer) {
    char folder[] = "/tmp/plugin-contract-XXXXXX";
    folder_ = mkdtemp(folder);
    path_ = folder_ + "/stream.wav";
    append(std::string("RIFF\0\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x40\x1f\0\0\x80\x3e\0\0\2\0\x10\0data\0\0\0\0", 44));
    append(samples);
    context_->speedvsaccuracy = -1;
    context_->completetimeout = context_->incompletetimeout = 0;
    context_->maxspeechtimeout = 60000;
    // Nobody listens on the discard port, so that a plugin that wants a server has to cope with none.
    (void)std::snprintf(context_->profile, sizeof(context_->profile), "ws://127.0.0.1:9");
    (void)std::snprintf(context_->phrases, sizeof(context_->phrases), "yes,no");
    context_->buffer_size = 4000;
    context_->interims = 1;
    context_->uniqueid = text_;
    context_->mark = text_;
    context_->silence = &silence_;
    context_->filename = path_.data();
    context_->format = "wav";
    context_->asterisk_pointer = this;
    context_->callback = receive;
    given_ = *context_;
  }
  ~Recognition() {
    if (running_) {
      stop();
      EXPECT_TRUE(join()) << "the loop did not return within ten seconds of its stop";
    }
    (void)unlink(path_.c_str());
    (void)rmdir(folder_.c_str());
  }
  Recognition(const Recognition &) = delete;
  Recognition &operator=(const Recognition &) = delete;

  quillbrook_context *record() { return context_.get(); }
  void start() {
    running_ = pthread_create(&thread_, nullptr, run, context_.get()) == 0;
    ASSERT_TRUE(running_);
  }
  void stop() {
    plugin().stop(context_.get());
    EXPECT_EQ(__atomic_load_n(&context_->hangup, __ATOMIC_ACQUIRE), QUILLBROOK_HANGUP_STOPPED);
    EXPECT_GT(__atomic_load_n(&context_->finalize, __ATOMIC_ACQUIRE), 0);
  }
  // The module waits for ever here. A test that ends is of more use.
  bool join() {
    struct timespec until {};
    (void)clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += 10;
    running_ = pthread_timedjoin_np(thread_, nullptr, &until) != 0;
    return !running_;
  }
  void append(const std::vector<int16_t> &samples) {
    append(std::string(reinterpret_cast<const char *>(samples.data()), samples.size() * sizeof(int16_t)));
  }
  void append(const std::string &bytes) { std::ofstream(path_, std::ios::binary | std::ios::app) << bytes; }
  void remove_file() { (void)unlink(path_.c_str()); }
  int calls() const { return calls_.load(); }
  std::vector<Message> messages() {
    const std::lock_guard<std::mutex> held(lock_);
    return messages_;
  }
  bool wait_for(const Message &message) {
    for (int i = 0; i < 500; ++i) {
      const std::vector<Message> now = messages();
      if (std::find(now.begin(), now.end(), message) != now.end()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }
  void expect_module_s_fields_untouched() const {
    const quillbrook_context &now = *context_;
    EXPECT_EQ(now.asterisk_pointer, given_.asterisk_pointer);
    EXPECT_EQ(now.callback, given_.callback);
    EXPECT_EQ(now.filename, given_.filename);
    EXPECT_EQ(now.uniqueid, given_.uniqueid);
    EXPECT_EQ(now.silence, given_.silence);
    EXPECT_EQ(path_, folder_ + "/stream.wav");
    EXPECT_EQ(silence_, 0);
    EXPECT_STREQ(now.phrases, given_.phrases);
  }

private:
  static void *run(void *record) {
    entered_with = static_cast<quillbrook_context *>(record);
    (void)plugin().loop(entered_with);
    return nullptr;
  }
  static int receive(quillbrook_context *context, const char *text, int score) {
    auto *self = static_cast<Recognition *>(context->asterisk_pointer);
    // A thread of the plugin's own has entered with none.
    EXPECT_TRUE(!entered_with || entered_with == context) << "called back with another recognition's record";
    ++self->calls_;
    const std::lock_guard<std::mutex> held(self->lock_);
    if (text && *text) self->messages_.push_back({text, score});
    return self->answer_;
  }

  static inline thread_local quillbrook_context *entered_with = nullptr;

  std::unique_ptr<quillbrook_context> context_ = std::make_unique<quillbrook_context>();
  quillbrook_context given_{};
  int answer_;
  int silence_ = 0;
  char text_[8] = "call-1";
  std::string folder_;
  std::string path_;
  pthread_t thread_{};
  bool running_ = false;
  std::atomic<int> calls_{0};
  std::mutex lock_;
  std::vector<Message> messages_;
};

inline void sleep_ms(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

inline std::vector<int16_t> tone(int milliseconds, double amplitude) {
  std::vector<int16_t> samples(static_cast<size_t>(milliseconds) * 8);
  for (size_t i = 0; i < samples.size(); ++i)
    samples[i] = static_cast<int16_t>(amplitude * std::sin(static_cast<double>(i) * 0.35));
  return samples;
}

#endif
