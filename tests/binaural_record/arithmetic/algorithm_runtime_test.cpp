// The algorithm runtime: when an initialisation fails or is left out, and which tuning reaches the library.
// What it builds is shown by the read path, what it leaves behind by the allocation failures.
#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_runtime.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bcap_inspect.h"
#include "tests/support/log_capture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

constexpr char kTag[] = "BinauralRecordParseBcapAlgoConfig";
constexpr uint32_t kStereo = 12;

class AlgorithmRuntimeTest : public ::testing::Test {
 protected:
  AlgorithmRuntimeTest() {
    gRuntimeParam = {};
    Stream(48000, kStereo, 960);
  }
  ~AlgorithmRuntimeTest() override {
    binaural_algorithm_release_1_0(&gRuntimeParam);
    gRuntimeParam = {};
    ReleaseCoefficients(&coeffBuf);
    coeffBuf = {};
  }

  void Stream(uint32_t rate_hz, uint32_t mask, uint32_t frames) {
    gRuntimeParam.sampleRate = rate_hz;
    gRuntimeParam.channelMask = mask;
    gRuntimeParam.frameCount = frames;
  }

  // A store with one module, of mode 0 with pre-gain boost `boost`, and one headset with a value in each list.
  // Owned by coeffBuf.
  void Parsed(const char* headset, int32_t boost, uint32_t list_values = 73) {
    coeffBuf.parseConfigSuccessFlag = 1;
    coeffBuf.btHeadsetNum = coeffBuf.moduleNum = 1;
    coeffBuf.moduleConfig = static_cast<ModuleConfig*>(calloc(1, sizeof(ModuleConfig)));
    coeffBuf.btConfig = static_cast<BtHeadsetConfig*>(calloc(1, sizeof(BtHeadsetConfig)));
    ModuleConfig& module = coeffBuf.moduleConfig[0];
    module.modeConfigFlag = 1;
    module.modes[0].pregainBoost = boost;
    BtHeadsetConfig& config = coeffBuf.btConfig[0];
    strcpy(config.btHeadsetName, headset);
    config.nfmNum = list_values;
    std::fill_n(config.nfmBandEnergy, list_values, -500);
    config.profileNum = 2;
    for (int p = 0; p < 2; ++p) {
      config.profiles[p].moduleConfigFound = 1;
      config.profiles[p].module = &module;
      config.profiles[p].peqBandGainNum[0] = list_values;
      std::fill_n(config.profiles[p].peqBandGain[0], list_values, 10 + p);
    }
  }

  int Init(int mode = 0, bool force = true) {
    log_.Take();
    return binaural_algorithm_init_1_0(&gRuntimeParam, mode, force);
  }

  bcap::Parameters Applied() {
    bcap::Parameters parameters{};
    EXPECT_TRUE(bcap::inspect_parameters(gRuntimeParam.bcapHandle, parameters));
    return parameters;
  }

  LogCapture log_;
};

TEST_F(AlgorithmRuntimeTest, AFailedInitialisationSaysWhyAndTheNextOneWorks) {
  const std::string kSelf = "binaural_algorithm_init_1_0: ";
  const std::string kNoBuffer = kSelf + "enter, audio RingBuffer_create fail-----";
  const std::string kLong = kSelf + "ringBufferLen 16777232 is more than 16777216";
  const std::string kHuge = kSelf + "ringBufferLen 8589934608 is more than 16777216";
  const std::tuple<uint32_t, uint32_t, uint32_t, bool, std::vector<std::string>> kCases[] = {
      // A mask of no kind.
      {48000, 0x40000000, 960, false, {kSelf + "audio ringBuffLen get fail----"}},
      {16000, kStereo, 320, true, {kSelf + "bcap_query_memory fail."}},
      {48000, kStereo, (16u << 20) / 16 + 1, false, {kLong, kNoBuffer}},  // more than 16 MiB
      {48000, kStereo, 0x20000001, false, {kHuge, kNoBuffer}},            // more than 32 bits
  };
  for (const auto& [rate_hz, mask, frames, buffers_stay, errors] : kCases) {
    SCOPED_TRACE(errors[0]);
    Stream(rate_hz, mask, frames);
    for (int attempt = 0; attempt < 2; ++attempt) {  // the second must not leak what the first left
      EXPECT_EQ(-1, Init());
      EXPECT_EQ(errors, log_.TakeErrors(kTag));
      EXPECT_FALSE(gRuntimeParam.algInited || gRuntimeParam.algPersistMem != nullptr);
      EXPECT_EQ(buffers_stay, gRuntimeParam.preBuff != nullptr);
      EXPECT_EQ(buffers_stay, gRuntimeParam.postBuff != nullptr);
    }
  }
  Stream(44100, 16, 441);  // mono
  ASSERT_EQ(0, Init());
  EXPECT_EQ(441u * 8, gRuntimeParam.ringBufferLen);
  log_.Take();
  EXPECT_EQ(-1, binaural_algorithm_init_1_0(nullptr, 0, true));
  EXPECT_EQ(0, binaural_algorithm_release_1_0(nullptr));
  EXPECT_THAT(log_.TakeErrors(kTag),
              ElementsAre("binaural_algorithm_init_1_0: enter runtimeParams nullptr, return----"));
}

