#include <webrtc/modules/audio_processing/include/audio_processing.h>

#include "failure.h"
#include "voice_library.h"

namespace quillbrook::transcription {

struct VoiceLibrary::Processing {
  std::unique_ptr<webrtc::AudioProcessing> chain;
  webrtc::StreamConfig form;
};

VoiceLibrary::VoiceLibrary(int rate, int strictness)
    : processing_(new Processing{std::unique_ptr<webrtc::AudioProcessing>(webrtc::AudioProcessing::Create()),
                                 webrtc::StreamConfig(rate, 1)}) {
  using Likelihood = webrtc::VoiceDetection::Likelihood;
  constexpr int kStrictest = 3;
  webrtc::VoiceDetection *detection = processing_->chain ? processing_->chain->voice_detection() : nullptr;
  const bool ready = detection != nullptr && detection->Enable(true) == 0 &&
                     detection->set_likelihood(static_cast<Likelihood>(kStrictest - strictness)) == 0;
  if (!ready) throw common::Failure("the voice detector does not start");
}

VoiceLibrary::~VoiceLibrary() = default;

bool VoiceLibrary::hears(float *frame) {
  const webrtc::StreamConfig &form = processing_->form;
  return processing_->chain->ProcessStream(&frame, form, form, &frame) == 0 &&
         processing_->chain->voice_detection()->stream_has_voice();
}

}  // namespace quillbrook::transcription
