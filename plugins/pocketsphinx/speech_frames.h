// From samples at the model's rate to cepstral frames of speech. There are two, of which one is compiled: version 0.8
// of the library shows its own, with its detector of speech; version 5 keeps its own to itself, so there we compute
// them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "mel_cepstrum.h"

struct cmd_ln_s;

namespace quillbrook::pocketsphinx {

class SpeechFrames {
public:
  // Reads the model's settings from `config`, which it keeps no hold of. quiet_ms: how long it must have been quiet
  // before in_speech() turns false. Throws std::runtime_error when the settings cannot be used.
  SpeechFrames(cmd_ln_s *config, int quiet_ms);
  ~SpeechFrames();
  SpeechFrames(const SpeechFrames &) = delete;
  SpeechFrames &operator=(const SpeechFrames &) = delete;

  // Appends the frames of speech in these samples, beginning with some from before the speech. Others are dropped.
  void feed(const int16_t *samples, size_t count, std::vector<Cepstrum> &frames);

  bool in_speech() const;

  // Lets the detector begin anew, with what it knows of the background noise.
  void end_utterance();

private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace quillbrook::pocketsphinx
