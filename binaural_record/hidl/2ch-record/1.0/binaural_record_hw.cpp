// Built-in device operations; called by the dispatch wrappers on framework threads.
#define LOG_TAG "BinauralRecordAudioHw"

#include "binaural_record/hidl/2ch-record/1.0/binaural_record_hw.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <new>
#include <string>

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_runtime.h"
#include "binaural_record/hidl/2ch-record/1.0/binaural_stream_apis.h"
#include "binaural_record/hidl/2ch-record/1.0/live_objects.h"
#include "binaural_record/utils/locks.h"
#include "binaural_record/utils/log.h"
#include "binaural_record/utils/utils.h"

namespace {

using vendor::corva::binaural_record::StreamGuard;
using vendor::corva::binaural_record::utils::AudioParamMap;
using vendor::corva::binaural_record::utils::GetAudioParamString;
using vendor::corva::binaural_record::utils::gRuntimeMutex;
using vendor::corva::binaural_record::utils::ParseAudioParams;
using vendor::corva::binaural_record::utils::RuntimeLock;

constexpr char kOrientationKey[] = "binaural_recording_orientation";
constexpr char kMirrorKey[] = "binaural_recording_mirror";
constexpr char kModeKey[] = "binaural_recording_algorithmMode";
constexpr char kHeadsetNameKey[] = "binaural_recording_bt_name";

void SetScene(const char* function, BinauralStreamInRuntimeParam* runtime, uint32_t scene) {
  {
    RuntimeLock lock(gRuntimeMutex);
    runtime->algScene = scene;
  }
  BINAURAL_LOG(INFO) << function << ": runtimePara->algScene=" << scene;
}

void ApplyOrientation(const char* function, BinauralStreamInRuntimeParam* runtime,
                      const std::string& value) {
  BINAURAL_LOG(INFO) << function << ": found binaural_recording_orientation.";
  if (value == "back") {
    BINAURAL_LOG(INFO) << function << ": scene_normal";
    SetScene(function, runtime, SCENE_NORMAL);
  } else if (value == "front") {
    BINAURAL_LOG(INFO) << function << ": scene_selfie.";
    SetScene(function, runtime, SCENE_SELFIE);
  } else {
    BINAURAL_LOG(ERROR) << function << ": binaural_recording_orientation set error.";
  }
}

void ApplyMirror(const char* function, BinauralStreamInRuntimeParam* runtime,
                 const std::string& value) {
  BINAURAL_LOG(INFO) << function << ": found binaural_recording_mirror.";
  const bool enabled = value == "true";
  if (!enabled && value != "false") {
    BINAURAL_LOG(ERROR) << function << ": binaural_recording_mirror set error.";
    return;
  }
  BINAURAL_LOG(INFO) << function << (enabled ? ": mirror true." : ": mirror false.");
  RuntimeLock lock(gRuntimeMutex);
  runtime->mirrorEnabled = enabled;
}

void ApplyMode(const char* function, BinauralStreamInRuntimeParam* runtime,
               const std::string& value) {
  BINAURAL_LOG(INFO) << function << ": binaural_recording_algorithmMode " << value;
  if (value != "0" && value != "1" && value != "2" && value != "3") {
    BINAURAL_LOG(ERROR) << function << ": binaural_recording_algorithmMode params error with "
                        << value;
    return;
  }
  const int mode = value[0] - '0';
  // Release and re-creation are one section: the capture thread sees the old instance or the new.
  RuntimeLock lock(gRuntimeMutex);
  if (runtime->algMode == static_cast<uint32_t>(mode)) {
    return;
  }
  if (runtime->algInited) {
    binaural_algorithm_release_1_0(runtime);
    // Deliberate: the initialisation is an operand of the log line, so that with INFO disabled for
    // the tag the instance stays released.
    BINAURAL_LOG(INFO) << function << ": mode= " << mode << ", and algorithm_init_1_0 ret "
                       << binaural_algorithm_init_1_0(runtime, mode, false);
  }
  runtime->algMode = static_cast<uint32_t>(mode);
}

void ApplyHeadsetName(const char* function, BinauralStreamInRuntimeParam* runtime,
                      const std::string& value) {
  RuntimeLock lock(gRuntimeMutex);
  char(&name)[128] = runtime->btHeadsetName;
  memset(name, 0, sizeof(name));
  memcpy(name, value.data(), std::min(value.size(), sizeof(name) - 1));
  BINAURAL_LOG(VERBOSE) << function << ": found binaural_recording_bt_name " << name;
}

// Stores what the device's own keys say, in fixed order; false when there is nothing in `params`.
bool StoreParameters(const char* function, const AudioParamMap& params) {
  BINAURAL_LOG(VERBOSE) << function << ": ParamsMap=[" << GetAudioParamString(params) << "]";
  BinauralStreamInRuntimeParam* runtime = record_get_runtime_parameters_1_0();
  if (runtime == nullptr) {
    BINAURAL_LOG(ERROR) << function << ": enter runtimePara nullptr, return.";
    return false;
  }
  constexpr struct {
    const char* key;
    void (*apply)(const char*, BinauralStreamInRuntimeParam*, const std::string&);
  } kKeys[] = {
      {kOrientationKey, ApplyOrientation},
      {kMirrorKey, ApplyMirror},
      {kModeKey, ApplyMode},
      {kHeadsetNameKey, ApplyHeadsetName},
  };
  for (const auto& [key, apply] : kKeys) {
    const auto found = params.find(key);
    if (found != params.end()) {
      apply(function, runtime, found->second);
    }
  }
  return true;
}

std::string TextOrEmpty(const char* text) {
  return text == nullptr ? std::string() : text;
}

}  // namespace

