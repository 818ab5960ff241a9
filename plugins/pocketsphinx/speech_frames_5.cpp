#include "speech_frames.h"

#include <pocketsphinx.h>

#include <algorithm>
#include <stdexcept>

namespace quillbrook::pocketsphinx {
namespace {

// Frames before the speech that belong to it, and how many frames in a row are speech before it is taken for that: a
// click is none.
constexpr size_t kFramesKept = 20;
constexpr int kFramesToBegin = 10;

MelSettings settings_of(ps_config_t *config) {
  return {ps_config_float(config, "lowerf"),
          ps_config_float(config, "upperf"),
          static_cast<size_t>(std::max(ps_config_int(config, "nfilt"), 0L)),
          ps_config_float(config, "alpha"),
          ps_config_float(config, "wlen"),
          static_cast<size_t>(std::max(ps_config_int(config, "lifter"), 0L))};
}

}  // namespace

struct SpeechFrames::State {
  State(ps_config_t *config, int quiet_ms)
      : cepstrum(settings_of(config)),
        detector(ps_vad_init(PS_VAD_STRICT, kModelRate, kFrameMs / 1000.0)),
        frames_to_end(quiet_ms / kFrameMs) {
    if (detector == nullptr || ps_vad_frame_size(detector) != MelCepstrum::kStep) {
      ps_vad_free(detector);
      throw std::runtime_error("the library has no detector of speech for this rate");
    }
  }
  ~State() { ps_vad_free(detector); }
  State(const State &) = delete;
  State &operator=(const State &) = delete;

  void take_step(std::vector<Cepstrum> &frames);

  MelCepstrum cepstrum;
  ps_vad_t *detector;
  int frames_to_end;

  std::vector<int16_t> samples;  // that are in no frame yet, or in the next one too
  int16_t before = 0;            // the sample before them
  std::vector<Cepstrum> kept;    // latest frames of what is not taken for speech yet
  bool speech = false;
  int run = 0;  // frames in a row that the detector sees otherwise than `speech` says
};

// The frame at the beginning of the samples.
void SpeechFrames::State::take_step(std::vector<Cepstrum> &frames) {
  const Cepstrum frame = cepstrum.compute(samples.data(), before);
  const bool voice = ps_vad_classify(detector, samples.data()) == PS_VAD_SPEECH;
  before = samples[MelCepstrum::kStep - 1];
  samples.erase(samples.begin(), samples.begin() + MelCepstrum::kStep);

  run = voice == speech ? 0 : run + 1;
  if (speech) {
    frames.push_back(frame);
    if (run >= frames_to_end) {
      speech = false;
      run = 0;
    }
    return;
  }
  if (kept.size() == kFramesKept) kept.erase(kept.begin());
  kept.push_back(frame);
  if (run < kFramesToBegin) return;
  speech = true;
  run = 0;
  frames.insert(frames.end(), kept.begin(), kept.end());
  kept.clear();
}

SpeechFrames::SpeechFrames(cmd_ln_s *config, int quiet_ms) : state_(std::make_unique<State>(config, quiet_ms)) {}

SpeechFrames::~SpeechFrames() = default;

void SpeechFrames::feed(const int16_t *samples, size_t count, std::vector<Cepstrum> &frames) {
  state_->samples.insert(state_->samples.end(), samples, samples + count);
  while (state_->samples.size() >= state_->cepstrum.window()) state_->take_step(frames);
}

bool SpeechFrames::in_speech() const {
  return state_->speech;
}

void SpeechFrames::end_utterance() {
  state_->speech = false;
  state_->run = 0;
  state_->kept.clear();
}

}  // namespace quillbrook::pocketsphinx
