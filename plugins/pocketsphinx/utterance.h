// From samples to the text of one utterance after the other, with a decoder that belongs to one call.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "decoder.h"
#include "front_end.h"
#include "hints.h"
#include "voicing.h"

namespace quillbrook::pocketsphinx {

// The channel of a call as the decoder has come to know it: means over frames of speech.
struct Channel {
  Cepstrum means = Decoder::usual_means();
  double weight = 100;  // in frames: two to three words

  // The means that fit these frames best, given what is known of the channel.
  Cepstrum adapted_to(const std::vector<Cepstrum> &frames) const;
  void learn(const std::vector<Cepstrum> &frames);
};

struct Result {
  std::string text;         // empty when no word was understood
  int confidence = 0;       // 1 to 100 with a text
  double shortfall = 0;     // that the confidence comes from, with hints
  bool is_attempt = false;  // somebody seems to have said something, be it with a text or without
};

class UtteranceDecoder {
public:
  // Called after each few frames of work, so that the owner can attend to other things. False: he wants no result any
  // more.
  using Between = std::function<bool()>;

  // hints may be empty for a decoder with a language model. The arguments outlive this object.
  UtteranceDecoder(Decoder &decoder, const Hints *hints, int quiet_ms, Channel &channel, Between between);
  ~UtteranceDecoder();
  UtteranceDecoder(const UtteranceDecoder &) = delete;
  UtteranceDecoder &operator=(const UtteranceDecoder &) = delete;

  void set_sample_rate(int samples_a_second) {
    rate_ = samples_a_second;
    front_end_.set_sample_rate(samples_a_second);
  }

  // At most some 20 ms at a time: the end of speech is noticed between calls.
  void feed(const int16_t *samples, size_t count);

  // Something that may be speech has been heard since the last finish().
  bool has_speech() const { return begun_; }
  // It is being heard, or ended less than the quiet time ago.
  bool in_speech() const { return front_end_.in_speech(); }
  int speech_ms() const { return static_cast<int>(frames_.size()) * kFrameMs; }

  // What the caller seems to have said by now.
  std::string hypothesis() const;

  // Ends the utterance: decodes it again with what is known by now of the channel, and judges the outcome. Without a
  // text when it was given up.
  Result finish();

  // Forgets the words up to here, not the sounds behind the last of them.
  void drop_words();

private:
  bool search(size_t first_frame);
  bool decode_again(const Cepstrum &means);
  void judge(Result &result);
  void judge_hints(Result &result);
  void begin();
  bool is_attempt() const;
  std::string spell(const std::string &text) const { return hints_ == nullptr ? text : hints_->spell(text); }

  Decoder &decoder_;
  const Hints *hints_;
  Channel &channel_;
  FrontEnd front_end_;
  Voicing voicing_;
  int rate_ = 8000;
  const int quiet_ms_;
  Between between_;
  std::vector<Cepstrum> frames_;  // of this utterance
  bool begun_ = false;
};

}  // namespace quillbrook::pocketsphinx
