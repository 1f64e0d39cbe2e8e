// The algorithm runtime: what an initialisation builds and what it leaves behind, which tuning reaches the
// library, and the timestamp slots.
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

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

constexpr char kTag[] = "BinauralRecordParseBcapAlgoConfig";
constexpr uint32_t kStereo = 12;
constexpr uint32_t kMono = 16;

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

  void ExpectNoInstance() {
    EXPECT_FALSE(gRuntimeParam.algInited);
    EXPECT_EQ(nullptr, gRuntimeParam.bcapHandle);
    EXPECT_EQ(nullptr, gRuntimeParam.algPersistMem);
    EXPECT_EQ(nullptr, gRuntimeParam.algScratchMem);
  }

  LogCapture log_;
};

TEST_F(AlgorithmRuntimeTest, InitialisationBuildsEverythingThatAReadNeeds) {
  ASSERT_EQ(0, Init());
  EXPECT_TRUE(gRuntimeParam.algInited);
  EXPECT_EQ(15360u, gRuntimeParam.ringBufferLen);
  EXPECT_EQ(15360, gRuntimeParam.preBuff->length);
  EXPECT_EQ(15360, gRuntimeParam.postBuff->length);
  EXPECT_EQ(48000u, gRuntimeParam.bcapInfo_.sampleRate);
  EXPECT_EQ(512u, gRuntimeParam.bcapInfo_.blockSize);
  EXPECT_EQ(600u, gRuntimeParam.bcapInfo_.extra);
  EXPECT_EQ(gRuntimeParam.procBuffer, gRuntimeParam.channelPtrs[0]);
  EXPECT_EQ(gRuntimeParam.procBuffer + 1, gRuntimeParam.channelPtrs[1]);
  EXPECT_EQ(2u, gRuntimeParam.inBufDesc.reserved);
  EXPECT_EQ(2u, gRuntimeParam.outBufDesc.reserved);
  EXPECT_EQ(0, bcap_pre_process(gRuntimeParam.bcapHandle, &gRuntimeParam.inBufDesc,
                                &gRuntimeParam.outBufDesc, gRuntimeParam.algScratchMem));
}

TEST_F(AlgorithmRuntimeTest, AFailedInitialisationSaysWhyAndTheNextOneWorks) {
  const std::string kSelf = "binaural_algorithm_init_1_0: ";
  const std::string kNoLength = kSelf + "audio ringBuffLen get fail----";
  const std::string kNoBuffer = kSelf + "enter, audio RingBuffer_create fail-----";
  const std::string kLong = kSelf + "ringBufferLen 16777232 is more than 16777216";
  const std::string kHuge = kSelf + "ringBufferLen 8589934608 is more than 16777216";
  const std::tuple<uint32_t, uint32_t, uint32_t, bool, std::vector<std::string>> kCases[] = {
      {48000, kStereo, 0, false, {kNoLength}},
      {48000, 0x40000000, 960, false, {kNoLength}},  // a mask of no kind
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
      ExpectNoInstance();
      EXPECT_EQ(buffers_stay, gRuntimeParam.preBuff != nullptr);
      EXPECT_EQ(buffers_stay, gRuntimeParam.postBuff != nullptr);
    }
    Stream(44100, kMono, 441);
    ASSERT_EQ(0, Init());
    EXPECT_EQ(441u * 8, gRuntimeParam.ringBufferLen);
    EXPECT_EQ(44100u, gRuntimeParam.bcapInfo_.sampleRate);
  }
  log_.Take();
  EXPECT_EQ(-1, binaural_algorithm_init_1_0(nullptr, 0, true));
  EXPECT_THAT(log_.TakeErrors(kTag),
              ElementsAre("binaural_algorithm_init_1_0: enter runtimeParams nullptr, return----"));
}

TEST_F(AlgorithmRuntimeTest, OnlyTheSameModeWithoutForceLeavesTheInstanceAlone) {
  const std::tuple<int, bool, bool, uint32_t> kCases[] = {
      {0, false, false, 0}, {0, true, true, 0},  {1, false, true, 1}, {1, false, false, 1},
      {7, false, true, 0},  {7, false, true, 0}, {-1, false, true, 0}};
  ASSERT_EQ(0, Init());
  for (const auto& [mode, force, rebuilt, stored] : kCases) {
    const char kSound[4] = {};
    ASSERT_EQ(4, RingBuffer_write(gRuntimeParam.preBuff, kSound, 4, 0));
    EXPECT_EQ(0, Init(mode, force));
    EXPECT_EQ(stored, gRuntimeParam.bcapInfo_.mode) << mode;
    EXPECT_EQ(rebuilt ? 0 : 4, RingBuffer_available_data(gRuntimeParam.preBuff)) << mode;
    const std::string kAlready =
        "binaural_algorithm_init_1_0: enter, already mode " + std::to_string(mode) + ", return----";
    const std::vector<std::string> errors = log_.TakeErrors(kTag);
    EXPECT_EQ(rebuilt ? 0 : 1, std::count(errors.begin(), errors.end(), kAlready));
    RingBuffer_clear(gRuntimeParam.preBuff);
  }
}

