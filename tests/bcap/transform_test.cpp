// Frames in and out, and what lies in the bands.
#include "bcap/src/transform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

#include "bcap/src/band_layout.h"

namespace {

using namespace bcap;

constexpr double kTurn = 6.283185307179586;

using Channel = std::vector<float>;

Channel noise(unsigned seed, size_t samples) {
  std::minstd_rand generator(seed);
  std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
  Channel channel(samples);
  for (float& sample : channel) {
    sample = uniform(generator);
  }
  return channel;
}

// Through the frames and back, block by block, with all bins times 1 or the given gains.
void Pass(StereoStft& stft, Channel& left, Channel& right,
          const std::vector<float>& bin_gains = {}) {
  StereoSpectrum spectrum;
  TransformScratch scratch;
  for (size_t at = 0; at + 512 <= left.size(); at += 512) {
    stft.Analyse(&left[at], &right[at], spectrum, scratch);
    if (!bin_gains.empty()) {
      apply_bin_gains(bin_gains.data(), spectrum);
    }
    stft.Synthesise(spectrum, &left[at], &right[at], scratch);
  }
}

TEST(StereoStftTest, UntouchedSpectraComeBack512SamplesLater) {
  const Channel left = noise(1, 8192), right = noise(2, 8192);
  Channel left_out = left, right_out = right;
  StereoStft stft;
  Pass(stft, left_out, right_out);
  for (size_t n = 0; n < 512; ++n) {
    ASSERT_NEAR(left_out[n], 0.0f, 1e-6f);
  }
  for (size_t n = 512; n < left.size(); ++n) {
    ASSERT_NEAR(left_out[n], left[n - 512], 1e-6f) << n;
    ASSERT_NEAR(right_out[n], right[n - 512], 1e-6f) << n;
  }
}

TEST(StereoStftTest, EqualEarsStayEqualAndExchangedEarsComeOutExchangedBitForBit) {
  const Channel a = noise(3, 4096), b = noise(4, 4096);
  std::vector<float> gains(513);
  for (size_t bin = 0; bin < gains.size(); ++bin) {
    gains[bin] = 0.1f + 0.001f * static_cast<float>(bin);
  }
  Channel equal_left = a, equal_right = a, left = a, right = b, exchanged_left = b,
          exchanged_right = a;
  StereoStft equal, straight, exchanged;
  Pass(equal, equal_left, equal_right, gains);
  Pass(straight, left, right, gains);
  Pass(exchanged, exchanged_left, exchanged_right, gains);
  EXPECT_EQ(equal_left, equal_right);
  EXPECT_EQ(left, exchanged_right);
  EXPECT_EQ(right, exchanged_left);
}

TEST(BandLayoutTest, BandsCoverAllBinsOnceAndGrowUpwardsAndGainsAreLinearBetweenCentres) {
  const struct {
    uint32_t sample_rate_hz;
    size_t count;
    size_t single_bins;    // bands of one bin at the lower end
    size_t last_edges[3];  // the upper end, in bins
  } rows[] = {{48000, 73, 35, {447, 479, 513}}, {44100, 75, 38, {456, 488, 513}}};
  for (const auto& expected : rows) {
    SCOPED_TRACE(expected.sample_rate_hz);
    const BandLayout& layout = band_layout(expected.sample_rate_hz);
    ASSERT_EQ(layout.count, expected.count);
    std::vector<float> band_gains(layout.count), bin_gains(513);
    for (size_t band = 0; band < layout.count; ++band) {
      band_gains[band] = band % 2 == 0 ? 1.0f : 3.0f;
    }
    spread_band_gains(layout, band_gains.data(), bin_gains.data());
    size_t last_width = 1;
    for (size_t band = 0; band < layout.count; ++band) {
      SCOPED_TRACE(band);
      const size_t width = layout.edge[band + 1] - layout.edge[band];
      if (band < expected.single_bins) {
        ASSERT_EQ(layout.edge[band], band);
        ASSERT_EQ(width, 1u);
      } else if (band + 1 < layout.count) {  // the last is cut off
        ASSERT_GE(width, std::max<size_t>(last_width, 2));
      }
      last_width = width;
      const size_t centre = layout.centre_bin[band];
      ASSERT_GE(centre, layout.edge[band]);
      ASSERT_LT(centre, layout.edge[band + 1]);
      ASSERT_FLOAT_EQ(layout.centre_hz[band],
                      static_cast<float>(centre * (expected.sample_rate_hz / 1024.0)));
      ASSERT_FLOAT_EQ(bin_gains[centre], band_gains[band]);
      const size_t next = band + 1 < layout.count ? layout.centre_bin[band + 1] : centre;
      for (size_t bin = centre; bin < next; ++bin) {
        ASSERT_NEAR(std::fabs(bin_gains[bin + 1] - bin_gains[bin]),
                    2.0 / static_cast<double>(next - centre), 1e-5);
      }
    }
    EXPECT_FLOAT_EQ(bin_gains[512], band_gains.back());
    for (size_t n = 0; n < 3; ++n) {
      EXPECT_EQ(layout.edge[layout.count - 2 + n], expected.last_edges[n]);
    }
  }
}

// A sine in both ears, the right one later by a phase.
TEST(BandSpectraTest, SineHasItsMeanSquareInItsBandAndItsPhaseInTheCrossSpectrum) {
  constexpr size_t kBin = 12;  // 562.5 Hz at 48 kHz
  Channel left(1024), right(1024);
  for (size_t n = 0; n < left.size(); ++n) {
    const double angle = kTurn * kBin * static_cast<double>(n) / 1024.0;
    left[n] = static_cast<float>(std::sin(angle));
    right[n] = static_cast<float>(0.5 * std::sin(angle - 0.7));
  }
  StereoStft stft;
  StereoSpectrum spectrum;
  TransformScratch scratch;
  BandSpectra bands;
  stft.Analyse(&left[0], &right[0], spectrum, scratch);
  stft.Analyse(&left[512], &right[512], spectrum, scratch);
  measure_bands(band_layout(48000), spectrum, bands);
  double sum[2] = {};
  for (size_t band = 0; band < 73; ++band) {
    sum[0] += bands.energy[0][band];
    sum[1] += bands.energy[1][band];
  }
  EXPECT_NEAR(sum[0], 0.5, 0.01);
  EXPECT_NEAR(sum[1], 0.125, 0.0025);
  EXPECT_GT(bands.energy[0][kBin], 0.75 * sum[0]);
  EXPECT_LT(bands.energy[0][kBin + 10], 1e-4 * sum[0]);
  EXPECT_NEAR(std::atan2(bands.cross_im[kBin], bands.cross_re[kBin]), 0.7, 0.01);
}

TEST(BandSpectraTest, NoiseHasItsMeanSquareInAllBands) {
  for (const uint32_t rate : {48000u, 44100u}) {
    Channel left = noise(9, size_t{512} * 200), right = noise(10, size_t{512} * 200);
    StereoStft stft;
    StereoSpectrum spectrum;
    TransformScratch scratch;
    BandSpectra bands;
    double sum = 0.0, cross = 0.0;
    for (size_t at = 0; at < left.size(); at += 512) {
      stft.Analyse(&left[at], &right[at], spectrum, scratch);
      measure_bands(band_layout(rate), spectrum, bands);
      for (size_t band = 0; band < band_layout(rate).count; ++band) {
        sum += bands.energy[0][band] / 200.0;
        cross += bands.cross_re[band] / 200.0;
      }
    }
    EXPECT_NEAR(sum, 1.0 / 3.0, 0.01) << rate;
    EXPECT_NEAR(cross, 0.0, 0.01) << rate;
  }
}

}  // namespace
