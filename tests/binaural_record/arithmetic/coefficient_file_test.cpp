// What the coefficient file means, and what the log says when it is wrong. Where each fault is found, and
// what else is accepted, is shown by the tuning tool's lint, which reads through the same parser.
#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_config.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <numeric>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tinyxml2.h>

#include "platform/host/binaural_host.h"
#include "tests/support/log_capture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr char kTag[] = "BinauralRecordParseBcapAlgoConfig";
constexpr char kDeclaration[] = "<?xml version='1.0'?>\n";

// ---- pieces of documents; the defaults are without fault ----

std::string Tuning(const std::string& content) {
  return kDeclaration + ("<tuning bnc_verson='1.1.0'>\n" + content + "</tuning>\n");
}
std::string Mode(const std::string& attributes, const std::string& params = "") {
  return "<mode " + attributes + ">" + params + "</mode>\n";
}
std::string Module(const std::string& modes = "<mode value='0'/>\n",
                   const std::string& name = "m") {
  return "<module name='" + name + "'>\n" + modes + "</module>\n";
}
constexpr char kInclude[] = "<include module_name='m'/>";
constexpr char kPeq[] = "<peq_band_gain_tuning mode='0' value='7,8'/>";
constexpr char kNfm[] = "<nfm_band_energy_tuning value='-1000'/>";
std::string Profile(const std::string& content = std::string(kInclude) + kPeq,
                    const std::string& attributes = "name='p'") {
  return "<profile " + attributes + ">" + content + "</profile>\n";
}
std::string Headset(const std::string& content = kNfm + Profile(),
                    const std::string& attributes = "name='h'") {
  return "<btheadset " + attributes + ">\n" + content + "</btheadset>\n";
}
std::string WithMode(const std::string& mode) {
  return Tuning(Module(mode) + Headset());
}
std::string WithHeadset(const std::string& content) {
  return Tuning(Module() + Headset(content));
}
std::string WithProfile(const std::string& content) {
  return WithHeadset(kNfm + Profile(content));
}
std::string NfmList(const std::string& text) {
  return "<nfm_band_energy_tuning value='" + text + "'/>";
}

class CoefficientFileTest : public ::testing::Test {
 protected:
  ~CoefficientFileTest() override {
    ReleaseCoefficients(&store_);
    unlink(path_.c_str());
  }

  void Write(const std::string& document) { std::ofstream(path_) << document; }

  int Parse(const std::string& document) {
    Write(document);
    log_.Take();
    tinyxml2::XMLDocument parsed;
    return ParseCoefficients(path_.c_str(), &parsed, &store_);
  }

  // The words of a mode of the first module.
  std::vector<int32_t> Words(int mode) const {
    std::vector<int32_t> words(42);
    std::memcpy(words.data(), &store_.moduleConfig[0].modes[mode], sizeof(AlgoModeParams));
    return words;
  }

  LogCapture log_;
  const std::string path_ = testing::TempDir() + "coefficients." + std::to_string(getpid());
  AlgoConfigCoeff store_{};
};

