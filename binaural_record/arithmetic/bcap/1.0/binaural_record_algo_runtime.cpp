// Builds, tunes and destroys the library instance of the capture stream. Called by stream open and
// close and by the device's parameter operation; the timestamp slots by the capture thread.
#define LOG_TAG "BinauralRecordParseBcapAlgoConfig"

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_runtime.h"

#include <cstdlib>
#include <cstring>
#include <mutex>

#include <system/audio.h>

#include "binaural_record/utils/locks.h"
#include "binaural_record/utils/log.h"

using vendor::corva::binaural_record::utils::gRuntimeMutex;
using vendor::corva::binaural_record::utils::RuntimeLock;

BinauralStreamInRuntimeParam gRuntimeParam;

namespace {

constexpr uint32_t kBcapExtra =
    600;  // required by the library's configuration, without further use
constexpr uint32_t kRingBufferPeriods = 4;
// The largest plausible stream, 192 kHz with 30 channels, needs 13.8 MB; more than this comes from
// session parameters that make no sense.
constexpr uint64_t kMaxRingBufferBytes = 16u << 20;

constexpr AlgoModeParams Applied(const int32_t (&words)[kAlgoAppliedParams]) {
  AlgoModeParams params{};
  for (size_t i = 0; i < kAlgoAppliedParams; ++i) {
    params.*kAlgoParamItems[i].field = words[i];
  }
  return params;
}

// By scene index.
constexpr AlgoModeParams kDefaultParams[] = {
    // clang-format off
    //      selfie hpf  pregain boost peak  rnn amount  postgain boost peak  rmx peq nfm
    Applied({0,    1,   1,      256,  256,  1,  8,      1,       320,  241,  9,  16, 16}),
    Applied({0,    1,   1,      288,  256,  1,  8,      1,       320,  241,  11, 16, 16}),
    Applied({1,    1,   1,      288,  256,  1,  8,      1,       320,  241,  11, 16, 16}),
    // clang-format on
};

// Frees whatever exists of instance, memory and buffers, and nulls it.
void Demolish(BinauralStreamInRuntimeParam* runtime) {
  RingBuffer_destroy(runtime->preBuff);
  runtime->preBuff = nullptr;
  RingBuffer_destroy(runtime->postBuff);
  runtime->postBuff = nullptr;
  if (runtime->bcapHandle != nullptr) {
    bcap_shutdown(runtime->bcapHandle);
    runtime->bcapHandle = nullptr;
  }
  std::free(runtime->algPersistMem);
  runtime->algPersistMem = nullptr;
  std::free(runtime->algScratchMem);
  runtime->algScratchMem = nullptr;
  runtime->algInited = false;
}

bool CreateRingBuffers(BinauralStreamInRuntimeParam* runtime, const char* function) {
  const uint32_t channels = audio_channel_count_from_in_mask(runtime->channelMask);
  const uint64_t period_bytes = uint64_t{runtime->frameCount} * channels * sizeof(int16_t);
  const uint64_t bytes = kRingBufferPeriods * period_bytes;
  if (bytes == 0) {
    runtime->ringBufferLen = 0;
    BINAURAL_LOG(ERROR) << function << ": audio ringBuffLen get fail----";
    return false;
  }
  BINAURAL_LOG(INFO) << function << ": enter, buffer_size " << period_bytes << ", channel_count "
                     << channels << ", ringBufferLen " << bytes;
  if (bytes > kMaxRingBufferBytes) {
    runtime->ringBufferLen = 0;
    BINAURAL_LOG(ERROR) << function << ": ringBufferLen " << bytes << " is more than "
                        << kMaxRingBufferBytes;
  } else {
    runtime->ringBufferLen = static_cast<uint32_t>(bytes);
    runtime->preBuff = RingBuffer_create(static_cast<int>(bytes));
    runtime->postBuff = RingBuffer_create(static_cast<int>(bytes));
  }
  if (runtime->preBuff == nullptr || runtime->postBuff == nullptr) {
    BINAURAL_LOG(ERROR) << function << ": enter, audio RingBuffer_create fail-----";
    Demolish(runtime);
    return false;
  }
  return true;
}

// Memory and instance for the configuration in bcapInfo_. False leaves the caller to demolish.
bool CreateInstance(BinauralStreamInRuntimeParam* runtime, uint32_t persistent_bytes,
                    const char* function) {
  runtime->algPersistMem = std::calloc(persistent_bytes, 1);
  if (runtime->algPersistMem == nullptr) {
    BINAURAL_LOG(ERROR) << function << ": enter, audio algPersistMem calloc fail, memoryBufLen "
                        << persistent_bytes;
    return false;
  }
  const uint32_t scratch_bytes = bcap_query_scratch(&runtime->bcapInfo_);
  if (scratch_bytes < 1) {
    BINAURAL_LOG(ERROR) << function << ": bcap_query_scratch fail.";
    return false;
  }
  runtime->algScratchMem = std::calloc(scratch_bytes, 1);
  if (runtime->algScratchMem == nullptr) {
    BINAURAL_LOG(ERROR) << function << ": enter, audio algScratchMem calloc fail, scratchBufLen "
                        << scratch_bytes;
    return false;
  }
  // The library reports a refusal only by leaving the handle, null since the last demolition, alone.
  if (bcap_init(&runtime->bcapInfo_, runtime->algPersistMem, &runtime->bcapHandle) != 0 ||
      runtime->bcapHandle == nullptr) {
    BINAURAL_LOG(ERROR) << function << ": audio bcap_init fail----";
    return false;
  }
  return true;
}

// The step that makes this headset unfit, or kMatched.
TuningStep Fit(const BtHeadsetConfig& headset, int scene_index, int mode) {
  const ProfileConfig& profile = headset.profiles[scene_index];
  if (profile.moduleConfigFound != 1 || profile.module == nullptr) {
    return TuningStep::kNoProfile;
  }
  const bool has_mode = mode >= 0 && static_cast<size_t>(mode) < kAlgoModes &&
                        (profile.module->modeConfigFlag >> mode & 1) != 0;
  return has_mode ? TuningStep::kMatched : TuningStep::kModeNotInModule;
}

void LogChoice(const TuningChoice& choice, bool store_parsed, const char* function) {
  constexpr char kStep[] = "getCoeffConfig";
  if (store_parsed) {
    BINAURAL_LOG(INFO) << kStep << " gRuntimeParam.btHeadsetName " << gRuntimeParam.btHeadsetName;
  }
  if (choice.step == TuningStep::kMatched) {
    BINAURAL_LOG(INFO) << kStep << " got bt index " << choice.headset;
    BINAURAL_LOG(INFO) << kStep << " profile name " << choice.profile->profileName;
    BINAURAL_LOG(INFO) << kStep << " module name " << choice.profile->moduleName;
    BINAURAL_LOG(INFO) << function << " binauralUseConfigCoeff...";
    return;
  }
  if (store_parsed) {
    BINAURAL_LOG(INFO) << kStep << " has no matched btName...";
  }
  BINAURAL_LOG(INFO) << function << " binauralUseDefaultCoeff...";
}

}  // namespace

