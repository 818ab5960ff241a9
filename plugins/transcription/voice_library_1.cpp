#include <modules/audio_processing/include/audio_processing.h>

#include "failure.h"
#include "voice_library.h"

namespace quillbrook::transcription {

struct VoiceLibrary::Processing {
  rtc::scoped_refptr<webrtc::AudioProcessing> chain;
  webrtc::StreamConfig form;
};

VoiceLibrary::VoiceLibrary(int rate, int /*strictness*/)
    : processing_(new Processing{rtc::scoped_refptr<webrtc::AudioProcessing>(webrtc::AudioProcessingBuilder().Create()),
                                 webrtc::StreamConfig(rate, 1)}) {
  if (!processing_->chain) throw common::Failure("the voice detector does not start");
  webrtc::AudioProcessing::Config config;
  config.voice_detection.enabled = true;
  processing_->chain->ApplyConfig(config);
}

VoiceLibrary::~VoiceLibrary() = default;

bool VoiceLibrary::hears(float *frame) {
  const webrtc::StreamConfig &form = processing_->form;
  return processing_->chain->ProcessStream(&frame, form, form, &frame) == 0 &&
         processing_->chain->GetStatistics().voice_detected.value_or(false);
}

}  // namespace quillbrook::transcription