TEST_F(AlgorithmRuntimeTest, OnlyTheSameModeWithoutForceLeavesTheInstanceAlone) {
  // Mode, force, whether it is rebuilt, the mode that is stored, the line that says so.
  const std::tuple<int, bool, bool, uint32_t, std::string> kCases[] = {
      {0, false, false, 0, ", already mode 0, return----"},
      {0, true, true, 0, " algMode 0, runtimeParams->bcapInfo_.mode 0, force 1"},
      {1, false, true, 1, " algMode 1, runtimeParams->bcapInfo_.mode 0, force 0"},
      {7, false, true, 0, " algMode 7, runtimeParams->bcapInfo_.mode 1, force 0"},
      {-1, false, true, 0, " algMode -1, runtimeParams->bcapInfo_.mode 0, force 0"}};
  ASSERT_EQ(0, Init());
  const bcap_config_t& config = gRuntimeParam.bcapInfo_;
  EXPECT_THAT((std::vector{config.sampleRate, config.blockSize, config.extra}),
              ElementsAre(48000, 512, 600));
  for (const auto& [mode, force, rebuilt, stored, line] : kCases) {
    SCOPED_TRACE(mode);
    gRuntimeParam.preBuff->end = 4;
    EXPECT_EQ(0, Init(mode, force));
    EXPECT_EQ(stored, config.mode);
    EXPECT_EQ(rebuilt ? 0 : 4, gRuntimeParam.preBuff->end);
    EXPECT_EQ((rebuilt ? "I " : "E ") + ("binaural_algorithm_init_1_0: enter" + line),
              log_.TakeTexts(kTag).at(1));
  }
}

TEST_F(AlgorithmRuntimeTest, TheBuiltInValuesOfEachSceneReachTheLibrary) {
  const std::tuple<uint32_t, bool, int32_t, int32_t, int32_t> kCases[] = {
      {0, false, 0, 256, 9}, {0, true, 0, 256, 9}, {1, false, 0, 288, 11}, {1, true, 1, 288, 11}};
  for (const auto& [scene, mirror, selfie_mode, pregain_boost, rmx_amount] : kCases) {
    SCOPED_TRACE(scene * 10 + mirror);
    gRuntimeParam.algScene = scene;
    gRuntimeParam.mirrorEnabled = mirror;
    ASSERT_EQ(0, Init());
    EXPECT_THAT(log_.TakeErrors(kTag), IsEmpty());
    const bcap::Parameters a = Applied();
    EXPECT_THAT(
        (std::vector<int32_t>{a.selfie_mode, a.pregain_boost, a.rmx_amount, a.hpf_enable,
                              a.rnn_enable, a.rnn_amount, a.peq_amount, a.nfm_amount,
                              a.pregain_enable, a.pregain_limiter_peak, a.postgain_enable,
                              a.postgain_boost, a.postgain_limiter_peak}),
        ElementsAre(selfie_mode, pregain_boost, rmx_amount, 1, 1, 8, 16, 16, 1, 256, 1, 320, 241));
    EXPECT_THAT((std::vector<int32_t>{a.peq_band_gain.values[0], a.peq_band_gain.values[72],
                                      a.nfm_band_energy.values[0]}),
                ElementsAre(41, 211, -724));
    EXPECT_EQ(scene, gRuntimeParam.algScene) << "the scene is kept, not the index";
  }
}

