// A session on the default engine and a plugin that does what the test says.
//
//   create(); start(); ... send("yes", 80); ... EXPECT_EQ(get(), "yes"); destroy();
//
// The plugin's loop waits for plugin_stop unless the test gives it something to do. Messages are sent by the test
// itself, which is a plugin's thread as good as any.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <thread>

#include "stand_in.h"

#include "record/engine.h"
#include "ops/statistics.h"
#include "result/callback.h"
#include "grammar/grammar_commands.h"
#include "session/entries.h"
#include "record/session.h"

// Gives up after a time that no test needs, so that a hang shows as a failure.
template <typename Condition>
bool eventually(Condition &&condition) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
  return true;
}

class FakePlugin {
public:
  FakePlugin() { current() = this; }

  // What a test changes before the start.
  int init_result = 0;
  int stop_hangup = QUILLBROOK_HANGUP_STOPPED;  // what plugin_stop leaves in `hangup`
  int stop_finalize = 1;                        // and in `finalize`
  std::function<void(quillbrook_context *)> on_init, on_stop;
  std::function<void(quillbrook_context *)> on_loop, on_end;  // in front of the wait and behind it
  bool loop_waits = true;

  std::atomic<int> inits{0}, loops{0}, stops{0}, ended{0};

  void wait_for_stop(quillbrook_context *context) {
    std::unique_lock<std::mutex> held(lock_);
    stopped_changed_.wait(held, [&] { return stopped_.count(context) > 0; });
  }

  static int init(quillbrook_context *context) {
    FakePlugin &plugin = *current();
    {
      std::lock_guard<std::mutex> held(plugin.lock_);
      plugin.stopped_.erase(context);
    }
    ++plugin.inits;
    if (plugin.on_init) plugin.on_init(context);
    return plugin.init_result;
  }
  static void *loop(quillbrook_context *context) {
    FakePlugin &plugin = *current();
    ++plugin.loops;
    if (plugin.on_loop) plugin.on_loop(context);
    if (plugin.loop_waits) plugin.wait_for_stop(context);
    if (plugin.on_end) plugin.on_end(context);
    ++plugin.ended;
    return nullptr;
  }
  static void stop(quillbrook_context *context) {
    FakePlugin &plugin = *current();
    stand_in::note("plugin_stop");
    if (plugin.on_stop) plugin.on_stop(context);
    __atomic_store_n(&context->hangup, plugin.stop_hangup, __ATOMIC_RELEASE);
    __atomic_store_n(&context->finalize, plugin.stop_finalize, __ATOMIC_RELEASE);
    {
      std::lock_guard<std::mutex> held(plugin.lock_);
      plugin.stopped_.insert(context);
    }
    plugin.stopped_changed_.notify_all();
    ++plugin.stops;
  }

private:
  static FakePlugin *&current() {
    static FakePlugin *plugin = nullptr;
    return plugin;
  }
  std::mutex lock_;
  std::condition_variable stopped_changed_;
  std::set<quillbrook_context *> stopped_;
};

constexpr int kWavHeader = 44;

class SessionTest : public testing::Test {
protected:
  SessionTest() : engine(quillbrook_engine[0]) {
    stand_in::reset();
    quillbrook_statistics_init();
    quillbrook_engine_table_init();
    set(engine.ws_format, "wav");
    engine.plugin_init = FakePlugin::init;
    engine.plugin_loop = FakePlugin::loop;
    engine.plugin_stop = FakePlugin::stop;
    engine.ws_buffer_size = 4000;
    engine.threshold = 150;
    engine.timeouts = 1;
    engine.closetimeout = 2000;
    host_engine.name = engine_name;
    speech.engine = &host_engine;
    ast_mutex_init(&speech.lock);
  }
  ~SessionTest() override {
    if (speech.data) destroy();
    for (quillbrook_engine_t &entry : quillbrook_engine) quillbrook_engine_release_texts(entry);
    ast_mutex_destroy(&speech.lock);
    quillbrook_statistics_destroy();
    debug = verbose = twin = 0;
  }

  // A text of the engine table.
  static void set(char *&text, const char *value) {
    ast_free(text);
    text = value ? ast_strdup(value) : nullptr;
  }