extern "C" {

int adev_init_check_1_0(const audio_hw_device*) noexcept {
  return 0;
}

int adev_set_voice_volume_1_0(audio_hw_device*, float volume) noexcept {
  BINAURAL_LOG(VERBOSE) << __func__ << ": volume=" << volume;
  return -ENOSYS;
}

int adev_set_master_volume_1_0(audio_hw_device*, float volume) noexcept {
  BINAURAL_LOG(VERBOSE) << __func__ << ": volume=" << volume;
  return -ENOSYS;
}

int adev_get_master_volume_1_0(audio_hw_device*, float*) noexcept {
  return -ENOSYS;
}

int adev_set_master_mute_1_0(audio_hw_device*, bool mute) noexcept {
  BINAURAL_LOG(VERBOSE) << __func__ << ": mute=" << mute;
  return -ENOSYS;
}

int adev_get_master_mute_1_0(audio_hw_device*, bool*) noexcept {
  return -ENOSYS;
}

int adev_set_mode_1_0(audio_hw_device*, audio_mode_t mode) noexcept {
  BINAURAL_LOG(VERBOSE) << __func__ << ": mode=" << static_cast<int>(mode);
  return 0;
}

int adev_set_mic_mute_1_0(audio_hw_device*, bool state) noexcept {
  BINAURAL_LOG(VERBOSE) << __func__ << ": state=" << state;
  return -ENOSYS;
}

int adev_get_mic_mute_1_0(const audio_hw_device*, bool*) noexcept {
  return -ENOSYS;
}

int adev_dump_1_0(const audio_hw_device*, int) noexcept {
  return 0;
}

int adev_set_parameters_1_0(audio_hw_device* dev, const char* kv_pairs) noexcept {
  try {
    const StreamGuard stream = StreamGuard::OfDevice(dev);
    const AudioParamMap params = ParseAudioParams(TextOrEmpty(kv_pairs));
    if (params.empty() || !StoreParameters(__func__, params)) {
      return 0;
    }
    if (!stream) {
      BINAURAL_LOG(VERBOSE) << __func__ << ": enter in nullptr.";
      return 0;
    }
    return stream->stream.common.set_parameters(&stream->stream.common, kv_pairs);
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  }
}

char* adev_get_parameters_1_0(const audio_hw_device* dev, const char* keys) noexcept {
  try {
    const AudioParamMap params = ParseAudioParams(TextOrEmpty(keys));
    if (params.empty()) {
      return nullptr;
    }
    BINAURAL_LOG(VERBOSE) << __func__ << ": ParamsMap=[" << GetAudioParamString(params) << "]";
    const StreamGuard stream = StreamGuard::OfDevice(dev);
    if (!stream) {
      // Deliberate: ERROR and no full stop, unlike the line of set_parameters.
      BINAURAL_LOG(ERROR) << __func__ << ": enter in nullptr";
      return nullptr;
    }
    return stream->stream.common.get_parameters(&stream->stream.common, keys);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

size_t adev_get_input_buffer_size_1_0(const audio_hw_device* dev,
                                      const audio_config* config) noexcept {
  return binaural_stream_input_buffer_size(dev, config);
}

int adev_open_output_stream_1_0(audio_hw_device* dev, audio_io_handle_t handle,
                                audio_devices_t devices, audio_output_flags_t flags,
                                audio_config* config, audio_stream_out** stream_out,
                                const char* address) noexcept {
  BINAURAL_LOG(VERBOSE) << __func__ << " enter.";
  return binaural_open_output_stream(dev, handle, devices, flags, config, stream_out, address);
}

void adev_close_output_stream_1_0(audio_hw_device* dev, audio_stream_out* stream) noexcept {
  BINAURAL_LOG(VERBOSE) << __func__ << " enter.";
  binaural_close_output_stream(dev, stream);
}

int adev_open_input_stream_1_0(audio_hw_device* dev, audio_io_handle_t handle,
                               audio_devices_t devices, audio_config* config,
                               audio_stream_in** stream_in, audio_input_flags_t flags,
                               const char* address, audio_source_t source) noexcept {
  BINAURAL_LOG(VERBOSE) << __func__ << " enter.";
  return binaural_open_input_stream(dev, handle, devices, config, stream_in, flags, address,
                                    source);
}

void adev_close_input_stream_1_0(audio_hw_device* dev, audio_stream_in* stream) noexcept {
  BINAURAL_LOG(VERBOSE) << __func__ << " enter.";
  binaural_close_input_stream(dev, stream);
}

}  // extern "C"
