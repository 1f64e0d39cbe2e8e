// Frames in and out, and what lies in the bands.
#include "bcap/src/transform.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <vector>

#include "bcap/src/band_layout.h"

namespace {

using namespace bcap;

// A sine of a whole number of waves a frame.
std::vector<float> sine(size_t waves, double radians, size_t samples = 1024) {
  std::vector<float> channel;
  for (size_t n = 0; n < samples; ++n) {
    const double angle = 2.0 * M_PI * static_cast<double>(waves * n % 1024) / 1024.0;
    channel.push_back(static_cast<float>(std::sin(angle + radians)));
  }
  return channel;
}

// With the transform, without it, and to and fro between the two.
TEST(StereoStftTest, UntouchedSpectraComeBack960SamplesLater) {
  const std::vector<float> left = sine(37, 0.0, 12288), right = sine(222, 1.0, 12288);
  std::vector<float> left_out = left, right_out = right;
  StereoStft stft;
  TransformScratch scratch;
  for (size_t at = 0; at < left.size(); at += 512) {
    const bool through = at / 512 % 8 < 5;
    if (through) {
      stft.Analyse(&left[at], &right[at], scratch);
      stft.Synthesise(&left_out[at], &right_out[at], scratch);
    } else {
      stft.PassThrough(&left_out[at], &right_out[at]);
    }
    const bool exact = at / 512 % 8 > 5;  // nothing is left of the transform
    for (size_t n = at; n < at + 512; ++n) {
      ASSERT_NEAR(left_out[n], n < 960 ? 0.0f : left[n - 960], exact ? 0.0 : 1e-6) << n;
      ASSERT_NEAR(right_out[n], n < 960 ? 0.0f : right[n - 960], exact ? 0.0 : 1e-6) << n;
    }
  }
}

// The spectrum that leaves was the newest one a block before, and also where the transform has just begun.
TEST(StereoStftTest, TheSpectrumThatLeavesIsThatOfTheFrameBefore) {
  const std::vector<float> left = sine(37, 0.0, 2560), right = sine(222, 1.0, 2560);
  std::vector<float> left_out = left, right_out = right;
  StereoStft always, late;
  TransformScratch scratch;
  for (size_t at = 0; at < 2048; at += 512) {
    always.Analyse(&left[at], &right[at], scratch);
    late.PassThrough(&left_out[at], &right_out[at]);
  }
  const StereoSpectrum before = always.newest();
  always.Analyse(&left[2048], &right[2048], scratch);
  late.Analyse(&left[2048], &right[2048], scratch);
  for (size_t ear = 0; ear < 2; ++ear) {
    for (size_t bin = 0; bin < 513; ++bin) {
      ASSERT_EQ(always.leaving()[ear].re[bin], before[ear].re[bin]) << bin;
      ASSERT_EQ(late.leaving()[ear].re[bin], before[ear].re[bin]) << bin;
      ASSERT_EQ(late.leaving()[ear].im[bin], before[ear].im[bin]) << bin;
      ASSERT_EQ(late.newest()[ear].re[bin], always.newest()[ear].re[bin]) << bin;
    }
  }
}

TEST(BandLayoutTest, BandsGrowUpwardsAndGainsAreLinearBetweenCentres) {
  const struct {
    uint32_t rate;
    size_t count;
    size_t single_bins;    // bands of one bin at the lower end
    size_t last_edges[3];  // the upper end, in bins
  } rows[] = {{48000, 73, 35, {447, 479, 513}}, {44100, 75, 38, {456, 488, 513}}};
  for (const auto& [rate, count, single_bins, last_edges] : rows) {
    const BandLayout& layout = band_layout(rate);
    ASSERT_EQ(layout.count, count);
    EXPECT_TRUE(std::equal(last_edges, last_edges + 3, &layout.edge[count - 2]));
    std::vector<float> band_gains(count), bin_gains(513);
    for (size_t band = 0; band < count; ++band) {
      band_gains[band] = band % 2 == 0 ? 1.0f : 3.0f;
    }
    spread_band_gains(layout, band_gains.data(), bin_gains.data());
    EXPECT_FLOAT_EQ(bin_gains[512], band_gains.back());
    for (size_t band = 0; band + 1 < count; ++band) {  // the last is cut off
      SCOPED_TRACE(testing::Message() << rate << " Hz, band " << band);
      const size_t edge = layout.edge[band], width = layout.edge[band + 1] - edge;
      const size_t centre = layout.centre_bin[band], next = layout.centre_bin[band + 1];
      if (band < single_bins) {
        ASSERT_EQ(edge, band);
        ASSERT_EQ(width, 1u);
      } else {
        ASSERT_GE(width, std::max<size_t>(edge - layout.edge[band - 1], 2));
      }
      ASSERT_TRUE(centre >= edge && centre < edge + width);
      ASSERT_FLOAT_EQ(layout.centre_hz[band], static_cast<float>(centre * (rate / 1024.0)));
      ASSERT_FLOAT_EQ(bin_gains[centre], band_gains[band]);
      for (size_t bin = centre; bin < next; ++bin) {
        ASSERT_NEAR(std::fabs(bin_gains[bin + 1] - bin_gains[bin]),
                    2.0 / static_cast<double>(next - centre), 1e-5);
      }
    }
  }
}

// The right ear hears half as much, and later by a phase.
TEST(BandSpectraTest, SineHasItsMeanSquareInItsBandAndItsPhaseInTheCrossSpectrum) {
  constexpr size_t kBin = 12;  // 562.5 Hz at 48 kHz
  const std::vector<float> left = sine(kBin, 0.0);
  std::vector<float> right = sine(kBin, -0.7);
  for (float& sample : right) {
    sample *= 0.5f;
  }
  StereoStft stft;
  TransformScratch scratch;
  BandSpectra bands;
  stft.Analyse(&left[0], &right[0], scratch);
  stft.Analyse(&left[512], &right[512], scratch);
  measure_bands(band_layout(48000), stft.newest(), bands);
  const auto sum = [](const auto& energy) { return std::accumulate(&energy[0], &energy[73], 0.0); };
  EXPECT_NEAR(sum(bands.energy[0]), 0.5, 0.01);
  EXPECT_NEAR(sum(bands.energy[1]), 0.125, 0.0025);
  EXPECT_GT(bands.energy[0][kBin], 0.36);
  EXPECT_LT(bands.energy[0][kBin + 10], 5e-5);
  EXPECT_NEAR(std::atan2(bands.cross_im[kBin], bands.cross_re[kBin]), 0.7, 0.01);
}

}  // namespace
