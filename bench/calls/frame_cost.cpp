// A module of the PBX for one measurement: what a frame of a call costs its thread through the speech API, beside what
// the host takes for the same alone, which is to append it to a file, to flush that and to measure its silence. As it
// loads it writes one line into the log: "frame cost NANOSECONDS, floor NANOSECONDS", medians of processor time.
//
// The speech module runs with dsp=yes and a plugin that does nothing (the dummy).
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <vector>

#include "../../res_speech_quillbrook/host.h"

namespace {

constexpr int kFrames = 4000;
constexpr int kSamples = 160;
constexpr int kThreshold = 150;

using Frame = std::array<int16_t, AST_FRIENDLY_OFFSET / 2 + kSamples>;

int64_t thread_ns() {
  struct timespec now = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

// Hiss, with a burst of noise in every second.
void fill(int16_t *samples, int number) {
  const int height = number % 50 < 20 ? 3000 : 40;
  for (int i = 0; i < kSamples; ++i) samples[i] = static_cast<int16_t>((i * 7919 + number * 104729) % height);
}

template <typename Write>
int64_t median_cost(Write write) {
  std::vector<int64_t> costs;
  Frame buffer = {};
  int16_t *samples = buffer.data() + AST_FRIENDLY_OFFSET / 2;
  for (int number = 0; number < kFrames; ++number) {
    fill(samples, number);
    const int64_t begun = thread_ns();
    write(samples);
    costs.push_back(thread_ns() - begun);
  }
  std::nth_element(costs.begin(), costs.begin() + kFrames / 2, costs.end());
  return costs[kFrames / 2];
}

int64_t through_the_module() {
  struct ast_format_cap *formats = ast_format_cap_alloc(AST_FORMAT_CAP_FLAG_DEFAULT);
  ast_format_cap_append(formats, ast_format_slin, 0);
  struct ast_speech *speech = ast_speech_new("quillbrook", formats);
  ao2_ref(formats, -1);
  if (!speech) return -1;
  ast_speech_start(speech);
  const int64_t cost = median_cost([speech](int16_t *samples) { ast_speech_write(speech, samples, kSamples * 2); });
  ast_speech_destroy(speech);
  return cost;
}

int64_t floor_of_the_host() {
  char path[] = "/tmp/frame-cost-XXXXXX";
  const int reserved = mkstemp(path);
  if (reserved < 0) return -1;
  close(reserved);
  struct ast_filestream *file = ast_writefile(path, "wav", nullptr, O_CREAT | O_TRUNC | O_WRONLY, 0, 0600);
  struct ast_dsp *detector = ast_dsp_new();
  ast_dsp_set_threshold(detector, kThreshold);
  int silence = 0;
  const int64_t cost = file ? median_cost([&](int16_t *samples) {
    struct ast_frame frame = {};
    frame.frametype = AST_FRAME_VOICE;
    frame.subclass.format = ast_format_slin;
    frame.datalen = kSamples * 2;
    frame.samples = kSamples;
    frame.offset = AST_FRIENDLY_OFFSET;
    frame.data.ptr = samples;
    ast_dsp_silence(detector, &frame, &silence);
    ast_writestream(file, &frame);
    fflush(file->f);
  })
                            : -1;
  if (file) ast_closestream(file);
  ast_dsp_free(detector);
  unlink(path);
  unlink((std::string(path) + ".wav").c_str());
  return cost;
}

enum ast_module_load_result load_module() {
  // Twice, and the second time counts: files and caches are warm then.
  (void)through_the_module();
  (void)floor_of_the_host();
  const int64_t cost = through_the_module();
  const int64_t floor = floor_of_the_host();
  ast_log(LOG_NOTICE, "frame cost %lld, floor %lld\n", static_cast<long long>(cost), static_cast<long long>(floor));
  return AST_MODULE_LOAD_SUCCESS;
}

int unload_module() {
  return 0;
}

}  // namespace

AST_MODULE_INFO(ASTERISK_GPL_KEY, AST_MODFLAG_DEFAULT, "Cost of a frame, for a benchmark", load_module, unload_module,
                nullptr, AST_MODPRI_DEFAULT, AST_MODULE_SUPPORT_EXTENDED);
