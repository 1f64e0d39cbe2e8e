// The one runtime of the process, tuned and asked; see the header.
#include "tools/tune/runtime.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include <system/audio.h>

#include "tools/common/failure.h"
#include "tools/tune/exit_codes.h"
#include "tools/tune/words.h"

namespace tune {

using bcap::Parameters;

// clang-format off
const std::array<AppliedParam, kAlgoAppliedParams> kAppliedParams = {{
    {&Parameters::selfie_mode,           Unit::kSwitch,      "left and right change places"},
    {&Parameters::hpf_enable,            Unit::kSwitch,      "high-pass against rumble"},
    {&Parameters::pregain_enable,        Unit::kSwitch,      "gain before everything else"},
    {&Parameters::pregain_boost,         Unit::kSixteenthDb, "how much"},
    {&Parameters::pregain_limiter_peak,  Unit::kPeak256,     "peak that it never exceeds"},
    {&Parameters::rnn_enable,            Unit::kSwitch,      "noise reduction"},
    {&Parameters::rnn_amount,            Unit::kEighths,     "how much"},
    {&Parameters::postgain_enable,       Unit::kSwitch,      "make-up gain at the end"},
    {&Parameters::postgain_boost,        Unit::kSixteenthDb, "the most that it may add"},
    {&Parameters::postgain_limiter_peak, Unit::kPeak256,     "peak that it never exceeds"},
    {&Parameters::rmx_amount,            Unit::kSixteenths,  "ambience mixed back"},
    {&Parameters::peq_amount,            Unit::kSixteenths,  "share of the band gains"},
    {&Parameters::nfm_amount,            Unit::kSixteenths,  "hold on the wearer's own voice"},
}};
// clang-format on

std::string InUnit(Unit unit, int32_t value) {
  char text[32];
  switch (unit) {
    case Unit::kSwitch:
      return value != 0 ? "on" : "off";
    case Unit::kSixteenthDb:
      return SixteenthDb(value);
    case Unit::kPeak256:
      std::snprintf(text, sizeof(text), "%.1f dBFS", 20.0 * std::log10(std::max(value, 1) / 256.0));
      return value == 256 ? "full scale" : text;
    case Unit::kEighths:
      return std::to_string(value) + "/8";
    case Unit::kSixteenths:
      return std::to_string(value) + "/16";
  }
  return "";
}

size_t AppliedIndex(const char* name) {
  size_t index = 0;
  while (index < kAlgoAppliedParams && std::strcmp(kAlgoParamItems[index].name, name) != 0) {
    ++index;
  }
  return index;
}

const char* SceneName(size_t scene_index) {
  constexpr const char* kNames[kScenes] = {"normal", "selfie", "selfie mirrored"};
  return kNames[scene_index];
}

TuningRequest RequestForSceneIndex(const std::string& headset, size_t scene_index) {
  TuningRequest request;
  request.headset = headset;
  request.scene = scene_index == SCENE_NORMAL ? SCENE_NORMAL : SCENE_SELFIE;
  request.mirror = scene_index == SCENE_SELFIE_MIRROR;
  return request;
}

TunedRuntime::TunedRuntime(const AlgoConfigCoeff& store, const TuningRequest& request)
    : choice_(ChooseTuning(store, request.headset.c_str(), request.scene_index(), request.mode)) {
  *get_bcap_algo_config_coeff_1_0() = store;  // lent; taken back in the destructor
  gRuntimeParam = {};
  gRuntimeParam.sampleRate = request.sample_rate_hz;
  gRuntimeParam.channelMask = AUDIO_CHANNEL_IN_STEREO;
  gRuntimeParam.format = AUDIO_FORMAT_PCM_16_BIT;
  gRuntimeParam.frameCount = kBcapBlockFrames;
  gRuntimeParam.algScene = request.scene;
  gRuntimeParam.mirrorEnabled = request.mirror;
  const size_t name_bytes = std::min(request.headset.size(), kBtHeadsetNameBytes - 1);
  std::memcpy(gRuntimeParam.btHeadsetName, request.headset.data(), name_bytes);
  if (binaural_algorithm_init_1_0(&gRuntimeParam, request.mode, true) != 0) {
    *get_bcap_algo_config_coeff_1_0() = {};
    throw tools::Failure(kIo,
                         "the capture library takes no stream of " +
                             std::to_string(request.sample_rate_hz) + " Hz",
                         "convert the recording to 48000 or 44100 Hz");
  }
}

TunedRuntime::~TunedRuntime() {
  binaural_algorithm_release_1_0(&gRuntimeParam);
  *get_bcap_algo_config_coeff_1_0() = {};
}

Parameters TunedRuntime::Stored() const {
  Parameters stored{};
  bcap::inspect_parameters(gRuntimeParam.bcapHandle, stored);
  return stored;
}

void TunedRuntime::Apply(const AlgoModeParams& params, const int32_t* peq, uint32_t peq_count,
                         const int32_t* nfm, uint32_t nfm_count) {
  AlgoConfigCtlParams ctl{params, nfm_count, peq_count, peq, nfm};
  setOnePassModeSceneParameters(&gRuntimeParam, &ctl);
}

void TunedRuntime::Process(int16_t* frames) {
  std::memcpy(gRuntimeParam.procBuffer, frames, kBcapBlockBytes);
  bcap_pre_process(gRuntimeParam.bcapHandle, &gRuntimeParam.inBufDesc, &gRuntimeParam.outBufDesc,
                   gRuntimeParam.algScratchMem);
  std::memcpy(frames, gRuntimeParam.procBuffer, kBcapBlockBytes);
}

bcap::BlockReport TunedRuntime::LastBlock() const {
  bcap::BlockReport report{};
  bcap::inspect_last_block(gRuntimeParam.bcapHandle, report);
  return report;
}

uint32_t TunedRuntime::latency_frames() const {
  return bcap_latency_samples_get(gRuntimeParam.bcapInfo_.mode);
}

ClampProbe::ClampProbe() : runtime_(AlgoConfigCoeff{}, TuningRequest{}) {}

int32_t ClampProbe::Param(size_t index, int32_t value) {
  const auto known = known_.find({index, value});
  if (known != known_.end()) {
    return known->second;
  }
  AlgoModeParams params{};
  params.*kAlgoParamItems[index].field = value;
  runtime_.Apply(params, nullptr, 0, nullptr, 0);
  return known_[{index, value}] = runtime_.Stored().*kAppliedParams[index].stored;
}

ClampProbe::Range ClampProbe::ParamRange(size_t index) {
  return {Param(index, std::numeric_limits<int32_t>::min()),
          Param(index, std::numeric_limits<int32_t>::max())};
}

std::array<int32_t, BCAP_MAX_BANDS> ClampProbe::Gains(const int32_t* values, uint32_t count) {
  runtime_.Apply({}, values, count, nullptr, 0);
  return runtime_.Stored().peq_band_gain.values;
}

std::array<int32_t, BCAP_MAX_BANDS> ClampProbe::Energies(const int32_t* values, uint32_t count) {
  runtime_.Apply({}, nullptr, 0, values, count);
  return runtime_.Stored().nfm_band_energy.values;
}

}  // namespace tune
