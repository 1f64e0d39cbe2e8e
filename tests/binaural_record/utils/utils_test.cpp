#include "binaural_record/utils/utils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/log_capture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vendor::corva::binaural_record::utils::AudioParamMap;
using vendor::corva::binaural_record::utils::GetAudioParamString;
using vendor::corva::binaural_record::utils::ParseAudioParams;

TEST(ParameterStrings, AreCutAtSemicolonsAndEquals) {
  const std::pair<const char*, AudioParamMap> kCases[] = {
      {"", {}},
      {";", {}},
      {";;", {}},
      {"a=1;", {{"a", "1"}}},
      {"k", {{"k", ""}}},
      {"k=", {{"k", ""}}},
      {"a=b=c", {{"a", "b"}}},  // everything from the second "=" on is dropped
      {"a==c", {{"a", ""}}},
      {"a=1;a=2", {{"a", "2"}}},
      {"a=1; b=2", {{"a", "1"}, {" b", "2"}}},
      {"A=x;a=y", {{"A", "x"}, {"a", "y"}}},
      {"%s=%n", {{"%s", "%n"}}},
  };
  LogCapture log;
  for (const auto& [text, expected] : kCases) {
    EXPECT_EQ(ParseAudioParams(text), expected) << text;
  }
  EXPECT_THAT(log.Take(), IsEmpty());
}

TEST(ParameterStrings, PieceWithoutAKeyIsSkippedWithAWarning) {
  LogCapture log;
  EXPECT_EQ(ParseAudioParams("=5;a=1;="), (AudioParamMap{{"a", "1"}}));
  EXPECT_THAT(log.Take(), ElementsAre(LoggedLine{ANDROID_LOG_WARN, "BinauralRecordUtils",
                                                 "ParseAudioParams: Invalid audio parameter =5"},
                                      LoggedLine{ANDROID_LOG_WARN, "BinauralRecordUtils",
                                                 "ParseAudioParams: Invalid audio parameter ="}));
}

TEST(ParameterStrings, MapsBecomeOneLineAnEntry) {
  EXPECT_EQ(GetAudioParamString({}), "");
  EXPECT_EQ(GetAudioParamString({{"a", "1"}}), "key: 'a' value: '1'\n");
}

}  // namespace