TEST_F(AlgorithmRuntimeTest, AProfileOfTheFileReachesTheLibraryClampedThere) {
  Parsed("Buds", 1000);
  coeffBuf.moduleConfig[0].modes[0].hpfEn = 5;
  strcpy(gRuntimeParam.btHeadsetName, "Buds");
  gRuntimeParam.algScene = SCENE_SELFIE;
  ASSERT_EQ(0, Init());
  const bcap::Parameters applied = Applied();
  EXPECT_EQ(320, applied.pregain_boost);
  EXPECT_EQ(5, applied.hpf_enable) << "switches are handed over as stored";
  EXPECT_EQ(0, applied.rnn_amount);
  EXPECT_EQ(1, applied.postgain_limiter_peak);
  EXPECT_EQ(11, applied.peq_band_gain.values[72]) << "those of the second profile";
  EXPECT_EQ(-500, applied.nfm_band_energy.values[0]);

  EXPECT_THAT(
      log_.TakeTexts(kTag),
      ElementsAre("I binaural_algorithm_init_1_0 enter----",
                  "I binaural_algorithm_init_1_0: enter, buffer_size 3840, channel_count 2, "
                  "ringBufferLen 15360",
                  "I binaural_algorithm_init_1_0: enter, current mode set  0",
                  "I algo_get_param_index choose profileMode = 1",
                  "I algo_change_scene_parameters enter: scene=1 mode=0 index= 1",
                  "I algo_change_scene_parameters coeffBuf->parseConfigSuccessFlag = 1",
                  "I getCoeffConfig gRuntimeParam.btHeadsetName Buds",
                  "I getCoeffConfig got bt index 0", "I getCoeffConfig profile name ",
                  "I getCoeffConfig module name ",
                  "I algo_change_scene_parameters binauralUseConfigCoeff...",
                  "I setOnePassModeSceneParameters enter: selfieModeEn=0 hpfEn=5 pregainEn=0 "
                  "pregainBoost=1000 pregainLimiterPeak=0 rnnEn=0 rnnAmount=0 postgainEn=0 "
                  "postgainBoost=0 postgainLimiterPeak=0 rmxAmount=0 peqAmount=0 nfmAmount=0"));

  // The headset is that of gRuntimeParam, not that of the record that is tuned.
  BinauralStreamInRuntimeParam other = gRuntimeParam;
  strcpy(other.btHeadsetName, "Other");
  coeffBuf.moduleConfig[0].modes[0].pregainBoost = 300;
  algo_change_scene_parameters(&other, SCENE_SELFIE, 0, false);
  EXPECT_EQ(300, Applied().pregain_boost);

  // A store that was released and still says parsed gives the built-in values.
  adev_release_algo_config_coeff_1_0();
  ASSERT_EQ(1u, coeffBuf.parseConfigSuccessFlag);
  ASSERT_EQ(0, Init());
  EXPECT_EQ(288, Applied().pregain_boost);
  EXPECT_THAT(log_.TakeTexts(kTag),
              IsSupersetOf({"I getCoeffConfig has no matched btName...",
                            "I algo_change_scene_parameters binauralUseDefaultCoeff..."}));
}

// Each step that falls back is told by the tuning tool, through the same choice.
TEST_F(AlgorithmRuntimeTest, TheFirstHeadsetOfANameWhoseProfileFitsWins) {
  Parsed("Buds", 7);
  EXPECT_EQ(TuningStep::kModeNotInModule, ChooseTuning(coeffBuf, "Buds", 0, 40).step);
  BtHeadsetConfig pair[2] = {coeffBuf.btConfig[0], coeffBuf.btConfig[0]};
  pair[0].profiles[0].moduleConfigFound = 0;
  AlgoConfigCoeff store = coeffBuf;
  store.btConfig = pair;
  store.btHeadsetNum = 2;
  EXPECT_EQ(1u, ChooseTuning(store, "Buds", 0, 0).headset);
  EXPECT_EQ(0u, ChooseTuning(store, "Buds", 1, 0).headset);
}

// What of them is applied is shown by the library's tests.
TEST_F(AlgorithmRuntimeTest, BandListsTheLibraryObjectsToAreLogged) {
  const std::vector<std::string> kObjections = {
      "setOnePassModeSceneParameters Setting PEQ band gains is invalid and error_id: 12",
      "setOnePassModeSceneParameters Setting NFM band energy is invalid and error_id 14"};
  for (const auto& [rate_hz, fits] : {std::pair{44100u, true}, std::pair{48000u, false}}) {
    ReleaseCoefficients(&coeffBuf);
    Parsed("", 0, 75);
    Stream(rate_hz, kStereo, 960);
    ASSERT_EQ(0, Init());
    EXPECT_EQ(fits ? std::vector<std::string>{} : kObjections, log_.TakeErrors(kTag));
    EXPECT_EQ(10, Applied().peq_band_gain.values[74]);
  }
}

TEST_F(AlgorithmRuntimeTest, ModesAndScenesThatCannotBeAppliedChangeNothing) {
  const std::tuple<uint32_t, int, const char*> kCases[] = {
      {SCENE_SELFIE, 1, "algo_change_scene_parameters mode=1 not support."},
      {SCENE_SELFIE_MIRROR, 0, "algo_change_scene_parameters scene2, illegal----"}};
  for (const auto& [scene, mode, error] : kCases) {
    gRuntimeParam.algScene = scene;
    ASSERT_EQ(0, Init(mode));
    EXPECT_EQ(144, Applied().pregain_boost) << "as the library was created";
    EXPECT_THAT(log_.TakeErrors(kTag), ElementsAre(error));
  }
  algo_change_scene_parameters(&gRuntimeParam, SCENE_SELFIE, 3, false);
  EXPECT_EQ(SCENE_SELFIE_MIRROR, gRuntimeParam.algScene);
  algo_change_scene_parameters(&gRuntimeParam, SCENE_SELFIE, 0, false);
  EXPECT_EQ(SCENE_SELFIE, gRuntimeParam.algScene);
  EXPECT_EQ(288, Applied().pregain_boost);
}

}  // namespace