int TuningSceneIndex(uint32_t scene, bool mirror) noexcept {
  switch (scene) {
    case SCENE_NORMAL:
      return SCENE_NORMAL;
    case SCENE_SELFIE:
      return mirror ? SCENE_SELFIE_MIRROR : SCENE_SELFIE;
    default:
      return -1;
  }
}

TuningChoice ChooseTuning(const AlgoConfigCoeff& store, const char* headset, int scene_index,
                          int mode) noexcept {
  TuningChoice choice{TuningStep::kNoStore,
                      0,
                      nullptr,
                      nullptr,
                      &kDefaultParams[scene_index],
                      A_NFM_TUNING_DATA_SR48K,
                      A_PEQ_TUNING_DATA_PRESET1_SR48K,
                      BCAP_BANDS_48000,
                      BCAP_BANDS_48000};
  // A released store still says that it was parsed.
  if (store.parseConfigSuccessFlag == 0 || store.btConfig == nullptr) {
    return choice;
  }
  choice.step = TuningStep::kNoHeadset;
  for (uint32_t h = 0; h < store.btHeadsetNum; ++h) {
    const BtHeadsetConfig& candidate = store.btConfig[h];
    if (std::strncmp(candidate.btHeadsetName, headset, kBtHeadsetNameBytes) != 0) {
      continue;
    }
    choice.headset = h;
    choice.step = Fit(candidate, scene_index, mode);
    if (choice.step == TuningStep::kMatched) {
      choice.profile = &candidate.profiles[scene_index];
      choice.module = choice.profile->module;
      choice.params = &choice.module->modes[0];
      choice.nfmData = candidate.nfmBandEnergy;
      choice.nfmNum = candidate.nfmNum;
      choice.peqData = choice.profile->peqBandGain[0];
      choice.peqNum = choice.profile->peqBandGainNum[0];
      break;
    }
  }
  return choice;
}

