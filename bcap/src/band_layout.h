// The bands that every spectral stage shares: where they lie on the bins of the 1024-point transform,
// what both ears hold in them, and how gains of bands become gains of bins.
//
// Law: up to 1600 Hz each bin is a band of its own, so that the harmonics of a voice stay apart; above,
// a band is 0.65 ERB wide (equivalent rectangular bandwidth, B. Glasberg and B. Moore, "Derivation of
// auditory filter shapes from notched-noise data", Hearing Research 47, 1990, equation 3), rounded to
// bins; the last is cut off by half the sample rate. It gives 73 bands at 48 kHz and 75 at 44.1 kHz.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "transform.h"

namespace bcap {

constexpr size_t kMaxBands = 75;

struct BandLayout {
  size_t count = 0;
  std::array<uint16_t, kMaxBands + 1> edge{};    // band b holds the bins edge[b] .. edge[b + 1] - 1
  std::array<uint16_t, kMaxBands> centre_bin{};  // edge[b] <= centre_bin[b] < edge[b + 1]
  std::array<float, kMaxBands> centre_hz{};      // of centre_bin
};

// sample_rate_hz: 48000 or 44100.
const BandLayout& band_layout(uint32_t sample_rate_hz);

// What both ears hold in each band. Energies are mean squares (1.0 = full-scale square wave, 0.5 =
// full-scale sine); cross is left times conjugate right on the same scale.
struct BandSpectra {
  std::array<std::array<float, kMaxBands>, kEars> energy;
  std::array<float, kMaxBands> cross_re;
  std::array<float, kMaxBands> cross_im;
};

void measure_bands(const BandLayout& layout, const StereoSpectrum& spectrum, BandSpectra& bands);

// Band gains -> bin gains: exact at each centre bin, linear between, constant beyond the first and the
// last centre. bin_gains: kBins values.
void spread_band_gains(const BandLayout& layout, const float* band_gains, float* bin_gains);

// Both ears times the same real gain.
void apply_bin_gains(const float* bin_gains, StereoSpectrum& spectrum);

}  // namespace bcap
