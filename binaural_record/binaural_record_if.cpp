// Module entry; open, close and the wrappers are called by the audio service on its threads.
#define LOG_TAG "BinauralRecordIf"

#include "binaural_record/binaural_record_if.h"

#include <dlfcn.h>
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <new>

#include <android/log.h>
#include <binaural_record_factory.h>
#include <tinyxml2.h>

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_config.h"
#include "binaural_record/binaural_record_device.h"
#include "binaural_record/hidl/2ch-record/1.0/binaural_record_hw.h"
#include "binaural_record/hidl/2ch-record/1.0/live_objects.h"
#include "binaural_record/utils/locks.h"
#include "binaural_record/utils/log.h"

using vendor::corva::binaural_record::utils::StaticLock;

std::atomic<int32_t> gAlgoVersion;
Lib20Wrapper lib_2_0_wrapper;
void* lib_2_0_handle;

namespace {

// Deliberate: the 64-bit folder in every build, so that on a 32-bit device generation 2.0 loads only
// where a library of the right word size was put there.
constexpr char kLib20Path[] = "/odm/lib64/hw/libbinaural_record_bcap-2.0.so";

vendor::corva::binaural_record::utils::StaticMutex gOpenCloseMutex;

template <typename T>
struct SameType {
  using type = T;
};
// The type itself, but not deduced from: the arguments follow the function's parameter list.
template <typename T>
using Same = typename SameType<T>::type;

constexpr int32_t kForwarded = 2;

// The body of every wrapper: forwards, or runs the built-in operation, or ends as for an absent slot.
template <typename R, typename... P>
R dispatch(const char* function, R (*builtin)(P...) noexcept, R (*slot)(P...),
           const char* missing_text, Same<R> missing, Same<P>... args) {
  if (gAlgoVersion != kForwarded) {
    return builtin(args...);
  }
  if (slot == nullptr) {
    BINAURAL_LOG(ERROR) << function << missing_text;
    return missing;
  }
  return slot(args...);
}

template <typename... P>
void dispatch(const char* function, void (*builtin)(P...) noexcept, void (*slot)(P...),
              const char* missing_text, Same<P>... args) {
  if (gAlgoVersion != kForwarded) {
    builtin(args...);
  } else if (slot == nullptr) {
    BINAURAL_LOG(ERROR) << function << missing_text;
  } else {
    slot(args...);
  }
}

void ClearLib20Table() {
#define CLEAR_SLOT(name, type) lib_2_0_wrapper.name = nullptr;
  BINAURAL_FOR_EACH_LIB_2_0_SLOT(CLEAR_SLOT, CLEAR_SLOT)
#undef CLEAR_SLOT
}

void UnloadLib20() {
  if (lib_2_0_handle != nullptr) {
    dlclose(lib_2_0_handle);
    lib_2_0_handle = nullptr;
  }
  ClearLib20Table();
}

// Absent slots (get_supported_devices, get_microphones, patches, ports, device effects) stay null: null
// is the only sign of absence that a client has.
void InstallWrappers(audio_hw_device* device) {
  device->init_check = adev_init_check_hidl;
  device->set_voice_volume = adev_set_voice_volume_hidl;
  device->set_master_volume = adev_set_master_volume_hidl;
  device->get_master_volume = adev_get_master_volume_hidl;
  device->set_mode = adev_set_mode_hidl;
  device->set_mic_mute = adev_set_mic_mute_hidl;
  device->get_mic_mute = adev_get_mic_mute_hidl;
  device->set_parameters = adev_set_parameters_hidl;
  device->get_parameters = adev_get_parameters_hidl;
  device->get_input_buffer_size = adev_get_input_buffer_size_hidl;
  device->open_output_stream = adev_open_output_stream_hidl;
  device->close_output_stream = adev_close_output_stream_hidl;
  device->open_input_stream = adev_open_input_stream_hidl;
  device->close_input_stream = adev_close_input_stream_hidl;
  device->dump = adev_dump_hidl;
  device->set_master_mute = adev_set_master_mute_hidl;
  device->get_master_mute = adev_get_master_mute_hidl;
}

void ChooseBuiltIn(const char* function, const char* name) {
  BINAURAL_LOG(INFO) << function << " binaural get configVersion algo 1.0.";
  gAlgoVersion = 1;
  if (adev_parse_algo_config_coeff_1_0() != 0) {
    // The generation stays 1: the runtime then works from its built-in tuning.
    BINAURAL_LOG(ERROR) << function << ": adev_parse_algo_config_coeff failed, name=[" << name
                        << "]";
    adev_release_algo_config_coeff_1_0();
  }
}

void ChooseForwarded(const char* function) {
  BINAURAL_LOG(INFO) << function << " binaural get configVersion algo 2.0.";
  if (access(kLib20Path, R_OK) != 0 || load_binaural_2_0_lib() != 0) {
    BINAURAL_LOG(ERROR) << function << ": access or load_bcap_2_0_lib failed.";
    gAlgoVersion = 0;
    return;
  }
  gAlgoVersion = kForwarded;
  if (lib_2_0_handle != nullptr && lib_2_0_wrapper.parse_algo_config_coeff.load()() != 0) {
    BINAURAL_LOG(ERROR) << function << ": lib_2_0_wrapper.parse_algo_config_coeff failed.";
    lib_2_0_wrapper.release_algo_config_coeff.load()();
  }
}

// Sets gAlgoVersion from the coefficient file's version, or leaves it where there is none to read.
void ChooseGeneration(const char* function, const char* name) {
  tinyxml2::XMLDocument document;
  const bool special = IsSpecialFile(BINAURAL_ALGO_COEFF_CONFIG_FILE);
  if (special) {
    BINAURAL_LOG(ERROR) << function << ": " << BINAURAL_ALGO_COEFF_CONFIG_FILE
                        << " is not a regular file";
  }
  if (access(BINAURAL_ALGO_COEFF_CONFIG_FILE, R_OK) != 0 || special ||
      !LoadCoefficientDocument(BINAURAL_ALGO_COEFF_CONFIG_FILE, &document)) {
    BINAURAL_LOG(INFO) << function << " get BINAURAL_ALGO_COEFF_CONFIG_FILE fail.";
    return;
  }
  BINAURAL_LOG(INFO) << function << " Load BINAURAL_ALGO_COEFF_CONFIG_FILE success.";
  const tinyxml2::XMLNode* first = document.FirstChild();
  if (first == nullptr || first->ToDeclaration() == nullptr) {
    BINAURAL_LOG(ERROR) << function << " Load BINAURAL_ALGO_COEFF_CONFIG_FILE declaration NULL.";
    return;
  }
  const tinyxml2::XMLElement* tuning = document.FirstChildElement("tuning");
  if (tuning == nullptr) {
    BINAURAL_LOG(ERROR) << function << " Load BinauralCoeff fail.";
    return;
  }
  const char* version = tuning->Attribute(kAlgoVersionAttribute);
  if (version == nullptr) {
    // Deliberate: the message speaks of a module name.
    BINAURAL_LOG(ERROR) << function << " Load moduleName fail.";
    return;
  }
  BINAURAL_LOG(INFO) << function << " bncVersion " << version;
  switch (AlgoGenerationOfVersion(version)) {
    case 1:
      ChooseBuiltIn(function, name);
      break;
    case 2:
      ChooseForwarded(function);
      break;
    default:
      // Deliberate: an error reported at INFO.
      BINAURAL_LOG(INFO) << function << " binaural algo bcn_version config error, please check..";
      gAlgoVersion = 0;
  }
}

}  // namespace

