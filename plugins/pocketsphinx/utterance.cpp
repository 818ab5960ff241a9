#include "utterance.h"

#include <algorithm>

#include "confidence.h"

namespace quillbrook::pocketsphinx {
namespace {

// Frames this far below the loudest, in the first cepstral coefficient, are silence and say nothing of the channel.
constexpr float kSilenceDepth = 45.0F;
constexpr double kGreatestWeight = 300;  // the channel is never known so well that it could not change
constexpr int kQuietKeptMs = 200;        // the detector hands over this much from before the speech
// A sound without words is an attempt to say something when it is so long, the quiet around it not counted, or shorter
// with so much voice in it. What is shorter still, or has no voice, is a noise.
constexpr int kLongAttemptMs = 500;
constexpr int kShortAttemptMs = 150;
constexpr int kVoiceOfAttemptMs = 100;
constexpr size_t kBlock = 8;  // frames between two looks around: 1 ms of work, or 40 with a language model

struct SpeechMean {
  Cepstrum mean{};
  double count = 0;
};

SpeechMean speech_mean(const std::vector<Cepstrum> &frames) {
  float loudest = 0;
  for (const Cepstrum &frame : frames) loudest = std::max(loudest, frame[0]);
  SpeechMean speech;
  for (const Cepstrum &frame : frames) {
    if (frame[0] < loudest - kSilenceDepth) continue;
    speech.count += 1;
    for (size_t i = 0; i < frame.size(); ++i) {
      speech.mean[i] += (frame[i] - speech.mean[i]) / static_cast<float>(speech.count);
    }
  }
  return speech;
}

}  // namespace

Cepstrum Channel::adapted_to(const std::vector<Cepstrum> &frames) const {
  SpeechMean speech = speech_mean(frames);
  Cepstrum blend{};
  for (size_t i = 0; i < blend.size(); ++i) {
    blend[i] = static_cast<float>((means[i] * weight + speech.mean[i] * speech.count) / (weight + speech.count));
  }
  return blend;
}

void Channel::learn(const std::vector<Cepstrum> &frames) {
  SpeechMean speech = speech_mean(frames);
  means = adapted_to(frames);
  weight = std::min(weight + speech.count, kGreatestWeight);
}

UtteranceDecoder::UtteranceDecoder(Decoder &decoder, const Hints *hints, int quiet_ms, Channel &channel,
                                   Between between)
    : decoder_(decoder),
      hints_(hints),
      channel_(channel),
      front_end_(decoder.config(), quiet_ms),
      quiet_ms_(quiet_ms),
      between_(std::move(between)) {}

UtteranceDecoder::~UtteranceDecoder() {
  if (begun_) decoder_.end();
}

void UtteranceDecoder::begin() {
  decoder_.search_words();
  decoder_.set_means(channel_.means);
  decoder_.begin();
  begun_ = true;
}

void UtteranceDecoder::feed(const int16_t *samples, size_t count) {
  size_t before = frames_.size();
  front_end_.feed(samples, count, frames_);
  if (voicing_.voice_ms() < kVoiceOfAttemptMs) voicing_.feed(samples, count, rate_);
  if (frames_.empty()) voicing_.forget(kQuietKeptMs);
  if (frames_.size() == before) return;
  if (!begun_) begin();
  search(before);
}

std::string UtteranceDecoder::hypothesis() const {
  return begun_ ? spell(decoder_.hypothesis()) : std::string();
}

// False when it was given up.
bool UtteranceDecoder::search(size_t first_frame) {
  for (size_t done = first_frame; done < frames_.size(); done += kBlock) {
    decoder_.process(frames_.data() + done, std::min(kBlock, frames_.size() - done));
    if (!between_()) return false;
  }
  return true;
}

// False when it was given up. Leaves the decoder at the end of an utterance either way.
bool UtteranceDecoder::decode_again(const Cepstrum &means) {
  decoder_.set_means(means);
  decoder_.begin();
  bool complete = search(0);
  decoder_.end();
  return complete;
}

void UtteranceDecoder::judge(Result &result) {
  if (hints_ == nullptr) {
    // No second run: it would keep the caller waiting for a third of the time that he spoke.
    result.text = decoder_.hypothesis();
    result.confidence = result.text.empty() ? 0 : kLanguageModelConfidence;
  } else {
    judge_hints(result);
  }
  if (!result.text.empty()) channel_.learn(frames_);
}

void UtteranceDecoder::judge_hints(Result &result) {
  Cepstrum means = channel_.adapted_to(frames_);
  if (!decode_again(means)) return;
  std::string text = decoder_.hypothesis();
  if (text.empty()) return;
  std::vector<Segment> words = decoder_.segments();
  decoder_.search_phones();
  if (!decode_again(means)) return;
  result.text = spell(text);
  result.shortfall = shortfall(words, decoder_.segments());
  result.confidence = confidence(result.shortfall);
}

bool UtteranceDecoder::is_attempt() const {
  const int length_ms = speech_ms() - kQuietKeptMs - quiet_ms_;
  return length_ms >= kLongAttemptMs || (length_ms >= kShortAttemptMs && voicing_.voice_ms() >= kVoiceOfAttemptMs);
}

Result UtteranceDecoder::finish() {
  Result result;
  if (!begun_) return result;
  decoder_.end();
  begun_ = false;
  judge(result);
  result.is_attempt = !result.text.empty() || is_attempt();
  front_end_.end_utterance();
  frames_.clear();
  voicing_.forget(0);
  return result;
}

void UtteranceDecoder::drop_words() {
  if (!begun_) return;
  decoder_.end();
  int last = -1;
  for (const Segment &segment : decoder_.segments()) {
    if (!segment.is_filler) last = std::max(last, segment.last_frame);
  }
  size_t spent = std::min(frames_.size(), static_cast<size_t>(last + 1));
  frames_.erase(frames_.begin(), frames_.begin() + static_cast<std::ptrdiff_t>(spent));
  begun_ = false;
  if (frames_.empty()) return;
  begin();
  search(0);
}

}  // namespace quillbrook::pocketsphinx
