#include "speech_frames.h"

#include <stdexcept>

extern "C" {
#include <sphinxbase/cmd_ln.h>
#include <sphinxbase/fe.h>
}

namespace quillbrook::pocketsphinx {

static_assert(sizeof(mfcc_t) == sizeof(float), "the library is built for floating point");

struct SpeechFrames::State {
  static constexpr size_t kMostFrames = 64;

  fe_t *fe = nullptr;
  std::array<Cepstrum, kMostFrames> block{};
  std::array<float *, kMostFrames> rows{};

  ~State() { fe_free(fe); }
};

SpeechFrames::SpeechFrames(cmd_ln_s *config, int quiet_ms) : state_(std::make_unique<State>()) {
  cmd_ln_set_int_r(config, "-vad_postspeech", quiet_ms / kFrameMs);
  state_->fe = fe_init_auto_r(config);
  if (state_->fe == nullptr || fe_get_output_size(state_->fe) != static_cast<int>(Cepstrum().size())) {
    throw std::runtime_error("the acoustic model has feature settings that cannot be used");
  }
  for (size_t i = 0; i < State::kMostFrames; ++i) state_->rows[i] = state_->block[i].data();
  fe_start_stream(state_->fe);
  fe_start_utt(state_->fe);
}

SpeechFrames::~SpeechFrames() = default;

void SpeechFrames::feed(const int16_t *samples, size_t count, std::vector<Cepstrum> &frames) {
  while (count > 0) {
    int32 made = State::kMostFrames;
    size_t before = count;
    fe_process_frames(state_->fe, &samples, &count, state_->rows.data(), &made, nullptr);
    frames.insert(frames.end(), state_->block.begin(), state_->block.begin() + made);
    if (count == before && made == 0) break;  // the library takes no more: nothing to gain by asking again
  }
}

bool SpeechFrames::in_speech() const {
  return fe_get_vad_state(state_->fe) != 0;
}

void SpeechFrames::end_utterance() {
  fe_start_utt(state_->fe);
}

}  // namespace quillbrook::pocketsphinx
