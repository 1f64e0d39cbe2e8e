// The stages that shape the tone: high-pass, equaliser, gain before. Responses in dB at frequencies.
#include <gtest/gtest.h>

#include "capture.h"

namespace {

// Gain at one frequency once everything has settled.
double response_db(Capture& capture, double hz, double rate) {
  const Stereo input = sine(hz, 0.05, 0.05, whole_blocks(0.8, rate), rate);
  const Stereo output = capture.Process(input);
  const size_t settled = whole_blocks(0.4, rate);
  return level_db(output.left, settled) - level_db(input.left, settled);
}

TEST(HighPassStage, TakesRumbleAndLeavesVoices) {
  struct Row {
    double hz, low_db, high_db;
  } const rows[] = {{10, -60, -44},     {20, -30, -24},      {60, -3.5, -2.5},   {120, -0.3, 0.05},
                    {250, -0.05, 0.05}, {1000, -0.05, 0.05}, {8000, -0.05, 0.05}};
  for (const uint32_t mode : {0u, 1u}) {
    for (const uint32_t rate : {48000u, 44100u}) {
      for (const Row& row : rows) {
        Capture capture(mode, rate);
        const double db = response_db(capture.AllOff().Set(bcap_hpf_enable_set, 1), row.hz, rate);
        EXPECT_GT(db, row.low_db) << row.hz << " Hz, mode " << mode << ", " << rate;
        EXPECT_LT(db, row.high_db) << row.hz << " Hz, mode " << mode << ", " << rate;
      }
    }
  }
}

TEST(GainBefore, IsTheBoostInSixteenthsOfADecibel) {
  for (const int32_t boost : {-160, -16, 0, 144, 320}) {
    for (const uint32_t mode : {0u, 1u}) {
      Capture capture(mode);
      EXPECT_NEAR(response_db(capture.AllOff().GainBefore(boost), 1000.0, 48000.0), boost / 16.0,
                  0.05)
          << boost;
    }
  }
}

// Every band of both presets at 48 kHz, and a wavy curve at 44.1 kHz, where no preset exists.
TEST(Equaliser, IsExactAtEveryBandCentre) {
  const std::vector<int32_t> preset_2(A_PEQ_TUNING_DATA_PRESET2_SR48K,
                                      A_PEQ_TUNING_DATA_PRESET2_SR48K + 73);
  std::vector<int32_t> wavy(75);
  for (int band = 0; band < 75; ++band) {
    wavy[band] = static_cast<int32_t>(std::lrint(96.0 * std::sin(0.21 * band)));
  }
  const struct {
    const char* name;
    uint32_t rate;
    std::vector<int32_t> gains;
    double share;
    int32_t amount;
  } cases[] = {
      {"preset 1", 48000, kPreset1, 1.0, 16},
      {"preset 2, half", 48000, preset_2, 0.5, 8},
      {"preset 2, none", 48000, preset_2, 0.0, 0},
      {"wavy", 44100, wavy, 1.0, 16},
  };
  for (const auto& c : cases) {
    // Band 0 is direct current, and a sine at half the rate says nothing.
    for (size_t band = 1; band < c.gains.size(); ++band) {
      Capture capture(0, c.rate);
      capture.AllOff().Set(bcap_peq_amount_set, c.amount).Equalise(c.gains);
      const double hz = bcap::inspect_band(c.rate, band).centre_hz;
      EXPECT_NEAR(response_db(capture, hz, c.rate), c.share * c.gains[band] / 16.0, 0.5)
          << c.name << ", band " << band << ", " << hz << " Hz";
    }
  }
}

}  // namespace