TEST_F(CoefficientFileTest, EveryFaultRefusesTheFileAndSaysWhere) {
  // clang-format off
  const std::string kSelf = "adev_parse_algo_config_coeff_1_0 ";
  const std::string kMode = "parse_single_profile_mode_config ";
  const std::string kPeqStep = "parse_peq_band_gain_config ";
  const std::string kEmpty = "parse_and_save_item_coeffs valStr =  error.\n";
  // What the steps around the faulty one add.
  const std::string kInModule =
      "\nparse_single_module_config parse_single_headset_config fail. moduleIndex=0 modeCounter=0"
      "\nparse_module_coeff_config parse_single_module_config fail."
      "\nparse_module_coeff_config parse_module_coeff_config fail.";
  const std::string kInHeadset =
      "\nparse_bt_headset_coeff_config parse_single_headset_config fail"
      "\nparse_bt_headset_coeff_config parse_bt_headset_coeff_config fail.";
  const std::string kInNfm =
      "\nparse_single_headset_config parse_nfm_band_energy_config fail." + kInHeadset;
  const std::string kInProfile =
      "\nparse_single_headset_config parse_profile_configs fail." + kInHeadset;
  const std::string kInInclude =
      "\nparse_profile_configs parse_profile_module_config fail." + kInProfile;
  const std::string kInPeq =
      "\nparse_profile_configs parse_peq_band_gain_config fail" + kInProfile;
  const auto WithParam = [](const std::string& param) {
    return WithMode(Mode("value='0'", "<param " + param + "/>"));
  };
  const auto WithPeq = [](const std::string& attributes) {
    return WithProfile(std::string(kInclude) + "<peq_band_gain_tuning " + attributes + "/>");
  };
  const std::pair<std::string, std::string> kCases[] = {
      {"<tuning>" + Module() + Headset() + "</tuning>",
       kSelf + "Load BINAURAL_ALGO_COEFF_CONFIG_FILE declaration NULL."},
      {std::string(kDeclaration) + "<Tuning/>", kSelf + "Load BinauralCoeff fail."},
      {Tuning(Headset()), kSelf + "moduleNum=0 btHeadsetNum=1 config error."},
      {Tuning(Module() + Module()), kSelf + "moduleNum=2 btHeadsetNum=0 config error."},
      {Tuning("<module/>" + Headset()), "parse_single_module_config Load moduleName fail." + kInModule},
      {Tuning(Module("", std::string(64, 'm')) + Headset()),
       "parse_single_module_config moduleName len is too long." + kInModule},
      {WithMode("<mode/>"), kMode + "Load modeStr fail." + kInModule},
      {WithMode(Mode("value='4'")), kMode + "profileMode config error!" + kInModule},
      {WithMode(Mode("value='-1'")), kMode + "profileMode config error!" + kInModule},
      {WithParam("name='hpf_enable'"), kMode + "valName or valValue parse fail." + kInModule},
      {WithParam("name='Hpf_enable' value='1'"), kMode + "valName = Hpf_enable error" + kInModule},
      {WithParam("name='pregain_dra_tuning' value='1,2,3,4,5'"),
       "parse_and_save_item_coeffs index error arrLen 4 index 4\n" + kMode +
       "parse_and_save_item_coeffs pregain_dra_tuning error." + kInModule},
      {WithParam("name='postgain_dra_tuning' value=''"),
       kEmpty + kMode + "parse_and_save_item_coeffs postgain_dra_tunning error." + kInModule},
      {Tuning(Module() + Headset(kNfm, "")),
       "parse_single_headset_config Load btHeadsetName fail." + kInHeadset},
      {Tuning(Module() + Headset(kNfm, "name='" + std::string(128, 'h') + "'")),
       "parse_single_headset_config btHeadsetName len is too long." + kInHeadset},
      {WithHeadset(""), "parse_nfm_band_energy_config get nfm_band_energy_tuning fail." + kInNfm},
      {WithHeadset("<nfm_band_energy_tuning/>"),
       "parse_nfm_band_energy_config valValue parse fail." + kInNfm},
      {WithHeadset(NfmList("")),
       kEmpty + "parse_nfm_band_energy_config parse_and_save_item_coeffs error." + kInNfm},
      {WithHeadset(kNfm + Profile("", "")), "parse_profile_configs load moduleName fail " + kInProfile},
      {WithHeadset(kNfm + Profile("", "name='" + std::string(64, 'p') + "'")),
       "parse_profile_configs profileName len is too long. " + kInProfile},
      {WithProfile(kPeq), "parse_profile_module_config load include fail." + kInInclude},
      {WithProfile("<include name='m'/>"),
       "parse_profile_module_config load moduleName fail." + kInInclude},
      {WithProfile("<include module_name='M'/>"),
       "parse_profile_module_config do not got module config, should use default, module name M" +
       kInInclude},
      {WithProfile(kInclude), kPeqStep + "load peq_band_gain_tuning fail." + kInPeq},
      {WithPeq("value='1'"), kPeqStep + "get modeVal fail." + kInPeq},
      {WithPeq("mode='4' value='1'"), kPeqStep + "parse modeVal fail." + kInPeq},
      {WithPeq("mode='0'"), kPeqStep + "get valValue fail." + kInPeq},
      {WithPeq("mode='0' value=''"),
       kEmpty + kPeqStep + "parse_and_save_item_coeffs error." + kInPeq},
  };
  // clang-format on
  for (const auto& [document, lines] : kCases) {
    SCOPED_TRACE(document);
    EXPECT_EQ(-1, Parse(document));
    std::string errors;
    for (const std::string& line : log_.TakeErrors(kTag)) {
      errors += line + "\n";
    }
    EXPECT_EQ(lines + "\n", errors);
    EXPECT_EQ(0u, store_.parseConfigSuccessFlag);
  }
}

