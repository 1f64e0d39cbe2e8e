// The capture library's own blocks for the training scripts, so that features and gains exist once.
// Built as a shared library and called by capture_blocks.py. Signals are planar: left, then right.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "band_layout.h"
#include "noise_features.h"
#include "transform.h"

namespace {

using namespace bcap;

constexpr uint32_t kSampleRateHz = 48000;

struct Analysis {
  StereoStft stft;
  StereoSpectrum spectrum;
  TransformScratch scratch;
  BandSpectra bands;

  void Next(const float* left, const float* right) {
    stft.Analyse(left, right, spectrum, scratch);
    measure_bands(band_layout(kSampleRateHz), spectrum, bands);
  }
};

}  // namespace

extern "C" {

int capture_feature_count() {
  return static_cast<int>(kNetworkFeatures);
}
int capture_band_count() {
  return static_cast<int>(kNetworkBands);
}

// Of bands at 48 kHz, kNetworkBands + 1 of them.
void capture_band_edges_hz(float* hz) {
  for (size_t band = 0; band <= kNetworkBands; ++band) {
    hz[band] = (band_layout(kSampleRateHz).edge[band] - 0.5f) * kSampleRateHz / kFrameSamples;
  }
}

// What the network hears in `blocks` blocks at 48 kHz: features[blocks][kNetworkFeatures].
void capture_features(const float* left, const float* right, size_t blocks, float* features) {
  auto analysis = std::make_unique<Analysis>();
  auto noise_features = std::make_unique<NoiseFeatures>();
  for (size_t block = 0; block < blocks; ++block) {
    analysis->Next(left + block * kBlockFrames, right + block * kBlockFrames);
    NetworkFeatures out;
    noise_features->Process(analysis->bands, out);
    std::copy(out.begin(), out.end(), features + block * kNetworkFeatures);
  }
}

// Energy of the clean voice, energy of the mixture and their common part (what of the clean voice is in
// phase with the mixture), over both ears: out[blocks][3][kNetworkBands].
void capture_targets(const float* clean_left, const float* clean_right, const float* mix_left,
                     const float* mix_right, size_t blocks, float* out) {
  auto clean = std::make_unique<Analysis>();
  auto mix = std::make_unique<Analysis>();
  const BandLayout& layout = band_layout(kSampleRateHz);
  for (size_t block = 0; block < blocks; ++block, out += 3 * kNetworkBands) {
    const size_t at = block * kBlockFrames;
    clean->Next(clean_left + at, clean_right + at);
    mix->Next(mix_left + at, mix_right + at);
    for (size_t band = 0; band < kNetworkBands; ++band) {
      out[band] = clean->bands.energy[0][band] + clean->bands.energy[1][band];
      out[kNetworkBands + band] = mix->bands.energy[0][band] + mix->bands.energy[1][band];
      float common = 0.0f;
      for (size_t ear = 0; ear < kEars; ++ear) {
        const Spectrum& c = clean->spectrum[ear];
        const Spectrum& m = mix->spectrum[ear];
        for (size_t bin = layout.edge[band]; bin < layout.edge[band + 1]; ++bin) {
          common += c.re[bin] * m.re[bin] + c.im[bin] * m.im[bin];
        }
      }
      out[2 * kNetworkBands + band] = common * 4.0f / (kFrameSamples * kFrameSamples);
    }
  }
}

// Both ears times given gains[blocks][kNetworkBands], in place. Output comes 512 samples late.
void capture_apply_gains(float* left, float* right, size_t blocks, const float* gains) {
  auto analysis = std::make_unique<Analysis>();
  float bin_gains[kBins];
  for (size_t block = 0; block < blocks; ++block, gains += kNetworkBands) {
    float* l = left + block * kBlockFrames;
    float* r = right + block * kBlockFrames;
    analysis->Next(l, r);
    spread_band_gains(band_layout(kSampleRateHz), gains, bin_gains);
    apply_bin_gains(bin_gains, analysis->spectrum);
    analysis->stft.Synthesise(analysis->spectrum, l, r, analysis->scratch);
  }
}
}
