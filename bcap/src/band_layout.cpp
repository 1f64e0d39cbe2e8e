// The shared bands; see band_layout.h. Real time: no allocation, lock, log, wait or file.
#include "band_layout.h"

namespace bcap {
namespace {

constexpr double kSingleBinsUpToHz = 1600.0;
constexpr double kWidthErb = 0.65;  // wider saves work, narrower follows the voice more closely

constexpr double erb_hz(double frequency_hz) {
  return 24.7 * (4.37e-3 * frequency_hz + 1.0);
}

constexpr BandLayout make_layout(uint32_t sample_rate_hz) {
  BandLayout layout;
  const double bin_hz = static_cast<double>(sample_rate_hz) / kFrameSamples;
  size_t edge = 0;
  while (edge < kBins) {
    const double edge_hz = static_cast<double>(edge) * bin_hz;
    const double erb_bins = kWidthErb * erb_hz(edge_hz) / bin_hz;
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): positive, and std::lround is no constant expression
    const auto rounded = static_cast<size_t>(erb_bins + 0.5);
    const size_t width = edge_hz < kSingleBinsUpToHz ? 1 : rounded;
    const size_t next = edge + width < kBins ? edge + width : kBins;
    const size_t centre = (edge + next - 1) / 2;
    layout.edge[layout.count] = static_cast<uint16_t>(edge);
    layout.centre_bin[layout.count] = static_cast<uint16_t>(centre);
    layout.centre_hz[layout.count] = static_cast<float>(static_cast<double>(centre) * bin_hz);
    ++layout.count;
    layout.edge[layout.count] = static_cast<uint16_t>(next);
    edge = next;
  }
  return layout;
}

constexpr BandLayout kLayout48000 = make_layout(48000);
constexpr BandLayout kLayout44100 = make_layout(44100);
static_assert(kLayout48000.count == 73, "the band tables set at 48 kHz have 73 values");
static_assert(kLayout44100.count == 75, "the band tables set at 44.1 kHz have 75 values");

// Sum of |bin|^2 over bins 0 .. kBins - 1 -> mean square of the unwindowed signal: the window halves the
// mean square, and each bin stands for its mirror image as well.
constexpr float kEnergyScale = 4.0f / (static_cast<float>(kFrameSamples) * kFrameSamples);

}  // namespace

const BandLayout& band_layout(uint32_t sample_rate_hz) {
  return sample_rate_hz == 44100 ? kLayout44100 : kLayout48000;
}

void measure_bands(const BandLayout& layout, const StereoSpectrum& spectrum, BandSpectra& bands) {
  const Spectrum& left = spectrum[0];
  const Spectrum& right = spectrum[1];
  for (size_t band = 0; band < layout.count; ++band) {
    float left_energy = 0.0f;
    float right_energy = 0.0f;
    float cross_re = 0.0f;
    float cross_im = 0.0f;
    for (size_t bin = layout.edge[band]; bin < layout.edge[band + 1]; ++bin) {
      left_energy += left.re[bin] * left.re[bin] + left.im[bin] * left.im[bin];
      right_energy += right.re[bin] * right.re[bin] + right.im[bin] * right.im[bin];
      cross_re += left.re[bin] * right.re[bin] + left.im[bin] * right.im[bin];
      cross_im += left.im[bin] * right.re[bin] - left.re[bin] * right.im[bin];
    }
    bands.energy[0][band] = kEnergyScale * left_energy;
    bands.energy[1][band] = kEnergyScale * right_energy;
    bands.cross_re[band] = kEnergyScale * cross_re;
    bands.cross_im[band] = kEnergyScale * cross_im;
  }
}

void spread_band_gains(const BandLayout& layout, const float* band_gains, float* bin_gains) {
  for (size_t band = 0; band + 1 < layout.count; ++band) {
    const size_t from = layout.centre_bin[band];
    const size_t to = layout.centre_bin[band + 1];
    const float slope = (band_gains[band + 1] - band_gains[band]) / static_cast<float>(to - from);
    for (size_t bin = from; bin < to; ++bin) {
      bin_gains[bin] = band_gains[band] + slope * static_cast<float>(bin - from);
    }
  }
  for (size_t bin = layout.centre_bin[layout.count - 1]; bin < kBins; ++bin) {
    bin_gains[bin] = band_gains[layout.count - 1];
  }
}

void apply_bin_gains(const float* bin_gains, StereoSpectrum& spectrum) {
  for (Spectrum& ear : spectrum) {
    for (size_t bin = 0; bin < kBins; ++bin) {
      ear.re[bin] *= bin_gains[bin];
      ear.im[bin] *= bin_gains[bin];
    }
  }
}

}  // namespace bcap
