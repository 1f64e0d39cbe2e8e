// Times, parameter texts and levels as people write them.
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "tools/record/meter.h"
#include "tools/record/options.h"
#include "tools/record/parameters.h"

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

TEST(ParameterTest, ValuesAreReadAsTheModuleReadsThem) {
  // Of the key "k"; "-": not there.
  const std::pair<const char*, const char*> cases[] = {
      {"k=1", "1"}, {"a=2;k=1;", "1"}, {"k=1;k=2", "2"}, {"k=1=2", "1"}, {"k", ""},
      {"k=", ""},   {"", "-"},         {"kk=1", "-"},    {" k=1", "-"},  {"=k", "-"}};
  for (const auto& [text, value] : cases) {
    EXPECT_EQ(ParameterValue(text, "k").value_or("-"), value) << text;
  }
}

TEST(ParameterTest, TheModeInEffectIsTheLastOneTheModuleAccepts) {
  RecordOptions options;
  options.mode = 1;
  options.set = {"binaural_recording_algorithmMode=7", "other=3"};
  options.at = {{1.0, "binaural_recording_algorithmMode=3"},
                {2.0, "binaural_recording_algorithmMode=02"},
                {3.0, "binaural_recording_algorithmMode=0"}};
  EXPECT_EQ((std::vector{ModeInEffect({}, 0), ModeInEffect(options, 0), ModeInEffect(options, 2),
                         ModeInEffect(options, 3)}),
            (std::vector{0, 1, 3, 0}));
}

TEST(MeterTest, CountsEachEarForItself) {
  const std::vector<int16_t> samples{0, -32768, 16384, 100, -16383, 32767};
  Meter meter(2, 48000);
  meter.Add(samples.data(), 3);
  EXPECT_EQ((std::vector{meter.peak(0), meter.peak(1), meter.TakePeak(0), meter.TakePeak(0)}),
            (std::vector{16384, 32768, 16384, 0}));
  EXPECT_EQ(meter.clipped_samples(), 2u);
}

}  // namespace
}  // namespace tools