TEST_F(CoefficientFileTest, WhatIsNotXmlIsRefusedWithTheXmlLibrarysWords) {
  EXPECT_EQ(-1, Parse(std::string(kDeclaration) + "<tuning>"));
  EXPECT_THAT(log_.TakeErrors(kTag),
              ElementsAre(::testing::StartsWith(
                  "adev_parse_algo_config_coeff_1_0 Load BINAURAL_ALGO_COEFF_CONFIG_FILE fail "
                  "ErrorID 14ErrorStr Error=XML_ERROR_MISMATCHED_ELEMENT")));
  tinyxml2::XMLDocument document;
  EXPECT_EQ(-1, ParseCoefficients("/tmp", &document, &store_)) << "a folder";
}

TEST_F(CoefficientFileTest, AModeStartsFromItsBuiltInValuesAndAModeThatIsAbsentStaysZero) {
  ASSERT_EQ(0, Parse(WithMode(Mode("value='3abc'"))));
  EXPECT_EQ(8u, store_.moduleConfig[0].modeConfigFlag);
  EXPECT_THAT(Words(3),
              ElementsAre(0, 0, 0, 256, 256, 0, 8, 0, 272, 241, 9, 16, 16,    // applied
                          0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // deq..pregainDraEn
                          -400, 10923, 30433, 32168, 4, 0,                    // ..postgainDraEn
                          -400, 6554, 28264, 31579, 4, 0));
  EXPECT_THAT(Words(0), ::testing::Each(0));

  // A repeated mode starts again.
  ASSERT_EQ(0, Parse(WithMode(Mode("value='1'", "<param name='hpf_enable' value='1'/>") +
                              Mode("value='1'", "<param name='rnn_enable' value='1'/>"))));
  EXPECT_EQ(0, store_.moduleConfig[0].modes[1].hpfEn);
  EXPECT_EQ(1, store_.moduleConfig[0].modes[1].rnnEn);
}

TEST_F(CoefficientFileTest, EachParameterLandsInItsOwnWord) {
  // In the order of the words; a dot is a word that no parameter of its own sets.
  std::istringstream names(
      "selfie_mode hpf_enable pregain_enable pregain_boost pregain_limiter_peak rnn_enable "
      "rnn_amount postgain_enable postgain_boost postgain_limiter_peak rmx_amount peq_amount "
      "nfm_amount deq_enable lev_enable lev_amount lev_loudness_range ldn_enable lrc_enable "
      "bsep_enable bsep_resgain_attenuate sfe_enable sfe_amount wnr_enable wnr_amount "
      "pregain_agc_enable pregain_agc_amount postgain_agc_enable postgain_agc_amount "
      "pregain_dra_enable pregain_dra_tuning . . . . postgain_dra_enable postgain_dra_tuning . "
      ". . . postgain_out_target");
  std::string params;
  int value = 1000;
  for (std::string name; names >> name; ++value) {
    if (name != ".") {
      params += "<param name='" + name + "' value='" + std::to_string(value) + "'/>";
    }
  }
  ASSERT_EQ(0, Parse(WithMode(Mode("value='0'", params))));
  std::vector<int32_t> expected(42);
  std::iota(expected.begin(), expected.end(), 1000);
  // What a list of one value leaves out keeps its start; then the list's length.
  const int32_t after_first[] = {10923, 30433, 32168, 1}, after_second[] = {6554, 28264, 31579, 1};
  std::copy_n(after_first, 4, &expected[31]);
  std::copy_n(after_second, 4, &expected[37]);
  EXPECT_EQ(expected, Words(0));
}

