// rnn, rmx, nfm and peq: everything that is one real gain per band, common to both ears, on one spectrum. With
// nothing to do it passes the sound through without a transform, bit for bit.
// What happens to a frame is decided when the next one has been heard: beginnings of words are let through in time.
// Scale [-1, 1) float; latency 960 samples.
#pragma once

#include <array>

#include "band_layout.h"
#include "delay_line.h"
#include "equalizer.h"
#include "near_field.h"
#include "noise_reduction.h"
#include "parameters.h"
#include "transform.h"

namespace bcap {

// What lies between the two transforms.
struct BandScratch {
  BandSpectra bands;
  std::array<float, kMaxBands> band_gains;
  std::array<float, kBins> bin_gains;
};

// Working memory of one block; holds nothing between calls. By turns the same bytes are the block's samples,
// the transform's own memory and what lies between.
struct alignas(16) Scratch {
  union {
    StereoSamples samples;
    TransformScratch transform;
    BandScratch between;
  };
};

class SpectralStage {
 public:
  static constexpr size_t kLatency = StereoStft::kLatency;

  void Prepare(uint32_t sample_rate_hz);  // then Reset()
  void Reset();
  void Configure(const Parameters& parameters, const ChangeFlags& changed);
  // In place; real time. `block` may be scratch.samples. pregain: the linear gain that the block went through before.
  void Process(StereoBlock block, float pregain, Scratch& scratch);
  // Of the last block: mean noise reduction over the bands and attenuation of the own voice, dB, 0 or more.
  float noise_reduction_db() const { return noise_reduction_db_; }
  float near_field_db() const { return near_field_.attenuation_db(); }

 private:
  const BandLayout* layout_ = nullptr;
  StereoStft stft_;
  NoiseReduction noise_reduction_;
  NearField near_field_;
  Equalizer equalizer_;
  float noise_amount_ = 0.0f;
  float ambience_ = 0.0f;  // share of what was taken away that is mixed back
  float noise_reduction_db_ = 0.0f;
};

}  // namespace bcap