void setOnePassModeSceneParameters(BinauralStreamInRuntimeParam* runtime,
                                   AlgoConfigCtlParams* ctl) noexcept {
  const bcap_handle_t handle = runtime->bcapHandle;
  const AlgoModeParams& params = ctl->params;
  BINAURAL_LOG(INFO) << __func__ << " enter: " << params;
  bcap_selfie_mode_set(handle, params.selfieModeEn);
  bcap_hpf_enable_set(handle, params.hpfEn);
  bcap_pregain_enable_set(handle, params.pregainEn);
  bcap_pregain_boost_set(handle, params.pregainBoost);
  bcap_pregain_limiter_peak_set(handle, params.pregainLimiterPeak);
  bcap_rnn_enable_set(handle, params.rnnEn);
  bcap_rnn_amount_set(handle, params.rnnAmount);
  bcap_postgain_enable_set(handle, params.postgainEn);
  bcap_postgain_boost_set(handle, params.postgainBoost);
  bcap_postgain_limiter_peak_set(handle, params.postgainLimiterPeak);
  bcap_rmx_amount_set(handle, params.rmxAmount);
  bcap_peq_amount_set(handle, params.peqAmount);
  bcap_nfm_amount_set(handle, params.nfmAmount);
  int error =
      bcap_peq_band_gain_tuning_set(handle, static_cast<int32_t>(ctl->peqNum), ctl->peqData);
  if (error != 0) {
    BINAURAL_LOG(ERROR) << __func__ << " Setting PEQ band gains is invalid and error_id: " << error;
  }
  error = bcap_nfm_band_energy_tuning_set(handle, static_cast<int32_t>(ctl->nfmNum), ctl->nfmData);
  if (error != 0) {
    // Deliberate: no colon here.
    BINAURAL_LOG(ERROR) << __func__ << " Setting NFM band energy is invalid and error_id " << error;
  }
}

void algo_change_scene_parameters(BinauralStreamInRuntimeParam* runtime, BcapAlgScene scene,
                                  int mode, bool /*flag*/) noexcept {
  const int index = TuningSceneIndex(scene, runtime->mirrorEnabled);
  if (index < 0) {
    BINAURAL_LOG(ERROR) << __func__ << " scene" << static_cast<uint32_t>(scene) << ", illegal----";
    return;
  }
  BINAURAL_LOG(INFO) << "algo_get_param_index choose profileMode = " << index;
  const AlgoConfigCoeff& store = *get_bcap_algo_config_coeff_1_0();
  BINAURAL_LOG(INFO) << __func__ << " enter: scene=" << static_cast<uint32_t>(scene)
                     << " mode=" << mode << " index= " << index;
  BINAURAL_LOG(INFO) << __func__
                     << " coeffBuf->parseConfigSuccessFlag = " << store.parseConfigSuccessFlag;
  // Deliberate: the headset of gRuntimeParam, whichever record is tuned.
  const TuningChoice choice = ChooseTuning(store, gRuntimeParam.btHeadsetName, index, mode);
  LogChoice(choice, store.parseConfigSuccessFlag != 0, __func__);
  if (mode != 0) {
    BINAURAL_LOG(ERROR) << __func__ << " mode=" << mode << " not support.";
    return;
  }
  AlgoConfigCtlParams ctl{*choice.params, choice.nfmNum, choice.peqNum, choice.peqData,
                          choice.nfmData};
  setOnePassModeSceneParameters(runtime, &ctl);
  runtime->algScene = scene;
}