extern "C" {

int load_binaural_2_0_lib() noexcept {
  BINAURAL_LOG(INFO) << __func__ << " enter.";
  ClearLib20Table();
  // A second open counts the library twice and never gives that back: streams of the first may hold
  // addresses of its code.
  // Deliberate: flags 0, neither RTLD_NOW nor RTLD_LAZY.
  lib_2_0_handle = dlopen(kLib20Path, 0);
  if (lib_2_0_handle == nullptr) {
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "%s: dlopen failed for %s", __func__,
                        kLib20Path);
    return -1;
  }
  bool missing = false;
#define LOOK_UP_SLOT(name, type)                                                                   \
  if (!missing) {                                                                                  \
    lib_2_0_wrapper.name = reinterpret_cast<type>(dlsym(lib_2_0_handle, "adev_" #name "_2_0"));    \
    if (lib_2_0_wrapper.name == nullptr) {                                                         \
      missing = true;                                                                              \
      __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,                                              \
                          "%s: dlsym lib_2_0_wrapper." #name " failed.", __func__);                \
    }                                                                                              \
  }
#define SKIP_SLOT(name, type)
  BINAURAL_FOR_EACH_LIB_2_0_SLOT(LOOK_UP_SLOT, SKIP_SLOT)
#undef SKIP_SLOT
#undef LOOK_UP_SLOT
  if (missing) {
    BINAURAL_LOG(INFO) << __func__ << " symErr out---";
    UnloadLib20();
    return -1;
  }
  BINAURAL_LOG(INFO) << __func__ << " out.";
  return 0;
}

int adev_binaural_record_open(const hw_module_t* module, const char* name,
                              hw_device_t** device) noexcept {
  name = name == nullptr ? "" : name;
  BINAURAL_LOG(INFO) << __func__ << ": name=[" << name << "]";
  if (strcmp(name, AUDIO_HARDWARE_INTERFACE) != 0 || device == nullptr) {
    return -EINVAL;
  }
  BinauralRecordDevice* record = vendor::corva::binaural_record::NewDevice();
  if (record == nullptr) {
    return -ENOMEM;
  }
  record->device.common.tag = HARDWARE_DEVICE_TAG;
  record->device.common.version = AUDIO_DEVICE_API_VERSION_2_0;
  record->device.common.module = const_cast<hw_module_t*>(module);
  record->device.common.close = adev_binaural_close;
  InstallWrappers(&record->device);
  binaural_record_factory_create();
  *device = &record->device.common;
  try {
    StaticLock lock(gOpenCloseMutex);
    ChooseGeneration(__func__, name);
  } catch (const std::bad_alloc&) {
    // Like a coefficient file that cannot be loaded: the generation stays as it is.
    BINAURAL_LOG(INFO) << __func__ << " get BINAURAL_ALGO_COEFF_CONFIG_FILE fail.";
  }
  return 0;
}

int adev_binaural_close(hw_device_t* device) noexcept {
  if (!vendor::corva::binaural_record::FreeDevice(device) && device != nullptr) {
    BINAURAL_LOG(ERROR) << __func__ << ": " << device << " is not an open device, ignored";
    return 0;
  }
  if (!vendor::corva::binaural_record::AnyDevice()) {
    binaural_reap_streams();
  }
  StaticLock lock(gOpenCloseMutex);
  if (gAlgoVersion == kForwarded) {
    const auto release = lib_2_0_wrapper.release_algo_config_coeff.load();
    if (release != nullptr) {
      release();
    } else {
      BINAURAL_LOG(ERROR) << __func__ << " get lib_2_0_wrapper.release_algo_config_coeff fail.";
    }
    UnloadLib20();
  } else if (gAlgoVersion == 1) {
    adev_release_algo_config_coeff_1_0();
  }
  return 0;  // Deliberate: gAlgoVersion keeps its value
}

int adev_init_check_hidl(const audio_hw_device* dev) noexcept {
  return dispatch(__func__, adev_init_check_1_0, lib_2_0_wrapper.init_check.load(),
                  " get lib_2_0_wrapper.init_check fail.", -1, dev);
}

int adev_set_voice_volume_hidl(audio_hw_device* dev, float volume) noexcept {
  return dispatch(__func__, adev_set_voice_volume_1_0, lib_2_0_wrapper.set_voice_volume.load(),
                  " get lib_2_0_wrapper.set_voice_volume fail.", -1, dev, volume);
}

int adev_set_master_volume_hidl(audio_hw_device* dev, float volume) noexcept {
  return dispatch(__func__, adev_set_master_volume_1_0, lib_2_0_wrapper.set_master_volume.load(),
                  " get lib_2_0_wrapper.set_master_volume fail.", -1, dev, volume);
}

int adev_get_master_volume_hidl(audio_hw_device* dev, float* volume) noexcept {
  return dispatch(__func__, adev_get_master_volume_1_0, lib_2_0_wrapper.get_master_volume.load(),
                  " get lib_2_0_wrapper.get_master_volume fail.", -1, dev, volume);
}

int adev_set_master_mute_hidl(audio_hw_device* dev, bool mute) noexcept {
  return dispatch(__func__, adev_set_master_mute_1_0, lib_2_0_wrapper.set_master_mute.load(),
                  " get lib_2_0_wrapper.set_master_mute fail.", -1, dev, mute);
}

int adev_get_master_mute_hidl(audio_hw_device* dev, bool* mute) noexcept {
  return dispatch(__func__, adev_get_master_mute_1_0, lib_2_0_wrapper.get_master_mute.load(),
                  " get lib_2_0_wrapper.get_master_mute fail.", -1, dev, mute);
}

int adev_set_mode_hidl(audio_hw_device* dev, audio_mode_t mode) noexcept {
  return dispatch(__func__, adev_set_mode_1_0, lib_2_0_wrapper.set_mode.load(),
                  " get lib_2_0_wrapper.set_mode fail.", -1, dev, mode);
}

int adev_set_mic_mute_hidl(audio_hw_device* dev, bool state) noexcept {
  return dispatch(__func__, adev_set_mic_mute_1_0, lib_2_0_wrapper.set_mic_mute.load(),
                  " get lib_2_0_wrapper.set_mic_mute fail.", -1, dev, state);
}

int adev_get_mic_mute_hidl(const audio_hw_device* dev, bool* state) noexcept {
  return dispatch(__func__, adev_get_mic_mute_1_0, lib_2_0_wrapper.get_mic_mute.load(),
                  " get lib_2_0_wrapper.get_mic_mute fail.", -1, dev, state);
}

int adev_set_parameters_hidl(audio_hw_device* dev, const char* kv_pairs) noexcept {
  return dispatch(__func__, adev_set_parameters_1_0, lib_2_0_wrapper.set_parameters.load(),
                  " get lib_2_0_wrapper.set_parameters fail.", -1, dev, kv_pairs);
}

char* adev_get_parameters_hidl(const audio_hw_device* dev, const char* keys) noexcept {
  const auto slot = lib_2_0_wrapper.get_parameters.load();
  if (gAlgoVersion != kForwarded) {
    return adev_get_parameters_1_0(dev, keys);
  }
  if (slot == nullptr) {
    // Deliberate: the only operation that falls back to the built-in one.
    BINAURAL_LOG(ERROR) << __func__ << " get lib_2_0_wrapper.get_parameters fail.";
    return adev_get_parameters_1_0(dev, keys);
  }
  return slot(dev, keys);
}

size_t adev_get_input_buffer_size_hidl(const audio_hw_device* dev,
                                       const audio_config* config) noexcept {
  // Deliberate: no "get" in the text, and a size of 0.
  return dispatch(__func__, adev_get_input_buffer_size_1_0,
                  lib_2_0_wrapper.get_input_buffer_size.load(),
                  " lib_2_0_wrapper.get_input_buffer_size fail.", 0, dev, config);
}

int adev_open_output_stream_hidl(audio_hw_device* dev, audio_io_handle_t handle,
                                 audio_devices_t devices, audio_output_flags_t flags,
                                 audio_config* config, audio_stream_out** stream_out,
                                 const char* address) noexcept {
  return dispatch(__func__, adev_open_output_stream_1_0, lib_2_0_wrapper.open_output_stream.load(),
                  " get lib_2_0_wrapper.open_output_stream fail.", -1, dev, handle, devices, flags,
                  config, stream_out, address);
}

void adev_close_output_stream_hidl(audio_hw_device* dev, audio_stream_out* stream) noexcept {
  dispatch(__func__, adev_close_output_stream_1_0, lib_2_0_wrapper.close_output_stream.load(),
           " get lib_2_0_wrapper.close_output_stream fail.", dev, stream);
}

int adev_open_input_stream_hidl(audio_hw_device* dev, audio_io_handle_t handle,
                                audio_devices_t devices, audio_config* config,
                                audio_stream_in** stream_in, audio_input_flags_t flags,
                                const char* address, audio_source_t source) noexcept {
  return dispatch(__func__, adev_open_input_stream_1_0, lib_2_0_wrapper.open_input_stream.load(),
                  " get lib_2_0_wrapper.open_input_stream fail.", -1, dev, handle, devices, config,
                  stream_in, flags, address, source);
}

void adev_close_input_stream_hidl(audio_hw_device* dev, audio_stream_in* stream) noexcept {
  // Deliberate: no "get" in the text.
  dispatch(__func__, adev_close_input_stream_1_0, lib_2_0_wrapper.close_input_stream.load(),
           " lib_2_0_wrapper.close_input_stream fail.", dev, stream);
}

int adev_dump_hidl(const audio_hw_device* dev, int fd) noexcept {
  return dispatch(__func__, adev_dump_1_0, lib_2_0_wrapper.dump.load(),
                  " get lib_2_0_wrapper.dump fail.", -1, dev, fd);
}

static hw_module_methods_t gMethods = {adev_binaural_record_open};

hw_module_t HMI = {
    HARDWARE_MODULE_TAG,
    AUDIO_MODULE_API_VERSION_0_1,
    HARDWARE_HAL_API_VERSION,
    AUDIO_HARDWARE_MODULE_ID,
    "Binaural Record HAL",
    "Binaural record project",
    &gMethods,
    nullptr,
    {},
};

}  // extern "C"