TEST_F(AlgorithmRuntimeTest, ReleaseTakesEverythingInAnyStateAndAsOftenAsCalled) {
  EXPECT_EQ(0, binaural_algorithm_release_1_0(&gRuntimeParam)) << "nothing was built";
  EXPECT_EQ(0, binaural_algorithm_release_1_0(nullptr));
  Stream(16000, kStereo, 320);
  ASSERT_EQ(-1, Init());
  EXPECT_EQ(0, binaural_algorithm_release_1_0(&gRuntimeParam)) << "only ring buffers";
  EXPECT_EQ(nullptr, gRuntimeParam.preBuff);
  Stream(48000, kStereo, 960);
  ASSERT_EQ(0, Init());
  for (int repeat = 0; repeat < 2; ++repeat) {
    EXPECT_EQ(0, binaural_algorithm_release_1_0(&gRuntimeParam));
    ExpectNoInstance();
    EXPECT_EQ(nullptr, gRuntimeParam.preBuff);
    EXPECT_EQ(nullptr, gRuntimeParam.postBuff);
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
    EXPECT_EQ(selfie_mode, a.selfie_mode);
    EXPECT_EQ(pregain_boost, a.pregain_boost);
    EXPECT_EQ(rmx_amount, a.rmx_amount);
    EXPECT_THAT((std::vector<int32_t>{a.hpf_enable, a.rnn_enable, a.rnn_amount, a.peq_amount,
                                      a.nfm_amount}),
                ElementsAre(1, 1, 8, 16, 16));
    EXPECT_THAT((std::vector<int32_t>{a.pregain_enable, a.pregain_limiter_peak, a.postgain_enable,
                                      a.postgain_boost, a.postgain_limiter_peak}),
                ElementsAre(1, 256, 1, 320, 241));
    EXPECT_EQ(41, a.peq_band_gain.values[0]);
    EXPECT_EQ(211, a.peq_band_gain.values[72]);
    EXPECT_EQ(-724, a.nfm_band_energy.values[0]);
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

  const auto texts = [this] {
    std::vector<std::string> found;
    for (const LoggedLine& line : log_.Take(kTag)) {
      EXPECT_EQ(ANDROID_LOG_INFO, line.priority);
      found.push_back(line.text);
    }
    return found;
  };
  const std::vector<std::string> kExpected = {
      "binaural_algorithm_init_1_0 enter----",
      "binaural_algorithm_init_1_0: enter, buffer_size 3840, channel_count 2, ringBufferLen 15360",
      "binaural_algorithm_init_1_0: enter, current mode set  0",
      "algo_get_param_index choose profileMode = 1",
      "algo_change_scene_parameters enter: scene=1 mode=0 index= 1",
      "algo_change_scene_parameters coeffBuf->parseConfigSuccessFlag = 1",
      "getCoeffConfig gRuntimeParam.btHeadsetName Buds",
      "getCoeffConfig got bt index 0",
      "getCoeffConfig profile name ",
      "getCoeffConfig module name ",
      "algo_change_scene_parameters binauralUseConfigCoeff...",
      "setOnePassModeSceneParameters enter: selfieModeEn=0 hpfEn=5 pregainEn=0 pregainBoost=1000 "
      "pregainLimiterPeak=0 rnnEn=0 rnnAmount=0 postgainEn=0 postgainBoost=0 "
      "postgainLimiterPeak=0 rmxAmount=0 peqAmount=0 nfmAmount=0",
  };
  EXPECT_EQ(kExpected, texts());

  // A store that was released and still says parsed gives the built-in values.
  adev_release_algo_config_coeff_1_0();
  ASSERT_EQ(1u, coeffBuf.parseConfigSuccessFlag);
  ASSERT_EQ(0, Init());
  EXPECT_EQ(288, Applied().pregain_boost);
  EXPECT_THAT(texts(), IsSupersetOf({"getCoeffConfig has no matched btName...",
                                     "algo_change_scene_parameters binauralUseDefaultCoeff..."}));
}

TEST_F(AlgorithmRuntimeTest, WhatDoesNotFitFallsBackAndTheChoiceNamesTheStep) {
  Parsed("Buds", 7);
  const auto chooses = [](TuningStep step, const char* headset, int scene_index, int mode) {
    SCOPED_TRACE(testing::Message() << headset << " " << scene_index << " " << mode);
    const TuningChoice choice = ChooseTuning(coeffBuf, headset, scene_index, mode);
    EXPECT_EQ(step, choice.step);
    const bool matched = step == TuningStep::kMatched;
    EXPECT_EQ(matched, choice.profile != nullptr);
    EXPECT_EQ(matched, choice.params->pregainBoost == 7);
    EXPECT_EQ(73u, choice.peqNum);
    EXPECT_EQ(matched ? -500 : -724, choice.nfmData[0]);
  };
  chooses(TuningStep::kMatched, "Buds", 0, 0);
  chooses(TuningStep::kNoHeadset, "buds", 0, 0);
  chooses(TuningStep::kNoHeadset, "Buds 2", 0, 0);
  chooses(TuningStep::kNoHeadset, "", 0, 0);
  chooses(TuningStep::kNoProfile, "Buds", 2, 0);
  chooses(TuningStep::kModeNotInModule, "Buds", 0, 1);
  chooses(TuningStep::kModeNotInModule, "Buds", 0, 40);  // beyond a shift
  chooses(TuningStep::kModeNotInModule, "Buds", 0, -1);

  // The first headset of a name whose profile fits wins.
  BtHeadsetConfig pair[2] = {coeffBuf.btConfig[0], coeffBuf.btConfig[0]};
  pair[0].profiles[0].moduleConfigFound = 0;
  AlgoConfigCoeff store = coeffBuf;
  store.btConfig = pair;
  store.btHeadsetNum = 2;
  EXPECT_EQ(1u, ChooseTuning(store, "Buds", 0, 0).headset);
  EXPECT_EQ(0u, ChooseTuning(store, "Buds", 1, 0).headset);

  ReleaseCoefficients(&coeffBuf);  // the flag stays
  EXPECT_EQ(TuningStep::kNoStore, ChooseTuning(coeffBuf, "Buds", 0, 0).step);
}

TEST_F(AlgorithmRuntimeTest, BandListsTheLibraryObjectsToAreLoggedAndAppliedAsFarAsTheyGo) {
  const std::vector<std::string> kObjections = {
      "setOnePassModeSceneParameters Setting PEQ band gains is invalid and error_id: 12",
      "setOnePassModeSceneParameters Setting NFM band energy is invalid and error_id 14"};
  const std::tuple<uint32_t, uint32_t, bool> kCases[] = {{48000, 73, true},
                                                         {44100, 75, true},
                                                         {48000, 75, false},
                                                         {44100, 96, false},
                                                         {48000, 10, false}};
  for (const auto& [rate_hz, values, fits] : kCases) {
    SCOPED_TRACE(values);
    ReleaseCoefficients(&coeffBuf);
    Parsed("", 0, values);
    Stream(rate_hz, kStereo, 960);
    ASSERT_EQ(0, Init());
    EXPECT_EQ(fits ? std::vector<std::string>{} : kObjections, log_.TakeErrors(kTag));
    EXPECT_EQ(values > 74 ? 10 : 0, Applied().peq_band_gain.values[74]);
  }
}

TEST_F(AlgorithmRuntimeTest, ModesAndScenesThatCannotBeAppliedChangeNothing) {
  gRuntimeParam.algScene = SCENE_SELFIE;
  ASSERT_EQ(0, Init(1));
  EXPECT_EQ(144, Applied().pregain_boost) << "as the library was created";
  EXPECT_THAT(log_.TakeErrors(kTag),
              ElementsAre("algo_change_scene_parameters mode=1 not support."));

  gRuntimeParam.algScene = SCENE_SELFIE_MIRROR;
  ASSERT_EQ(0, Init(0));
  EXPECT_EQ(144, Applied().pregain_boost);
  EXPECT_THAT(log_.TakeErrors(kTag),
              ElementsAre("algo_change_scene_parameters scene2, illegal----"));

  algo_change_scene_parameters(&gRuntimeParam, SCENE_SELFIE, 3, false);
  EXPECT_EQ(SCENE_SELFIE_MIRROR, gRuntimeParam.algScene);
  algo_change_scene_parameters(&gRuntimeParam, SCENE_SELFIE, 0, false);
  EXPECT_EQ(SCENE_SELFIE, gRuntimeParam.algScene);
  EXPECT_EQ(288, Applied().pregain_boost);
}

TEST_F(AlgorithmRuntimeTest, TwoTimestampSlotsAreGivenOutAndAThirdIsRefused) {
  const std::tuple<bool, bool, bool, int> kCases[] = {{false, false, true, 0},
                                                      {true, false, true, 1},
                                                      {false, true, true, 0},
                                                      {true, true, false, -1}};
  for (const auto& [first, second, free, expected] : kCases) {
    gRuntimeParam.saved[0].used = first;
    gRuntimeParam.saved[1].used = second;
    signed char index = 99;
    EXPECT_EQ(free, getTimestampSavingSpace_1_0(&index));
    EXPECT_EQ(expected, index);
    EXPECT_EQ(free, getTimestampSavingSpace_1_0(nullptr));
  }
  EXPECT_THAT(
      log_.TakeErrors(kTag),
      Contains("getTimestampSavingSpace_1_0 enter, saved too many timestamp error----").Times(2));
  EXPECT_EQ(&gRuntimeParam, record_get_runtime_parameters_1_0());
  EXPECT_TRUE(is_bcap_algo_1_0());
}

}  // namespace
