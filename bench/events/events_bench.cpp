// What events and traces cost: the time that a plugin's message takes inside the module, and a recognition's start
// and result, with nothing reported, with events, and with a trace; and what the reporting thread spends on a message.
// On the stand-in PBX, whose manager interface only keeps the text: what the real one does
// with an event is its own, and on the reporting thread.
//
// Usage: events_bench [MESSAGES]
#include <gtest/gtest.h>

#include <dirent.h>

#include <chrono>

#include "stand_in.h"

#include "observe/reporter.h"
#include "ops/statistics.h"
#include "record/observation.h"
#include "result/callback.h"
#include "session/entries.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kMessagesOfACall = 100;
constexpr int kMessageGap = 120;  // ms: each hypothesis is sent

double microseconds_since(Clock::time_point begin) {
  return std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
}

int plugin_init(quillbrook_context *) {
  return 0;
}

void *plugin_loop(quillbrook_context *context) {
  while (__atomic_load_n(&context->hangup, __ATOMIC_ACQUIRE) == 0) usleep(1000);
  return nullptr;
}

void plugin_stop(quillbrook_context *context) {
  __atomic_store_n(&context->hangup, QUILLBROOK_HANGUP_STOPPED, __ATOMIC_RELEASE);
  __atomic_store_n(&context->finalize, 1, __ATOMIC_RELEASE);
}

double median(std::vector<double> &durations) {
  std::sort(durations.begin(), durations.end());
  return durations[durations.size() / 2];
}

struct Setting {
  const char *name;
  int events;
  bool trace;
};

void measure(const Setting &setting, const std::string &folder, int calls) {
  quillbrook_engine_t &engine = quillbrook_engine[0];
  engine.events = setting.events;
  ast_free(engine.trace);
  engine.trace = setting.trace ? ast_strdup(folder.c_str()) : nullptr;
  char name[] = "quillbrook";
  ast_speech_engine host_engine{};
  host_engine.name = name;
  std::vector<double> messages, starts, finishes, reports;
  const auto report = [&reports] {
    const auto begin = Clock::now();
    quillbrook_report_all();
    reports.push_back(microseconds_since(begin));
  };
  for (int call = 0; call < calls; ++call) {
    ast_speech speech{};
    speech.engine = &host_engine;
    quillbrook_recog_create(&speech, nullptr);
    auto begin = Clock::now();
    quillbrook_recog_start(&speech);
    starts.push_back(microseconds_since(begin));
    quillbrook_context *context = quillbrook_session_of(&speech)->recognition->context1;
    std::string words;
    for (int number = 0; number < kMessagesOfACall; ++number) {
      words = "I would like " + std::to_string(number) + " tickets, please";
      stand_in::advance_ms(kMessageGap);
      begin = Clock::now();
      quillbrook_callback(context, words.c_str(), QUILLBROOK_SCORE_INTERIM);
      messages.push_back(microseconds_since(begin));
      report();
    }
    begin = Clock::now();
    quillbrook_callback(context, "", QUILLBROOK_SCORE_FINISH);
    finishes.push_back(microseconds_since(begin));
    quillbrook_recog_destroy(&speech);
    report();
    stand_in::reset();
  }
  printf("%-28s %10.2f %10.1f %10.1f %10.2f\n", setting.name, median(messages), median(starts), median(finishes),
         median(reports));
}

}  // namespace

int main(int argc, char **argv) {
  const int calls = std::max(1, (argc > 1 ? atoi(argv[1]) : 20000) / kMessagesOfACall);
  stand_in::reset();
  quillbrook_engine_table_init();
  quillbrook_statistics_init();
  quillbrook_engine_t &engine = quillbrook_engine[0];
  engine.ws_format = ast_strdup("wav");
  engine.plugin_init = plugin_init;
  engine.plugin_loop = plugin_loop;
  engine.plugin_stop = plugin_stop;
  char folder[] = "/tmp/events-bench-XXXXXX";
  if (!mkdtemp(folder)) return 1;

  printf("Medians in microseconds      a message      start     result   of the reporting thread, for a message\n");
  for (const Setting &setting : {Setting{"nothing is reported", kEventsNone, false},
                                 {"events=results", kEventsResults, false},
                                 {"events=interims", kEventsInterims, false},
                                 {"events=interims and a trace", kEventsInterims, true},
                                 {"nothing is reported", kEventsNone, false}}) {
    measure(setting, folder, calls);
  }

  quillbrook_engine_release_texts(engine);
  quillbrook_statistics_destroy();
  stand_in::reset();
  if (DIR *entries = opendir(folder)) {
    while (const dirent *entry = readdir(entries)) unlink((std::string(folder) + "/" + entry->d_name).c_str());
    closedir(entries);
  }
  rmdir(folder);
}
