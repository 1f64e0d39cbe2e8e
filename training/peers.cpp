// Noise reduction of two general-purpose processors, for evaluate.py to measure ours against. Signals are at 48 kHz and
// processed in place; what does not fill a processor's last block stays as it is.
#include <speex/speex_preprocess.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "webrtc/modules/audio_processing/include/audio_processing.h"

namespace {

constexpr int kSampleRateHz = 48000;
constexpr size_t kSpeexBlock = 512;
constexpr size_t kWebrtcBlock = 480;  // it takes 10 ms at a time

}  // namespace

extern "C" {

// One ear of 16-bit PCM, the noise reduced by up to 25 dB; comes 512 samples late.
void peer_speex(int16_t* ear, size_t samples) {
  const std::unique_ptr<SpeexPreprocessState, void (*)(SpeexPreprocessState*)> state(
      speex_preprocess_state_init(kSpeexBlock, kSampleRateHz), speex_preprocess_state_destroy);
  int reduction_db = -25;
  speex_preprocess_ctl(state.get(), SPEEX_PREPROCESS_SET_NOISE_SUPPRESS, &reduction_db);
  for (size_t at = 0; at + kSpeexBlock <= samples; at += kSpeexBlock) {
    speex_preprocess_run(state.get(), ear + at);
  }
}

// Both ears in one instance, full scale 1.0, its noise reduction alone, at its level "high".
void peer_webrtc(float* left, float* right, size_t samples) {
  const std::unique_ptr<webrtc::AudioProcessing> processing(webrtc::AudioProcessing::Create());
  processing->noise_suppression()->set_level(webrtc::NoiseSuppression::kHigh);
  processing->noise_suppression()->Enable(true);
  const webrtc::StreamConfig stereo(kSampleRateHz, 2);
  for (size_t at = 0; at + kWebrtcBlock <= samples; at += kWebrtcBlock) {
    float* channels[2] = {left + at, right + at};
    processing->ProcessStream(channels, stereo, stereo, channels);
  }
}
}
