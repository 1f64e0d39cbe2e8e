// The capture library's own blocks for the training scripts, so that features and gains exist once.
// Built as a shared library and called by capture_blocks.py. Signals are planar: left, then right.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "band_layout.h"
#include "noise_features.h"
#include "noise_network_weights.h"
#include "noise_reduction.h"
#include "transform.h"

namespace {

using namespace bcap;

constexpr uint32_t kSampleRateHz = 48000;
constexpr size_t kTargets = 7;  // of a mixture
// Up to 4.5 kHz: the bins that STOI hears, and three more.
constexpr size_t kHeardBins = 96;

struct Analysis {
  StereoStft stft;
  TransformScratch scratch;

  void Next(const float* left, const float* right) { stft.Analyse(left, right, scratch); }
};

// Of one frame.
struct Mixture {
  StereoSpectrum clean{};
  StereoSpectrum mix{};
  BandSpectra bands{};  // of the mix
};

}  // namespace

extern "C" {

int capture_feature_count() {
  return static_cast<int>(kNetworkFeatures);
}
int capture_target_count() {
  return static_cast<int>(kTargets);
}
int capture_overlap() {
  return static_cast<int>(kOverlap);
}
int capture_heard_bin_count() {
  return static_cast<int>(kHeardBins);
}
int capture_band_count() {
  return static_cast<int>(kNetworkBands);
}

// Where some kinds of features begin, then the first band of the groups and how many make one.
void capture_feature_layout(int* layout) {
  for (const size_t number :
       {kAboveOwnFloor, kAboveSceneFloor, kCoherence, kInPhase, kLevelDifference, kUsualPhase,
        kAgainstPeak, kFirstGroupedBand, kBandsPerGroup}) {
    *layout++ = static_cast<int>(number);
  }
}

// The sizes of the network, then the scales and the offset of what export.py writes.
void capture_network_layout(int* layout) {
  for (const size_t size : {kDenseUnits, kRecurrentUnits, kContextUnits, kSharedUnits, kSharedBands,
                            kSeenNeighbours, kSharedInputs}) {
    *layout++ = static_cast<int>(size);
  }
  for (const float steps : {kFeatureSteps, kActivationSteps, kSharedSteps}) {
    *layout++ = static_cast<int>(steps);
  }
  *layout = kWeightOffset;
}

// What the fall of gains without a voice goes by; see noise_reduction.h.
void capture_voice_presence(float* numbers) {
  for (const float number : {static_cast<float>(kVoiceFrom), static_cast<float>(kVoiceTo),
                             kVoicePresent, kVoiceRise, kVoiceFall, kNoVoiceGain}) {
    *numbers++ = number;
  }
}

// Of bands at 48 kHz, kNetworkBands + 1 of them.
void capture_band_edges_hz(float* hz) {
  for (size_t band = 0; band <= kNetworkBands; ++band) {
    hz[band] = (band_layout(kSampleRateHz).edge[band] - 0.5f) * kSampleRateHz / kFrameSamples;
  }
}

// bin_gains[kBins] at 48 kHz of gains[kNetworkBands].
void capture_spread_gains(const float* gains, float* bin_gains) {
  spread_band_gains(band_layout(kSampleRateHz), gains, bin_gains);
}

// A mixture at 48 kHz as the network hears it, features[blocks][kNetworkFeatures], and what there is to know about the frame
// that its gains are for, the one before, targets[blocks][kTargets][kNetworkBands]: energy of the clean voice, energy of the mixture, and their common part (what of
// the clean voice is in phase with the mixture), over both ears; left times the conjugate of right, real and imaginary, of
// the clean voice and of the mixture. spectra[blocks][2][kEars][2][kHeardBins]: of the clean voice and of the mixture, real
// and imaginary. voice, noise, own: left then right, `stride` samples apart;
// each is multiplied by its response[kEars][kBins], and the sum of the three is the mixture. `own` is what the microphones
// add themselves.
void capture_mixture(const float* voice, const float* voice_response, const float* noise,
                     const float* noise_response, const float* own, const float* own_response,
                     size_t stride, size_t blocks, float* features, float* targets,
                     float* spectra) {
  constexpr size_t kParts = 3;
  const std::array<const float*, kParts> sounds{voice, noise, own};
  const std::array<const float*, kParts> responses{voice_response, noise_response, own_response};
  const BandLayout& layout = band_layout(kSampleRateHz);
  auto parts = std::make_unique<std::array<Analysis, kParts>>();
  auto newest = std::make_unique<Mixture>();
  auto leaving = std::make_unique<Mixture>();
  auto noise_features = std::make_unique<NoiseFeatures>();
  BandSpectra clean_bands;
  NetworkFeatures out{};
  for (size_t block = 0; block < blocks; ++block, targets += kTargets * kNetworkBands) {
    std::swap(newest, leaving);
    *newest = {};
    for (size_t part = 0; part < kParts; ++part) {
      Analysis& analysis = (*parts)[part];
      const float* left = sounds[part] + block * kBlockFrames;
      analysis.Next(left, left + stride);
      for (size_t ear = 0; ear < kEars; ++ear) {
        const Spectrum& sound = analysis.stft.newest()[ear];
        const float* response = responses[part] + ear * kBins;
        const auto add = [&](Spectrum& sum) {
          for (size_t bin = 0; bin < kBins; ++bin) {
            sum.re[bin] += sound.re[bin] * response[bin];
            sum.im[bin] += sound.im[bin] * response[bin];
          }
        };
        add(newest->mix[ear]);
        if (part == 0) {
          add(newest->clean[ear]);
        }
      }
    }
    measure_bands(layout, newest->mix, newest->bands);
    noise_features->Process(newest->bands, out);
    features = std::copy(out.begin(), out.end(), features);
    const auto& [clean, mix, mix_bands] = *leaving;
    measure_bands(layout, clean, clean_bands);
    for (size_t band = 0; band < kNetworkBands; ++band) {
      targets[band] = clean_bands.energy[0][band] + clean_bands.energy[1][band];
      targets[kNetworkBands + band] = mix_bands.energy[0][band] + mix_bands.energy[1][band];
      float common = 0.0f;
      for (size_t ear = 0; ear < kEars; ++ear) {
        const Spectrum& c = clean[ear];
        const Spectrum& m = mix[ear];
        for (size_t bin = layout.edge[band]; bin < layout.edge[band + 1]; ++bin) {
          common += c.re[bin] * m.re[bin] + c.im[bin] * m.im[bin];
        }
      }
      targets[2 * kNetworkBands + band] = common * 4.0f / (kFrameSamples * kFrameSamples);
      targets[3 * kNetworkBands + band] = clean_bands.cross_re[band];
      targets[4 * kNetworkBands + band] = clean_bands.cross_im[band];
      targets[5 * kNetworkBands + band] = mix_bands.cross_re[band];
      targets[6 * kNetworkBands + band] = mix_bands.cross_im[band];
    }
    for (const StereoSpectrum* sound : {&clean, &mix}) {
      for (const Spectrum& ear : *sound) {
        spectra = std::copy_n(ear.re.begin(), kHeardBins, spectra);
        spectra = std::copy_n(ear.im.begin(), kHeardBins, spectra);
      }
    }
  }
}

// Both ears times given gains[blocks][kNetworkBands], each of the frame before the one that ends with its block, in place.
// Output comes 960 samples late.
void capture_apply_gains(float* left, float* right, size_t blocks, const float* gains) {
  auto analysis = std::make_unique<Analysis>();
  float bin_gains[kBins];
  for (size_t block = 0; block < blocks; ++block, gains += kNetworkBands) {
    float* l = left + block * kBlockFrames;
    float* r = right + block * kBlockFrames;
    analysis->Next(l, r);
    spread_band_gains(band_layout(kSampleRateHz), gains, bin_gains);
    apply_bin_gains(bin_gains, analysis->stft.leaving());
    analysis->stft.Synthesise(l, r, analysis->scratch);
  }
}
}
