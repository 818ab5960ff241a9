// A plugin that measures: how old the audio is when a plugin sees it, and when the module has made the result.
//
// It takes the first N bytes of each stream for an utterance. As soon as it sees them it reports the words as an
// interim and from then on calls back every TICK ms, until the module refuses a call because the result is out. A line
// for each utterance goes to a file: its number, which is also its text, and three times in microseconds since the
// epoch.
//
// `configuration`: "BYTES TICK PATH".

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "quillbrook.h"

#define PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

constexpr useconds_t kFilePoll = 1000;
std::atomic<int> utterances{0};

int64_t microseconds(const timespec &time) {
  return time.tv_sec * INT64_C(1000000) + time.tv_nsec / 1000;
}

int64_t now() {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  return microseconds(time);
}

bool stopped(const quillbrook_context *context) {
  return __atomic_load_n(&context->hangup, __ATOMIC_ACQUIRE) != 0;
}

struct Settings {
  int bytes = 0;
  int tick = 0;
  char path[1024] = "";
};

// The time at which the module wrote the last byte of the utterance, by the file's own date; 0 when stopped.
int64_t wait_for_utterance(quillbrook_context *context, int bytes) {
  int64_t last_tick = now();
  while (!stopped(context)) {
    struct stat status {};
    if (stat(context->filename, &status) == 0 && status.st_size >= bytes) {
      return microseconds(status.st_mtim);
    }
    if (now() - last_tick >= 50000) {
      context->callback(context, nullptr, QUILLBROOK_SCORE_INTERIM);
      last_tick = now();
    }
    usleep(kFilePoll);
  }
  return 0;
}

// When the call came back in which the module made the result; the call behind it is refused.
int64_t tick_until_result(quillbrook_context *context, int tick) {
  int64_t returned = now();
  while (!stopped(context)) {
    usleep(static_cast<useconds_t>(tick) * 1000);
    if (context->callback(context, nullptr, QUILLBROOK_SCORE_INTERIM) != 0) {
      break;
    }
    returned = now();
  }
  return returned;
}

}  // namespace

PLUGIN_EXPORT int quillbrook_init(quillbrook_context *) {
  return 0;
}

PLUGIN_EXPORT void *quillbrook_loop(quillbrook_context *context) {
  Settings wanted;
  if (sscanf(context->configuration, "%d %d %1023s", &wanted.bytes, &wanted.tick, wanted.path) != 3) {
    snprintf(context->extra, sizeof(context->extra), "ERROR: the configuration is not BYTES TICK PATH");
    return nullptr;
  }
  const int64_t written = wait_for_utterance(context, wanted.bytes);
  if (!written) {
    return nullptr;
  }
  const int number = ++utterances;
  char text[32];
  snprintf(text, sizeof(text), "utterance-%d", number);
  const int64_t seen = now();
  context->callback(context, text, QUILLBROOK_SCORE_INTERIM);
  const int64_t result = tick_until_result(context, wanted.tick);
  if (FILE *file = fopen(wanted.path, "a")) {
    fprintf(file, "%s %" PRId64 " %" PRId64 " %" PRId64 "\n", text, written, seen, result);
    fclose(file);
  }
  return nullptr;
}

PLUGIN_EXPORT void quillbrook_stop(quillbrook_context *context) {
  __atomic_store_n(&context->hangup, QUILLBROOK_HANGUP_STOPPED, __ATOMIC_RELEASE);
  __atomic_store_n(&context->finalize, 1, __ATOMIC_RELEASE);
}
