#include "plugin_driver.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

namespace {

std::string plugin_path;
std::string url;

// The record that the loop of this thread was entered with; a thread of the plugin's own has none.
thread_local quillbrook_context *entered_with = nullptr;

template <typename Function>
void find(void *library, Function *&function, const char *first, const char *second) {
  void *symbol = dlsym(library, first);
  function = reinterpret_cast<Function *>(symbol ? symbol : dlsym(library, second));
  ASSERT_TRUE(function) << plugin_path << " has no " << first;
}

// As before the first words: no timer of the module runs.
int no_timer(const quillbrook_context *context) {
  return context == entered_with ? INT_MAX : 0;
}

std::mutex complaints_lock;
std::vector<std::string> complaints;
void note_complaint(quillbrook_context *, const char *sentence) {
  const std::lock_guard<std::mutex> held(complaints_lock);
  complaints.emplace_back(sentence);
}

const quillbrook_services kServices = {sizeof kServices, no_timer, note_complaint};

}  // namespace

std::vector<std::string> take_complaints() {
  const std::lock_guard<std::mutex> held(complaints_lock);
  return std::exchange(complaints, {});
}

void Plugin::open() {
  library = dlopen(plugin_path.c_str(), RTLD_LAZY);
  ASSERT_TRUE(library) << dlerror();
  find(library, init, "quillbrook_init", "init");
  find(library, loop, "quillbrook_loop", "loop");
  find(library, stop, "quillbrook_stop", "hangup");
  if (void *symbol = dlsym(library, "quillbrook_attach")) {
    reinterpret_cast<quillbrook_function_attach *>(symbol)(&kServices);
  }
}

void Plugin::close() {
  EXPECT_EQ(dlclose(library), 0);
  *this = {};
  std::ifstream maps("/proc/self/maps");
  const std::string text((std::istreambuf_iterator<char>(maps)), {});
  EXPECT_EQ(text.find(plugin_path), std::string::npos) << "the library stays in the process";
}

Plugin &plugin() {
  static Plugin opened;
  if (!opened.library) opened.open();
  return opened;
}

const std::string &plugin_url() {
  return url;
}

const std::string &scratch_folder() {
  static const struct Folder {
    Folder() { EXPECT_TRUE(mkdtemp(path.data())); }
    ~Folder() { (void)std::system(("rm -r " + path).c_str()); }
    std::string path = "/tmp/quillbrook-plugin-test.XXXXXX";
  } kFolder;
  return kFolder.path;
}

std::string tone(int milliseconds, double amplitude) {
  std::string bytes;
  for (int i = 0; i < milliseconds * 8; ++i) {
    const auto sample = static_cast<int16_t>(amplitude * std::sin(i * 0.35));
    bytes.append(reinterpret_cast<const char *>(&sample), sizeof sample);
  }
  return bytes;
}

void PrintTo(const Report &report, std::ostream *out) {
  *out << report.score << " [" << report.text << "]";
}

Recognition::Recognition(const std::string &format) : format_(format) {
  static std::atomic<int> number{0};
  path_ = scratch_folder() + "/stream" + std::to_string(++number) + "." + format_;
  append(format_ == "wav" ? std::string("RIFF\0\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x40\x1f\0\0\x80\x3e\0\0\2\0\x10\0data"
                                        "\0\0\0\0",
                                        44)
                          : "");
  record.speedvsaccuracy = -1;
  record.maxspeechtimeout = 60000;
  record.buffer_size = 4000;
  record.interims = 1;
  record.uniqueid = text_;
  record.mark = text_;
  record.silence = &silence_;
  record.filename = path_.data();
  record.format = format_.c_str();
  record.asterisk_pointer = this;
  record.callback = receive;
}

Recognition::~Recognition() {
  if (loop_.joinable()) stop();
  remove_file();
}

void Recognition::append(const std::string &bytes) const {
  std::ofstream(path_, std::ios::binary | std::ios::app) << bytes;
}

void Recognition::remove_file() const {
  (void)unlink(path_.c_str());
}

void Recognition::start() {
  given_ = record;
  ASSERT_EQ(plugin().init(&record), 0);
  begun_ = std::chrono::steady_clock::now();
  loop_ = std::thread([this] { run(); });
}

void Recognition::run() {
  entered_with = &record;
  (void)plugin().loop(&record);
  const std::lock_guard<std::mutex> guard(lock_);
  returned_ = true;
  changed_.notify_all();
}

void Recognition::stop() {
  plugin().stop(&record);
  EXPECT_EQ(__atomic_load_n(&record.hangup, __ATOMIC_ACQUIRE), QUILLBROOK_HANGUP_STOPPED);
  EXPECT_GT(__atomic_load_n(&record.finalize, __ATOMIC_ACQUIRE), 0);
  if (!loop_.joinable()) return;
  EXPECT_TRUE(wait_return()) << "the loop does not return after its stop";
  loop_.join();
}

void Recognition::expect_untouched_fields() const {
  EXPECT_EQ(record.asterisk_pointer, given_.asterisk_pointer);
  EXPECT_EQ(record.callback, given_.callback);
  EXPECT_EQ(record.filename, given_.filename);
  EXPECT_EQ(record.uniqueid, given_.uniqueid);
  EXPECT_EQ(record.silence, given_.silence);
  EXPECT_STREQ(record.phrases, given_.phrases);
  EXPECT_EQ(silence_, 0);
}

std::vector<Report> Recognition::reports() {
  const std::lock_guard<std::mutex> guard(lock_);
  return reports_;
}

int Recognition::calls() {
  const std::lock_guard<std::mutex> guard(lock_);
  return calls_;
}

int Recognition::receive(quillbrook_context *context, const char *text, int score) {
  EXPECT_TRUE(!entered_with || entered_with == context) << "called back with another recognition's record";
  return static_cast<Recognition *>(context->asterisk_pointer)->take(text ? text : "", score);
}

int Recognition::take(const char *text, int score) {
  const std::lock_guard<std::mutex> guard(lock_);
  changed_.notify_all();
  ++calls_;
  if (*text || score < QUILLBROOK_SCORE_INTERIM) {
    const auto *json = static_cast<const char *>(record.extra_pointer);
    reports_.push_back({text, score, json ? json : ""});
  }
  if (refusing || (result_out_ && !continuous)) return -1;
  has_words_ = has_words_ || *text;
  result_out_ = has_words_ && score == QUILLBROOK_SCORE_FINISH;
  return 0;
}

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  if (argc != 2 && argc != 3) {
    (void)std::fprintf(stderr, "usage: %s PLUGIN.so [URL]\n", argv[0]);
    return 2;
  }
  plugin_path = argv[1];
  url = argc == 3 ? argv[2] : "";
  return RUN_ALL_TESTS();
}