TEST_F(CoefficientFileTest, SurplusAndUnknownElementsAreIgnoredAndTheFirstModuleOfANameWins) {
  const std::string kFivePeqs =
      "<peq_band_gain_tuning mode='3' value='1'/><peq_band_gain_tuning mode='2' value='2'/>"
      "<peq_band_gain_tuning mode='1' value='3,4'/><peq_band_gain_tuning mode='3' value='5,6'/>"
      "<peq_band_gain_tuning mode='broken'/>";
  const std::string kTwo = Profile() + Profile();
  const std::string kLongestName(127, 'h'), kLongestProfile = "name='" + std::string(63, 'p') + "'";
  ASSERT_EQ(0,
            Parse(Tuning("<note/>" + Module() + Module(Mode("value='1'")) +
                         Headset(NfmList("1") + NfmList("") + kTwo + kTwo +
                                     Profile(kInclude + kFivePeqs, kLongestProfile) + "<profile/>",
                                 "name='" + kLongestName + "'"))));
  ASSERT_EQ(2u, store_.moduleNum);
  const BtHeadsetConfig& headset = store_.btConfig[0];
  EXPECT_EQ(kLongestName, headset.btHeadsetName);
  ASSERT_EQ(5u, headset.profileNum);
  const ProfileConfig& profile = headset.profiles[4];
  EXPECT_EQ(&store_.moduleConfig[0], profile.module);
  EXPECT_STREQ("", profile.moduleName) << "reserved";
  EXPECT_THAT(profile.peqBandGainNum, ElementsAre(0u, 2u, 1u, 2u));
  EXPECT_EQ(6, profile.peqBandGain[3][1]) << "the last element of a mode counts";
}

TEST_F(CoefficientFileTest, TheLogTellsTheWholeStory) {
  ASSERT_EQ(0, Parse(Tuning(Module(Mode("value='1'", "<param name='rmx_amount' value='%s%n'/>")) +
                            Headset())));
  constexpr char kZeros[] =
      "selfieModeEn=0 hpfEn=0 pregainEn=0 pregainBoost=0 pregainLimiterPeak=0 rnnEn=0 rnnAmount=0 "
      "postgainEn=0 postgainBoost=0 postgainLimiterPeak=0 rmxAmount=0 peqAmount=0 nfmAmount=0";
  const std::string kSelf = "adev_parse_algo_config_coeff_1_0";
  const std::string kExpected[] = {
      kSelf + " Load BINAURAL_ALGO_COEFF_CONFIG_FILE success.",
      kSelf + " moduleNum=1 btHeadsetNum=1",
      "parse_module_coeff_config total moduleNum is 1",
      "parse_single_module_config moduleName=m",
      "parse_single_profile_mode_config mode config is 1",
      "parse_single_profile_mode_config valName = rmx_amount valValue = %s%n",
      "parse_single_profile_mode_config modeConfigFlag=2",
      "parse_single_module_config parse_single_headset_config moduleIndex=0 modeCounter=1",
      "parse_bt_headset_coeff_config coeffBuf->btHeadsetNum is 1",
      "parse_single_headset_config btHeadsetName=h",
      "parse_nfm_band_energy_config valValue = -1000",
      "parse_and_save_item_coeffs arrLen = 96 index = 1",
      "parse_profile_configs btHeadsetNum is 1",
      "parse_profile_configs profileName=p",
      "parse_profile_module_config got config moduleName=m",
      "parse_peq_band_gain_config modeVal = 0",
      "parse_peq_band_gain_config modeIndex 0",
      "parse_peq_band_gain_config valValue = 7,8",
      "parse_and_save_item_coeffs arrLen = 96 index = 2",
      "parse_profile_configs profileNum=1",
      kSelf + " index 0 nfmNum 1 profileNum 1",
      kSelf + " enter, SCENE_NORMAL onepass: " + kZeros,
      kSelf + " enter, SCENE_NORMAL pre_processing: selfieModeEn=0 hpfEn=0 pregainEn=0 "
              "pregainBoost=256 pregainLimiterPeak=256 rnnEn=0 rnnAmount=8 postgainEn=0 "
              "postgainBoost=272 postgainLimiterPeak=241 rmxAmount=0 peqAmount=16 nfmAmount=16",
      kSelf + " enter, SCENE_NORMAL record analysis: " + kZeros,
      kSelf + " enter, SCENE_NORMAL enhansement: " + kZeros,
  };
  std::vector<std::string> expected;
  for (const std::string& text : kExpected) {
    expected.push_back("I " + text);
  }
  EXPECT_EQ(expected, log_.TakeTexts(kTag));
}

