#include "voice_detector.h"

#include <webrtc/modules/audio_processing/include/audio_processing.h>

#include <algorithm>
#include <cstdlib>

#include "failure.h"

namespace quillbrook::transcription {

VoiceDetector::VoiceDetector(int rate, int strictness, int floor)
    : processing_(webrtc::AudioProcessing::Create()),
      rate_(rate),
      floor_(floor),
      frame_(static_cast<size_t>(rate / 100)) {
  using Likelihood = webrtc::VoiceDetection::Likelihood;
  constexpr int kStrictest = 3;
  webrtc::VoiceDetection *detection = processing_ ? processing_->voice_detection() : nullptr;
  const bool ready = detection != nullptr && detection->Enable(true) == 0 &&
                     detection->set_likelihood(static_cast<Likelihood>(kStrictest - strictness)) == 0;
  if (!ready) throw common::Failure("the voice detector does not start");
}

VoiceDetector::~VoiceDetector() = default;

bool VoiceDetector::hears(const int16_t *frame) {
  constexpr float kScale = 1.0F / 32768;
  long loudness = 0;
  for (size_t i = 0; i < frame_.size(); ++i) {
    loudness += std::abs(frame[i]);
    frame_[i] = static_cast<float>(frame[i]) * kScale;
  }
  // Also what is too quiet is looked at: that is how the detector gets to know the noise of the line.
  const webrtc::StreamConfig form(rate_, 1);
  float *channel = frame_.data();
  const bool looked = processing_->ProcessStream(&channel, form, form, &channel) == 0;
  return looked && loudness >= static_cast<long>(frame_.size()) * floor_ &&
         processing_->voice_detection()->stream_has_voice();
}

}  // namespace quillbrook::transcription
