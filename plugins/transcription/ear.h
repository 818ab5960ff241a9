// Cuts utterances out of a stream. Nothing without speech leaves it.
//
// An utterance begins when most of the last frames hold speech; what came shortly before them belongs to it (pre-roll),
// since words begin softly. It ends when it has been quiet for long enough (hang-over), and keeps as much of the quiet
// as it has pre-roll.
#pragma once

#include <cstdint>
#include <vector>

#include "voice_detector.h"

namespace quillbrook::transcription {

struct Utterance {
  std::vector<int16_t> samples;
  int speech_ms = 0;  // frames that hold speech
};

class Ear {
public:
  struct Limits {
    int silence_ms;  // quiet that ends an utterance
    int longest_ms;  // of an utterance, after which it ends without any
  };
  Ear(int rate, int strictness, int floor, const Limits &limits);

  // Listens to the next samples, up to the end of an utterance; then it returns true, and the rest waits for the next
  // call (which may come with no samples). The utterance is to be taken first.
  bool feed(const std::vector<int16_t> &samples);

  // An utterance is under way.
  bool in_utterance() const { return in_utterance_; }
  // Speech was heard just now: not the quiet at the utterance's end.
  bool hears_speech() const { return in_utterance_ && quiet_frames_ < kPauseFrames; }
  // The utterance under way, or the one that has just ended.
  const Utterance &utterance() const { return utterance_; }
  // Its length in milliseconds.
  int length_ms() const;
  // Takes out the one that has just ended.
  Utterance take();
  // Ends the one under way, and takes it out.
  Utterance cut_off();

private:
  static constexpr int kFrameMs = 10;
  static constexpr int kPauseFrames = 15;

  bool take_frame(const int16_t *frame);
  void listen_for_speech(const int16_t *frame, bool speech);

  VoiceDetector detector_;
  const Limits limits_;
  std::vector<int16_t> input_;  // from taken_ on not listened to yet
  size_t taken_ = 0;
  std::vector<int16_t> before_;  // pre-roll
  unsigned recent_ = 0;          // which of the last frames held speech, a bit each
  int frames_ = 0;               // of the stream, up to a limit
  Utterance utterance_;
  bool in_utterance_ = false;
  int quiet_frames_ = 0;  // at the end of the utterance
};

}  // namespace quillbrook::transcription
