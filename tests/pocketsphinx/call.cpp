#include "call.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <stdexcept>

using Clock = std::chrono::steady_clock;

namespace {
constexpr size_t host_stack_size = 507904; /* what the module gives the loop's thread */
}

Plugin::Plugin(const std::string &path) : library_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (library_ == nullptr) throw std::runtime_error(dlerror());
  init = reinterpret_cast<quillbrook_function_init *>(dlsym(library_, "quillbrook_init"));
  loop = reinterpret_cast<quillbrook_function_loop *>(dlsym(library_, "quillbrook_loop"));
  stop = reinterpret_cast<quillbrook_function_stop *>(dlsym(library_, "quillbrook_stop"));
  if (init == nullptr || loop == nullptr || stop == nullptr) throw std::runtime_error(path + " lacks a function");
}

Plugin::~Plugin() {
  dlclose(library_);
}

Samples read_wav(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (bytes.size() < 44) throw std::runtime_error(path + " cannot be read");
  Samples samples((bytes.size() - 44) / 2);
  memcpy(samples.data(), bytes.data() + 44, samples.size() * 2);
  return samples;
}

Samples quiet(int milliseconds) {
  Samples samples(static_cast<size_t>(milliseconds) * 8);
  unsigned state = 1;
  for (int16_t &sample : samples) {
    state = state * 1103515245U + 12345U;
    sample = static_cast<int16_t>(static_cast<int>(state >> 16) % 9 - 4);
  }
  return samples;
}

Samples in_a_row(const std::vector<Samples> &parts, int pause_ms) {
  Samples all = quiet(pause_ms);
  for (const Samples &part : parts) {
    all.insert(all.end(), part.begin(), part.end());
    Samples pause = quiet(pause_ms);
    all.insert(all.end(), pause.begin(), pause.end());
  }
  return all;
}

Call::Call(const Plugin &plugin, const char *format)
    : plugin_(plugin), record_(std::make_unique<quillbrook_context>()), format_(format) {
  char folder[] = "/tmp/pocketsphinx-test.XXXXXX";
  if (mkdtemp(folder) == nullptr) throw std::runtime_error("no folder in /tmp");
  folder_ = folder;
  path_ = folder_ + "/stream." + format_;
  file_ = open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND, 0600);
  record_->filename = path_.data();
  record_->format = format_.c_str();
  record_->callback = on_message;
  record_->asterisk_pointer = this;
  record_->uniqueid = uniqueid_.data();
  record_->interims = 1;
  if (format_ == "wav") {
    /* As the host writes it while the file grows: both sizes unset. */
    static const unsigned char header[44] = {'R', 'I', 'F', 'F', 0,  0, 0,   0,   'W', 'A',  'V',  'E', 'f', 'm',  't',
                                             ' ', 16,  0,   0,   0,  1, 0,   1,   0,   0x40, 0x1F, 0,   0,   0x80, 0x3E,
                                             0,   0,   2,   0,   16, 0, 'd', 'a', 't', 'a',  0,    0,   0,   0};
    append_bytes(header, sizeof header);
  }
}

Call::~Call() {
  stop();
  close(file_);
  unlink(path_.c_str());
  rmdir(folder_.c_str());
}

void Call::set(char (&field)[QUILLBROOK_TEXT_SIZE], const std::string &text) {
  snprintf(field, sizeof field, "%s", text.c_str());
}

void Call::start() {
  if (plugin_.init(record_.get()) != 0) throw std::runtime_error("plugin_init refuses");
  started_ = Clock::now();
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, host_stack_size);
  running_ = pthread_create(&thread_, &attributes, run, this) == 0;
  pthread_attr_destroy(&attributes);
  if (!running_) throw std::runtime_error("no thread");
}

void *Call::run(void *call) {
  auto *self = static_cast<Call *>(call);
  self->plugin_.loop(self->record_.get());
  timespec used{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
  self->cpu_seconds_ = static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
  __atomic_store_n(&self->returned_, true, __ATOMIC_RELEASE);
  return nullptr;
}

void Call::stop() {
  if (!running_) return;
  running_ = false;
  plugin_.stop(record_.get());
  pthread_join(thread_, nullptr);
}

void Call::append_bytes(const void *bytes, size_t count) {
  const char *next = static_cast<const char *>(bytes);
  while (count > 0) {
    ssize_t written = write(file_, next, count);
    if (written <= 0) throw std::runtime_error("the stream file cannot be written");
    next += written;
    count -= static_cast<size_t>(written);
  }
}

void Call::append(const Samples &samples) {
  append_bytes(samples.data(), samples.size() * 2);
}

void Call::play(const Samples &samples) {
  constexpr size_t frame = 160;
  auto due = Clock::now();
  for (size_t begin = 0; begin < samples.size(); begin += frame) {
    append_bytes(samples.data() + begin, std::min(frame, samples.size() - begin) * 2);
    due += std::chrono::milliseconds(20);
    std::this_thread::sleep_until(due);
  }
}

int Call::on_message(quillbrook_context *context, const char *text, int score) {
  auto *call = static_cast<Call *>(context->asterisk_pointer);
  Message message{text == nullptr ? "" : text, score, Clock::now()};
  {
    std::lock_guard<std::mutex> guard(call->lock_);
    call->messages_.push_back(message);
  }
  return call->answer_ ? call->answer_(message) : 0;
}

std::vector<Message> Call::messages() const {
  std::lock_guard<std::mutex> guard(lock_);
  return messages_;
}

std::vector<Message> Call::with_text() const {
  std::vector<Message> found = messages();
  found.erase(std::remove_if(found.begin(), found.end(), [](const Message &each) { return each.text.empty(); }),
              found.end());
  return found;
}

std::vector<Message> Call::results() const {
  std::vector<Message> found = with_text();
  found.erase(std::remove_if(found.begin(), found.end(), [](const Message &each) { return each.score < 0; }),
              found.end());
  return found;
}

bool Call::wait_for_results(size_t count, std::chrono::milliseconds longest) const {
  auto end = Clock::now() + longest;
  while (Clock::now() < end) {
    if (results().size() >= count) return true;
    if (has_returned()) return results().size() >= count;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

std::chrono::milliseconds Call::longest_gap() const {
  auto longest = Clock::duration::zero();
  auto last = started_;
  for (const Message &message : messages()) {
    longest = std::max(longest, message.at - last);
    last = message.at;
  }
  return std::chrono::duration_cast<std::chrono::milliseconds>(longest);
}
