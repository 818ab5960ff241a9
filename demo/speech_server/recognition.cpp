#include "recognition.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace speech_server {

Plugin load(const std::string &file) {
  void *library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw std::runtime_error(dlerror());
  const auto symbol = [&](const char *name) {
    void *found = dlsym(library, name);
    if (found == nullptr) throw std::runtime_error(file + " has no " + name);
    return found;
  };
  return {reinterpret_cast<quillbrook_function_init *>(symbol("quillbrook_init")),
          reinterpret_cast<quillbrook_function_loop *>(symbol("quillbrook_loop")),
          reinterpret_cast<quillbrook_function_stop *>(symbol("quillbrook_stop"))};
}

Recognition::Recognition(const Plugin &plugin, const std::string &configuration, unsigned rate,
                         const std::string &phrases)
    : plugin_(plugin) {
  char path[] = "/tmp/quillbrook-server.XXXXXX.wav";
  const int file = mkstemps(path, 4);
  if (file < 0) throw std::runtime_error("no stream file can be made");
  file_ = fdopen(file, "wb");
  path_ = path;
  const uint32_t format[] = {16, 0x00010001, rate, rate * 2, 0x00100002};
  fwrite("RIFF\0\0\0\0WAVEfmt ", 1, 16, file_);
  fwrite(format, 1, sizeof format, file_);
  fwrite("data\0\0\0\0", 1, 8, file_);

  snprintf(record_.phrases, sizeof record_.phrases, "%s", phrases.c_str());
  snprintf(record_.configuration, sizeof record_.configuration, "%s", configuration.c_str());
  snprintf(record_.param, sizeof record_.param, "server");
  record_.speedvsaccuracy = -1;
  record_.silence = &silence_;
  record_.filename = path_.data();
  record_.format = "wav";
  record_.buffer_size = 1600;
  record_.interims = 1;
  record_.uniqueid = path_.data();
  record_.mark = path_.data();
  record_.asterisk_pointer = this;
  record_.callback = [](quillbrook_context *context, const char *text, int score) {
    return static_cast<Recognition *>(context->asterisk_pointer)->take(text != nullptr ? text : "", score);
  };
  if (plugin_.init(&record_) != 0) throw std::runtime_error("the plugin refuses");
  loop_ = std::thread([this] { run(); });
}

Recognition::~Recognition() {
  plugin_.stop(&record_);
  loop_.join();
  if (record_.extra[0] != '\0') fprintf(stderr, "%s\n", record_.extra);
  fclose(file_);
  unlink(path_.c_str());
}

void Recognition::hear(const std::string &audio) {
  fwrite(audio.data(), 1, audio.size(), file_);
  fflush(file_);
}

std::string Recognition::interim() {
  const std::lock_guard<std::mutex> guard(lock_);
  return interim_;
}

bool Recognition::take_final(Words &words) {
  const std::lock_guard<std::mutex> guard(lock_);
  if (finals_.empty()) return false;
  words = finals_.front();
  finals_.pop_front();
  return true;
}

bool Recognition::await_final(Words &words) {
  constexpr std::chrono::seconds kLimit{5};
  {
    std::unique_lock<std::mutex> guard(lock_);
    changed_.wait_for(guard, kLimit, [this] { return over_ || !finals_.empty(); });
  }
  return take_final(words);
}

void Recognition::finalize() {
  __atomic_store_n(&record_.finalize, 1, __ATOMIC_RELEASE);
}

void Recognition::run() {
  plugin_.loop(&record_);
  const std::lock_guard<std::mutex> guard(lock_);
  over_ = true;
  changed_.notify_all();
}

int Recognition::take(const std::string &text, int score) {
  const std::lock_guard<std::mutex> guard(lock_);
  if (text.empty()) return 0;
  if (score == QUILLBROOK_SCORE_INTERIM) interim_ = text;
  if (score >= QUILLBROOK_SCORE_NO_CONFIDENCE && text != " ") {
    finals_.push_back({score > 0 ? text : "", score});
    interim_.clear();
  }
  changed_.notify_all();
  return 0;
}

}  // namespace speech_server