TEST_F(CoefficientFileTest, TheLogShowsTheModulesOfTheFirstThreeProfiles) {
  std::string modules, profiles;
  for (const std::string value : {"6", "7", "8", "9"}) {
    modules +=
        Module(Mode("value='0'", "<param name='selfie_mode' value='" + value + "'/>"), value);
    profiles += Profile("<include module_name='" + value + "'/>" + kPeq);
  }
  ASSERT_EQ(0, Parse(Tuning(modules + Headset(kNfm + profiles))));
  std::vector<std::string> lines = log_.TakeTexts(kTag);
  lines.erase(lines.begin(), lines.end() - 12);  // what is left: four modes of each scene
  EXPECT_THAT(lines[0], HasSubstr(" enter, SCENE_NORMAL onepass: selfieModeEn=6"));
  EXPECT_THAT(lines[4], HasSubstr(" enter, SCENE_SELFIE onepass: selfieModeEn=7"));
  EXPECT_THAT(lines[8], HasSubstr(" enter, SCENE_SELFIE_MIRROR onepass: selfieModeEn=8"));
}

// What is freed, and what a device's close leaves, is shown by the sequences.
TEST_F(CoefficientFileTest, DeviceOpenPublishesAFailureToo) {
  host_redirect(BINAURAL_ALGO_COEFF_CONFIG_FILE, path_.c_str());
  const AlgoConfigCoeff* store = get_bcap_algo_config_coeff_1_0();
  const std::tuple<std::string, int, std::vector<uint32_t>> kCases[] = {
      {Tuning(Module() + Headset() + Headset()), 0, {1, 2, 1}},
      {Tuning(Module() + Headset("")), -1, {0, 1, 1}},  // counts are those of the document
      {"", -1, {0, 0, 0}}};
  for (const auto& [document, result, flag_and_counts] : kCases) {
    Write(document);
    EXPECT_EQ(result, adev_parse_algo_config_coeff_1_0());
    EXPECT_EQ(flag_and_counts,
              (std::vector{store->parseConfigSuccessFlag, store->btHeadsetNum, store->moduleNum}));
    EXPECT_EQ(document.empty(), store->btConfig == nullptr) << "left for the caller to release";
  }
  host_redirect(BINAURAL_ALGO_COEFF_CONFIG_FILE, nullptr);
}

TEST_F(CoefficientFileTest, ListsDropEmptyFieldsSaturateAndStopAtTheirCapacity) {
  const std::tuple<const char*, int, int, unsigned, std::vector<int>> kCases[] = {
      {"1,,2,", 3, 0, 2, {1, 2, 99}},
      {",,,", 3, 0, 0, {99, 99, 99}},
      {" 1, -2 ,x", 3, 0, 3, {1, -2, 0}},
      {"2147483648,-99999999999999999999", 3, 0, 2, {2147483647, -2147483647 - 1, 99}},
      {"1,2,3,4", 3, -1, 77, {1, 2, 3}},
      {"", 3, -1, 77, {99, 99, 99}},
      {nullptr, 3, -1, 77, {99, 99, 99}},
      {"1", -1, -1, 77, {99, 99, 99}}};
  for (const auto& [text, capacity, result, expected_count, expected] : kCases) {
    std::vector<int> values(3, 99);
    unsigned count = 77;
    EXPECT_EQ(result, parse_and_save_item_coeffs(values.data(), capacity, text, &count));
    EXPECT_EQ(expected_count, count) << (text == nullptr ? "null" : text);
    EXPECT_EQ(expected, values);
  }
}

TEST_F(CoefficientFileTest, TheSampleFileMirrorsTheMirroredSelfieAlone) {
  tinyxml2::XMLDocument document;
  ASSERT_EQ(0, ParseCoefficients(SAMPLE_FILE, &document, &store_));
  for (const BtHeadsetConfig& headset : {store_.btConfig[0], store_.btConfig[1]}) {
    for (int p = 0; p < 3; ++p) {
      EXPECT_EQ(p == 2, headset.profiles[p].module->modes[0].selfieModeEn == 1);
    }
  }
}

}  // namespace
