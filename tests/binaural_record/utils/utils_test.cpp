#include "binaural_record/utils/utils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/log_capture.h"

namespace {

using testing::ElementsAre;
using vendor::corva::binaural_record::utils::AudioParamMap;
using vendor::corva::binaural_record::utils::ParseAudioParams;

TEST(ParameterStrings, AreCutAtSemicolonsAndEquals) {
  const std::pair<const char*, AudioParamMap> kCases[] = {
      {"", {}},
      {";;", {}},
      {"a=1;", {{"a", "1"}}},
      {"k", {{"k", ""}}},
      {"a=b=c", {{"a", "b"}}},  // everything from the second "=" on is dropped
      {"a==c", {{"a", ""}}},
      {"a=1;a=2", {{"a", "2"}}},
      {"A=1; b=%n", {{"A", "1"}, {" b", "%n"}}},
      {"=5;a=1;=", {{"a", "1"}}},
  };
  LogCapture log;
  for (const auto& [text, expected] : kCases) {
    EXPECT_EQ(ParseAudioParams(text), expected) << text;
  }
  // A piece without a key is skipped with a warning.
  const std::string warning = "W ParseAudioParams: Invalid audio parameter =";
  EXPECT_THAT(log.TakeTexts("BinauralRecordUtils"), ElementsAre(warning + "5", warning));
}

}  // namespace
