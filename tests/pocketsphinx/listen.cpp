/*
 * Plays recordings to the plugin as a call would, and prints what comes back.
 *
 *   pocketsphinx-listen PLUGIN [--hints LIST] [--set "KEY=VALUE ..."] [--fast] FILE.wav...
 *
 * The files (8 kHz, 16 bits, mono) are utterances of one call, one after the other. --fast does not wait for real
 * time to pass. Times are milliseconds from the end of the file's last sample.
 */
#include <cstdio>
#include <cstring>
#include <string>

#include "call.h"

namespace {

long long since(std::chrono::steady_clock::time_point start, std::chrono::steady_clock::time_point end) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(end - start).count();
}

int listen(int count, char **arguments) {
  Plugin plugin(arguments[1]);
  Call call(plugin);
  bool fast = false;
  int next = 2;
  for (; next < count && strncmp(arguments[next], "--", 2) == 0; ++next) {
    std::string option = arguments[next];
    if (option == "--fast") {
      fast = true;
    } else if (option == "--hints" && next + 1 < count) {
      call.set(call.record().phrases, arguments[++next]);
    } else if (option == "--set" && next + 1 < count) {
      call.set(call.record().configuration, arguments[++next]);
    } else {
      throw std::runtime_error("unknown option " + option);
    }
  }

  call.start();
  size_t seen = 0;
  for (; next < count && !call.has_returned(); ++next) {
    printf("%s\n", arguments[next]);
    Samples speech = read_wav(arguments[next]);
    size_t before = call.results().size();
    if (fast) {
      call.append(quiet(400));
      call.append(speech);
    } else {
      call.play(quiet(400));
      call.play(speech);
    }
    auto end = std::chrono::steady_clock::now();
    if (fast) {
      call.append(quiet(1500));
    } else {
      call.play(quiet(1500));
    }
    call.wait_for_results(before + (fast ? 1 : 0), std::chrono::milliseconds(fast ? 20000 : 0));
    std::vector<Message> messages = call.with_text();
    for (; seen < messages.size(); ++seen) {
      printf("  %6lld ms  %4d  %s\n", since(end, messages[seen].at), messages[seen].score, messages[seen].text.c_str());
    }
  }
  long long gap = call.longest_gap().count();
  call.stop();
  printf("longest time between two callbacks: %lld ms; loop used %.3f s of processor\n", gap, call.loop_cpu_seconds());
  if (call.record().extra[0] != 0) printf("%s\n", call.record().extra);
  return call.record().extra[0] == 0 ? 0 : 1;
}

}  // namespace

int main(int count, char **arguments) {
  if (count < 3) {
    fprintf(stderr, "usage: %s PLUGIN [--hints LIST] [--set SETTINGS] [--fast] FILE.wav...\n", arguments[0]);
    return 2;
  }
  try {
    return listen(count, arguments);
  } catch (const std::exception &exception) {
    fprintf(stderr, "%s\n", exception.what());
    return 1;
  }
}