  void create() { ASSERT_EQ(quillbrook_recog_create(&speech, nullptr), 0); }
  void start() { ASSERT_EQ(quillbrook_recog_start(&speech), 0); }
  // As SpeechBackground starts it.
  void start_in_background() {
    __atomic_store_n(&speech.state, static_cast<int>(AST_SPEECH_STATE_NOT_READY), __ATOMIC_RELEASE);
    start();
  }
  // Both, until the plugin's loop runs.
  void create_and_start() {
    const int before = plugin.loops;
    create();
    start();
    ASSERT_TRUE(eventually([&] { return plugin.loops > before; }));
  }
  int send(const char *text, int score) { return quillbrook_callback(context(), text, score); }
  int tick() { return send(nullptr, QUILLBROOK_SCORE_INTERIM); }
  int finish() { return send("", QUILLBROOK_SCORE_FINISH); }
  void deliver(const char *text, int score) {
    send(text, score);
    finish();
  }
  // The text of the result, and its score in `score`.
  std::string get() {
    ast_speech_result *result = quillbrook_recog_get(&speech);
    if (!result) return "(none)";
    std::string text = result->text ? result->text : "(null)";
    score = result->score;
    ast_free(result->text);
    ast_free(result);
    return text;
  }
  // What the dialplan reads by SPEECH_ENGINE(name).
  std::string setting(const char *name) {
    char buffer[4096];
    return quillbrook_recog_get_settings(&speech, name, buffer, sizeof(buffer)) ? "(none)" : buffer;
  }
  void destroy() { ASSERT_EQ(quillbrook_recog_destroy(&speech), 0); }

  void write(const void *data, int length) {
    EXPECT_EQ(quillbrook_recog_write(&speech, const_cast<void *>(data), length), 0);
  }
  // Audio in frames of 20 ms, all samples of one value.
  void write_ms(int milliseconds, int16_t sample) {
    const std::vector<int16_t> frame(160, sample);
    for (int written = 0; written < milliseconds; written += 20) write(frame.data(), 320);
  }
  // The same with a number for each frame, and the numbers of the whole frames in a file.
  void write_numbered(int first, int last) {
    for (int number = first; number <= last; ++number) write_ms(20, static_cast<int16_t>(number));
  }
  static std::vector<int> numbers_in(const std::string &path) {
    const std::string content = stand_in::file_content(path);
    std::vector<int> numbers;
    for (size_t at = kWavHeader; at + 320 <= content.size(); at += 320) {
      int16_t samples[160];
      memcpy(samples, content.data() + at, sizeof(samples));
      EXPECT_THAT(samples, testing::Each(samples[0]));
      numbers.push_back(samples[0]);
    }
    return numbers;
  }
  // A grammar of the session, from a file that is gone again.
  void load_grammar(const char *name, const std::string &rules) {
    const std::string path = stand_in::real_path("/tmp/quillbrook_test.jsgf");
    stand_in::write_file(path, "#JSGF V1.0;\ngrammar g;\n" + rules);
    quillbrook_recog_load_grammar(&speech, name, path.c_str());
    unlink(path.c_str());
  }

  quillbrook_speech_t *session() { return quillbrook_session_of(&speech); }
  quillbrook_recognition_t *recognition() { return session()->recognition; }
  quillbrook_context *context() { return recognition() ? recognition()->context1 : nullptr; }
  quillbrook_transcript_t &transcript() { return quillbrook_run_of(context())->transcript; }
  const char *config() { return session()->config_pointer.get(); }
  int state() { return __atomic_load_n(&speech.state, __ATOMIC_ACQUIRE); }
  size_t queued() { return str_fifo_count(&session()->last_results); }
  std::string named(const std::string &format) { return "(" + std::string(session()->name) + ") " + format; }
  // A line about something that is wrong.
  std::string labelled(const std::string &format) { return "[" + std::string(engine_name) + "] " + named(format); }

  quillbrook_engine_t &engine;
  FakePlugin plugin;
  char engine_name[120] = "quillbrook";
  ast_speech_engine host_engine{};
  ast_speech speech{};
  int score = 0;
};

constexpr int kReady = AST_SPEECH_STATE_READY;
constexpr int kDone = AST_SPEECH_STATE_DONE;
constexpr int kNotReady = AST_SPEECH_STATE_NOT_READY;
