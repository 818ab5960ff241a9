#include "ear.h"

#include <algorithm>

namespace quillbrook::transcription {

namespace {

constexpr int kPreRollFrames = 30;
// So many of the last frames hold speech when an utterance begins: a click is shorter.
constexpr unsigned kOnsetWindow = (1U << 10) - 1;  // frames, as bits
constexpr int kOnsetFrames = 6;
// Before it knows the line's noise, the detector takes anything for speech. What is said meanwhile is pre-roll.
constexpr int kSettlingFrames = 15;

}  // namespace

Ear::Ear(int rate, int strictness, int floor, const Limits &limits)
    : detector_(rate, strictness, floor), limits_(limits) {}

bool Ear::feed(const std::vector<int16_t> &samples) {
  input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(taken_));
  taken_ = 0;
  input_.insert(input_.end(), samples.begin(), samples.end());
  while (input_.size() - taken_ >= detector_.frame_size()) {
    const int16_t *frame = input_.data() + taken_;
    taken_ += detector_.frame_size();
    if (take_frame(frame)) return true;
  }
  return false;
}

// True when an utterance ends with this frame.
bool Ear::take_frame(const int16_t *frame) {
  const bool speech = detector_.hears(frame);
  if (!in_utterance_) {
    listen_for_speech(frame, speech);
    return false;
  }
  utterance_.samples.insert(utterance_.samples.end(), frame, frame + detector_.frame_size());
  utterance_.speech_ms += speech ? kFrameMs : 0;
  quiet_frames_ = speech ? 0 : quiet_frames_ + 1;
  const bool over = quiet_frames_ * kFrameMs >= limits_.silence_ms;
  if (!over && length_ms() < limits_.longest_ms) return false;
  in_utterance_ = !over;  // one that is too long is cut, and goes on as the next one
  if (utterance_.speech_ms > 0) return true;
  utterance_ = {};
  return false;
}

void Ear::listen_for_speech(const int16_t *frame, bool speech) {
  if (frames_ < kSettlingFrames) {
    ++frames_;
    speech = false;
  }
  before_.insert(before_.end(), frame, frame + detector_.frame_size());
  const size_t kept = kPreRollFrames * detector_.frame_size();
  if (before_.size() > kept) before_.erase(before_.begin(), before_.end() - static_cast<std::ptrdiff_t>(kept));
  recent_ = (recent_ << 1 | (speech ? 1 : 0)) & kOnsetWindow;
  const int voiced = __builtin_popcount(recent_);
  if (voiced < kOnsetFrames) return;
  utterance_.samples.swap(before_);
  utterance_.speech_ms = voiced * kFrameMs;
  before_.clear();
  recent_ = 0;
  quiet_frames_ = 0;
  in_utterance_ = true;
}

int Ear::length_ms() const {
  return static_cast<int>(utterance_.samples.size() / detector_.frame_size()) * kFrameMs;
}

Utterance Ear::cut_off() {
  in_utterance_ = false;
  return take();
}

Utterance Ear::take() {
  Utterance taken;
  std::swap(taken, utterance_);
  const int surplus = std::max(quiet_frames_ - kPreRollFrames, 0);
  taken.samples.resize(taken.samples.size() - std::min(taken.samples.size(), surplus * detector_.frame_size()));
  return taken;
}

}  // namespace quillbrook::transcription
