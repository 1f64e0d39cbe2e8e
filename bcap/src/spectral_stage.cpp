// The stages on the spectrum; see spectral_stage.h. Real time: no allocation, lock, log, wait or file.
#include "spectral_stage.h"

#include "decibels.h"

namespace bcap {
namespace {

// rmx: amount n mixes back (n / 16)^2 / 4 of the ambience that was taken away, in amplitude: nothing at 0,
// -18.5 dB at 11, -12 dB at 16. The square makes the steps even to the ear.
float ambience_share(int32_t amount) {
  const float share = static_cast<float>(amount) * (1.0f / 16.0f);
  return 0.25f * share * share;
}

}  // namespace

void SpectralStage::Prepare(uint32_t sample_rate_hz) {
  layout_ = &band_layout(sample_rate_hz);
  noise_reduction_.Prepare(sample_rate_hz);
  near_field_.Prepare(sample_rate_hz);
  Reset();
}

void SpectralStage::Reset() {
  stft_.Reset();
  noise_reduction_.Reset();
  near_field_.Reset();
  noise_reduction_db_ = 0.0f;
}

void SpectralStage::Configure(const Parameters& parameters, const ChangeFlags& changed) {
  noise_amount_ =
      parameters.rnn_enable != 0 ? static_cast<float>(parameters.rnn_amount) * (1.0f / 8.0f) : 0.0f;
  ambience_ = ambience_share(parameters.rmx_amount);
  if (changed.peq) {
    equalizer_.Configure(parameters);
  }
  if (changed.nfm) {
    near_field_.Configure(parameters);
  }
}

void SpectralStage::Process(StereoBlock block, float pregain, Scratch& scratch) {
  noise_reduction_db_ = 0.0f;
  if (noise_amount_ == 0.0f && near_field_.idle() && equalizer_.flat()) {
    stft_.PassThrough(block.left, block.right);
    return;
  }
  stft_.Analyse(block.left, block.right, scratch.transform);
  auto& [bands, band_gains, bin_gains] = scratch.between;
  float* gains = band_gains.data();
  band_gains.fill(1.0f);
  if (noise_amount_ > 0.0f || !near_field_.idle()) {
    measure_bands(*layout_, stft_.newest(), bands);
  }
  if (noise_amount_ > 0.0f) {
    noise_reduction_.Process(bands, noise_amount_, gains);
    float sum = 0.0f;
    for (size_t band = 0; band < layout_->count; ++band) {
      gains[band] += (1.0f - gains[band]) * ambience_;
      sum += gains[band];
    }
    noise_reduction_db_ = -2.0f * power_to_db(sum / static_cast<float>(layout_->count));
  }
  if (!near_field_.idle()) {
    near_field_.Process(bands, pregain * pregain, gains);
  }
  for (size_t band = 0; band < layout_->count; ++band) {
    gains[band] *= equalizer_.gains()[band];
  }
  spread_band_gains(*layout_, gains, bin_gains.data());
  apply_bin_gains(bin_gains.data(), stft_.leaving());
  stft_.Synthesise(block.left, block.right, scratch.transform);
}

}  // namespace bcap