BinauralStreamInRuntimeParam* record_get_runtime_parameters_1_0() noexcept {
  return &gRuntimeParam;
}

bool is_bcap_algo_1_0() noexcept {
  return true;
}

int binaural_algorithm_init_1_0(BinauralStreamInRuntimeParam* runtime, int mode,
                                bool force) noexcept {
  BINAURAL_LOG(INFO) << __func__ << " enter----";
  if (runtime == nullptr) {
    BINAURAL_LOG(ERROR) << __func__ << ": enter runtimeParams nullptr, return----";
    return -1;
  }
  RuntimeLock lock(gRuntimeMutex);
  if (runtime->algInited) {
    if (!force && runtime->bcapInfo_.mode == static_cast<uint32_t>(mode)) {
      // Deliberate: ERROR, although nothing failed.
      BINAURAL_LOG(ERROR) << __func__ << ": enter, already mode " << mode << ", return----";
      return 0;
    }
    BINAURAL_LOG(INFO) << __func__ << ": enter algMode " << mode
                       << ", runtimeParams->bcapInfo_.mode " << runtime->bcapInfo_.mode
                       << ", force " << force;
  }
  // Without an instance too: a failed sizing has left its ring buffers.
  Demolish(runtime);
  if (!CreateRingBuffers(runtime, __func__)) {
    return -1;
  }
  const auto wanted_mode = static_cast<uint32_t>(mode);
  runtime->bcapInfo_ = {runtime->sampleRate, kBcapBlockFrames,
                        wanted_mode < kAlgoModes ? wanted_mode : 0, kBcapExtra};
  // Deliberate: two blanks.
  BINAURAL_LOG(INFO) << __func__ << ": enter, current mode set  " << runtime->bcapInfo_.mode;
  const uint32_t persistent_bytes = bcap_query_memory(&runtime->bcapInfo_);
  if (persistent_bytes < 1) {
    // Deliberate: the new ring buffers stay.
    BINAURAL_LOG(ERROR) << __func__ << ": bcap_query_memory fail.";
    return -1;
  }
  if (!CreateInstance(runtime, persistent_bytes, __func__)) {
    Demolish(runtime);
    return -1;
  }
  algo_change_scene_parameters(runtime, static_cast<BcapAlgScene>(runtime->algScene),
                               static_cast<int>(runtime->bcapInfo_.mode), false);
  runtime->channelPtrs[0] = &runtime->procBuffer[0];
  runtime->channelPtrs[1] = &runtime->procBuffer[1];
  runtime->algInited = true;
  runtime->inBufDesc = {2, 2, 2 * sizeof(int16_t), runtime->channelPtrs};
  runtime->outBufDesc = runtime->inBufDesc;
  return 0;
}

int binaural_algorithm_release_1_0(BinauralStreamInRuntimeParam* runtime) noexcept {
  RuntimeLock lock(gRuntimeMutex);
  if (runtime != nullptr) {
    Demolish(runtime);
  }
  return 0;
}

bool getTimestampSavingSpace_1_0(signed char* index) noexcept {
  BINAURAL_LOG(INFO) << __func__ << " enter----";
  RuntimeLock lock(gRuntimeMutex);
  signed char free_slot = -1;
  if (!gRuntimeParam.saved[0].used) {
    free_slot = 0;
  } else if (!gRuntimeParam.saved[1].used) {
    free_slot = 1;
  } else {
    BINAURAL_LOG(ERROR) << __func__ << " enter, saved too many timestamp error----";
  }
  if (index != nullptr) {
    *index = free_slot;
  }
  return free_slot >= 0;
}
