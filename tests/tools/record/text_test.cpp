// Times, parameter texts and levels as people write and read them.
#include <cmath>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "tools/record/meter.h"
#include "tools/record/options.h"
#include "tools/record/parameters.h"
#include "tools/record/report.h"

namespace tools {
namespace {

TEST(TimeTest, SecondsMinutesAndHours) {
  const std::pair<const char*, double> accepted[] = {
      {"10", 10},   {"0", 0},        {"1.5", 1.5},    {".25", 0.25},     {"2.", 2},
      {"1:30", 90}, {"0:01.5", 1.5}, {"90:00", 5400}, {"1:02:03", 3723}, {"3600000", 3600000}};
  for (const auto& [text, seconds] : accepted) {
    EXPECT_DOUBLE_EQ(ParseTime(text).value_or(-1), seconds) << '"' << text << '"';
  }
  for (const char* text :
       {"", ".", "-1", "+1", "1:", ":30", "1:60", "1.5:30", "1e3", "nan", "inf", "10s", " 10",
        "1.2.3", "1:2:3:4", "0x10", "3600000.1", "99999999999999999999"}) {
    EXPECT_FALSE(ParseTime(text).has_value()) << '"' << text << '"';
  }
}

TEST(TimeTest, IsShownToATenthOfASecond) {
  EXPECT_EQ(TimeText(0), "00:00.0");
  EXPECT_EQ(TimeText(59.99), "00:59.9");
  EXPECT_EQ(TimeText(83.45), "01:23.4");
  EXPECT_EQ(TimeText(36000.5), "10:00:00.5");
}

TEST(ParameterTest, ValuesAreReadAsTheModuleReadsThem) {
  struct Case {
    const char* text;
    const char* value;  // of the key "k"; null: not there
  };
  const Case cases[] = {
      {"k=1", "1"},      {"a=2;k=1;", "1"}, {"k=1;k=2", "2"}, {"k=1=2", "1"},
      {"k", ""},         {"k=", ""},        {"", nullptr},    {";;", nullptr},
      {"kk=1", nullptr}, {" k=1", nullptr}, {"=k", nullptr},
  };
  for (const Case& c : cases) {
    const std::optional<std::string> value = ParameterValue(c.text, "k");
    EXPECT_EQ(value.has_value(), c.value != nullptr) << c.text;
    EXPECT_EQ(value.value_or(""), c.value != nullptr ? c.value : "") << c.text;
  }
}

TEST(ParameterTest, TheModeInEffectIsTheLastOneTheModuleAccepts) {
  RecordOptions options;
  EXPECT_EQ(ModeInEffect(options, 0), 0);
  options.mode = 1;
  options.set = {"binaural_recording_algorithmMode=7", "other=3"};
  options.at = {{1.0, "binaural_recording_algorithmMode=3"},
                {2.0, "binaural_recording_algorithmMode=02"},
                {3.0, "binaural_recording_algorithmMode=0"}};
  const int expected[] = {1, 3, 3, 0};
  for (size_t sent = 0; sent < 4; ++sent) {
    EXPECT_EQ(ModeInEffect(options, sent), expected[sent]) << sent;
  }
}

TEST(MeterTest, CountsEachEarForItself) {
  const std::vector<int16_t> samples{0, -32768, 16384, 100, -16383, 32767};
  Meter meter(2, 48000);
  meter.Add(samples.data(), 3);
  EXPECT_EQ(meter.peak(0), 16384);
  EXPECT_EQ(meter.peak(1), 32768);
  EXPECT_EQ(meter.clipped_samples(), 2u);
  EXPECT_EQ(meter.TakePeak(0), 16384);
  EXPECT_EQ(meter.TakePeak(0), 0);
  EXPECT_NEAR(DbFullScale(meter.peak(0)), -6.02, 0.01);
}

// The calibration tone of EBU Tech 3341, test case 1: 1 kHz in both ears at -23 dBFS is -23 LUFS.
TEST(MeterTest, LoudnessOfTheCalibrationTone) {
  constexpr double kPi = 3.14159265358979323846;
  std::vector<int16_t> samples(2 * 48000);
  for (size_t i = 0; i < 48000; ++i) {
    const double tone =
        std::pow(10.0, -23.0 / 20.0) * std::sin(2 * kPi * 1000.0 * double(i) / 48000.0);
    samples[2 * i] = samples[2 * i + 1] = static_cast<int16_t>(std::lround(tone * 32767.0));
  }
  Meter meter(2, 48000);
  EXPECT_TRUE(std::isinf(meter.IntegratedLoudnessLufs()));
  for (int second = 0; second < 3; ++second) {
    meter.Add(samples.data(), 48000);
  }
  EXPECT_NEAR(meter.IntegratedLoudnessLufs(), -23.0, 0.1);
}

}  // namespace
}  // namespace tools
