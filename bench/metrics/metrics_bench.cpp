// What a scrape of the metrics costs the calls: sessions in real time on the stand-in PBX, first left alone, then
// scraped every second, then without a pause.
//
// Each session gets a 20 ms frame every 20 ms on a dialplan thread, and an interim from its plugin every 100 ms on its
// streaming thread. Printed for each phase: how long a frame and a message took inside the module, how long a scrape
// took, and the processor time of the whole process.
//
// Usage: metrics_bench [SECONDS of a phase] [SESSIONS]
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <chrono>
#include <thread>

#include "stand_in.h"

#include "record/engine.h"
#include "ops/http_metrics.h"
#include "ops/statistics.h"
#include "quillbrook.h"
#include "session/entries.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto kFrameTime = 20ms;
constexpr auto kMessageTime = 100ms;
constexpr int kDialplanThreads = 4;

// Durations from all threads, in microseconds. Each thread collects its own and hands them in at the end of the phase.
class Durations {
public:
  void add(const std::vector<double> &some) {
    const std::lock_guard<std::mutex> hold(lock_);
    all_.insert(all_.end(), some.begin(), some.end());
  }
  void print(const char *what) {
    const std::lock_guard<std::mutex> hold(lock_);
    std::sort(all_.begin(), all_.end());
    const auto at = [this](double share) { return all_[static_cast<size_t>(share * (all_.size() - 1))]; };
    if (!all_.empty()) {
      printf("  %-8s %8zu   %8.1f %8.1f %8.1f %8.1f\n", what, all_.size(), at(0.5), at(0.99), at(0.999), at(1));
    }
    all_.clear();
  }
  void clear() {
    const std::lock_guard<std::mutex> hold(lock_);
    all_.clear();
  }

private:
  std::mutex lock_;
  std::vector<double> all_;
};

Durations frames, messages, scrapes;
std::atomic<int> phase{0};

template <typename Action>
double microseconds(Action &&action) {
  const auto begin = Clock::now();
  action();
  return std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
}

// Hands a thread's durations in when the phase has changed.
class Collector {
public:
  explicit Collector(Durations &durations) : durations_(durations) {}
  ~Collector() { durations_.add(mine_); }
  void add(double duration) {
    if (phase_ != phase) {
      durations_.add(mine_);
      mine_.clear();
      phase_ = phase;
    }
    mine_.push_back(duration);
  }

private:
  Durations &durations_;
  std::vector<double> mine_;
  int phase_ = phase;
};

int plugin_init(quillbrook_context *) {
  return 0;
}

void *plugin_loop(quillbrook_context *context) {
  Collector collector(messages);
  for (auto next = Clock::now(); __atomic_load_n(&context->hangup, __ATOMIC_ACQUIRE) == 0; next += kMessageTime) {
    collector.add(microseconds([&] { context->callback(context, "good mor", QUILLBROOK_SCORE_INTERIM); }));
    std::this_thread::sleep_until(next + kMessageTime);
  }
  return nullptr;
}

void plugin_stop(quillbrook_context *context) {
  __atomic_store_n(&context->hangup, QUILLBROOK_HANGUP_STOPPED, __ATOMIC_RELEASE);
  __atomic_store_n(&context->finalize, 1, __ATOMIC_RELEASE);
}

// The sessions of one dialplan thread, from create to destroy.
void run_sessions(int count, const std::atomic<bool> &ended) {
  char name[] = "quillbrook";
  ast_speech_engine engine{};
  engine.name = name;
  std::vector<ast_speech> speeches(count);
  for (ast_speech &speech : speeches) {
    speech.engine = &engine;
    quillbrook_recog_create(&speech, nullptr);
    quillbrook_recog_start(&speech);
  }
  {
    Collector collector(frames);
    std::vector<int16_t> audio(160, 1000);
    for (auto next = Clock::now(); !ended; next += kFrameTime) {
      for (ast_speech &speech : speeches) {
        collector.add(microseconds([&] { quillbrook_recog_write(&speech, audio.data(), 320); }));
      }
      std::this_thread::sleep_until(next + kFrameTime);
    }
  }
  for (ast_speech &speech : speeches) {
    quillbrook_recog_destroy(&speech);
  }
}

double processor_seconds() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval &time) { return time.tv_sec + time.tv_usec / 1e6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void run_phase(const char *name, Clock::duration length, Clock::duration pause) {
  const double processor_before = processor_seconds();
  const auto end = Clock::now() + length;
  {
    Collector collector(scrapes);
    while (Clock::now() < end) {
      const auto begin = Clock::now();
      if (pause < length) {
        collector.add(microseconds([] { stand_in::http_request("quillbrook_metrics", AST_HTTP_GET); }));
      }
      std::this_thread::sleep_until(std::min(end, begin + pause));
    }
  }
  ++phase;
  const double processor = processor_seconds() - processor_before;
  std::this_thread::sleep_for(3 * kMessageTime);  // all threads have handed in
  const double share = 100 * processor / std::chrono::duration<double>(length).count();
  printf("%s: processor %.1f %% of one core\n", name, share);
  frames.print("frame");
  messages.print("message");
  scrapes.print("scrape");
}

}  // namespace

int main(int argc, char **argv) {
  const std::chrono::seconds length(argc > 1 ? std::max(1, atoi(argv[1])) : 10);
  const int sessions = argc > 2 ? std::max(kDialplanThreads, atoi(argv[2])) : 100;
  setvbuf(stdout, nullptr, _IOLBF, 0);

  stand_in::reset();
  quillbrook_engine_table_init();
  quillbrook_statistics_init();
  quillbrook_http_update();
  quillbrook_engine_t &engine = quillbrook_engine[0];
  engine.ws_format = ast_strdup("wav");
  engine.plugin_init = plugin_init;
  engine.plugin_loop = plugin_loop;
  engine.plugin_stop = plugin_stop;

  std::atomic<bool> ended{false};
  std::vector<std::thread> threads;
  for (int index = 0; index < kDialplanThreads; ++index) {
    const int count = sessions / kDialplanThreads + (index < sessions % kDialplanThreads ? 1 : 0);
    threads.emplace_back([count, &ended] { run_sessions(count, ended); });
  }
  while (quillbrook_statistics_read().stats.sessions_active < static_cast<unsigned>(sessions)) {
    std::this_thread::sleep_for(10ms);
  }
  std::this_thread::sleep_for(1s);  // all plugins run
  printf("%d sessions, %d s a phase. Microseconds:   count   median      99%%    99.9%%      max\n", sessions,
         static_cast<int>(length.count()));
  ++phase;
  std::this_thread::sleep_for(3 * kMessageTime);
  frames.clear();
  messages.clear();
  run_phase("not scraped", length, length);
  run_phase("a scrape every second", length, 1s);
  run_phase("scrapes without a pause", length, 0s);

  ended = true;
  for (std::thread &thread : threads) {
    thread.join();
  }
  quillbrook_webenabled = 0;
  quillbrook_http_update();
  quillbrook_engine_release_texts(engine);
  quillbrook_statistics_destroy();
  stand_in::reset();
}
