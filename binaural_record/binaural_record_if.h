// Module entry: the record HMI, device open and close, the choice of algorithm generation, and one
// dispatch wrapper per device operation.
//
// 1. `open` decides the generation from the coefficient file's version: 1 runs the built-in operations,
//    2 forwards every operation to the separately shipped library. Problems with either file are
//    logged only: open still succeeds, and the device runs on whatever gAlgoVersion names.
// 2. Open and close are serialised by a mutex of their own. The wrappers take none: the platform is to
//    open and close the device from one thread and to call no operation meanwhile. A close in
//    generation 2 unloads the library that a running operation may be executing.
// 3. After a close in generation 2 the wrappers find empty slots and answer as for a missing
//    operation until the next open.
#ifndef BINAURAL_RECORD_BINAURAL_RECORD_IF_H_
#define BINAURAL_RECORD_BINAURAL_RECORD_IF_H_

#include <stdint.h>

#include <atomic>

#include <hardware/audio.h>

// 0 none chosen, 1 built in, 2 forwarded. Written by open only, never reset.
extern std::atomic<int32_t> gAlgoVersion;

// The platform's operation types that the generation 2.0 library answers, in table order. The ninth
// slot belongs to no entry point: it is cleared with the others and never looked up or called.
#define BINAURAL_FOR_EACH_LIB_2_0_SLOT(ENTRY, UNUSED)                                              \
  ENTRY(parse_algo_config_coeff, int (*)())                                                        \
  ENTRY(release_algo_config_coeff, void (*)())                                                     \
  ENTRY(set_parameters, decltype(audio_hw_device::set_parameters))                                 \
  ENTRY(get_parameters, decltype(audio_hw_device::get_parameters))                                 \
  ENTRY(init_check, decltype(audio_hw_device::init_check))                                         \
  ENTRY(set_voice_volume, decltype(audio_hw_device::set_voice_volume))                             \
  ENTRY(get_master_volume, decltype(audio_hw_device::get_master_volume))                           \
  ENTRY(set_master_volume, decltype(audio_hw_device::set_master_volume))                           \
  UNUSED(unused, void (*)())                                                                       \
  ENTRY(set_master_mute, decltype(audio_hw_device::set_master_mute))                               \
  ENTRY(get_master_mute, decltype(audio_hw_device::get_master_mute))                               \
  ENTRY(set_mode, decltype(audio_hw_device::set_mode))                                             \
  ENTRY(set_mic_mute, decltype(audio_hw_device::set_mic_mute))                                     \
  ENTRY(get_mic_mute, decltype(audio_hw_device::get_mic_mute))                                     \
  ENTRY(get_input_buffer_size, decltype(audio_hw_device::get_input_buffer_size))                   \
  ENTRY(open_output_stream, decltype(audio_hw_device::open_output_stream))                         \
  ENTRY(close_output_stream, decltype(audio_hw_device::close_output_stream))                       \
  ENTRY(open_input_stream, decltype(audio_hw_device::open_input_stream))                           \
  ENTRY(close_input_stream, decltype(audio_hw_device::close_input_stream))                         \
  ENTRY(dump, decltype(audio_hw_device::dump))

struct Lib20Wrapper {
#define DECLARE_SLOT(name, type) std::atomic<type> name;
  BINAURAL_FOR_EACH_LIB_2_0_SLOT(DECLARE_SLOT, DECLARE_SLOT)
#undef DECLARE_SLOT
};

// Entry points of the loaded library, all null without one. Written under the open/close mutex.
extern Lib20Wrapper lib_2_0_wrapper;
// Loader handle of the library, null when not loaded. Under the open/close mutex.
extern void* lib_2_0_handle;

extern "C" {

// The module record. Writable: the platform's loader stores its handle in `dso`.
extern hw_module_t HMI;

// Slot of the module record. 0 with the device in *device; -22 for another name than "audio_hw_if" or
// a null out-pointer; -12 without memory. Nothing is allocated then.
int adev_binaural_record_open(const hw_module_t* module, const char* name,
                              hw_device_t** device) noexcept;

// Slot of the device record. Frees the record and the coefficients or the 2.0 library; always 0. A
// record that is not open (closed twice) is left alone. An open stream stays usable and is to be
// closed all the same.
int adev_binaural_close(hw_device_t* device) noexcept;

// Loads the generation 2.0 library and its nineteen entry points: 0, or -1 with nothing loaded.
int load_binaural_2_0_lib() noexcept;

// The wrappers installed in every device record: forward exactly when gAlgoVersion is 2.
int adev_init_check_hidl(const audio_hw_device* dev) noexcept;
int adev_set_voice_volume_hidl(audio_hw_device* dev, float volume) noexcept;
int adev_set_master_volume_hidl(audio_hw_device* dev, float volume) noexcept;
int adev_get_master_volume_hidl(audio_hw_device* dev, float* volume) noexcept;
int adev_set_master_mute_hidl(audio_hw_device* dev, bool mute) noexcept;
int adev_get_master_mute_hidl(audio_hw_device* dev, bool* mute) noexcept;
int adev_set_mode_hidl(audio_hw_device* dev, audio_mode_t mode) noexcept;
int adev_set_mic_mute_hidl(audio_hw_device* dev, bool state) noexcept;
int adev_get_mic_mute_hidl(const audio_hw_device* dev, bool* state) noexcept;
int adev_set_parameters_hidl(audio_hw_device* dev, const char* kv_pairs) noexcept;
char* adev_get_parameters_hidl(const audio_hw_device* dev, const char* keys) noexcept;
size_t adev_get_input_buffer_size_hidl(const audio_hw_device* dev,
                                       const audio_config* config) noexcept;
int adev_open_output_stream_hidl(audio_hw_device* dev, audio_io_handle_t handle,
                                 audio_devices_t devices, audio_output_flags_t flags,
                                 audio_config* config, audio_stream_out** stream_out,
                                 const char* address) noexcept;
void adev_close_output_stream_hidl(audio_hw_device* dev, audio_stream_out* stream) noexcept;
int adev_open_input_stream_hidl(audio_hw_device* dev, audio_io_handle_t handle,
                                audio_devices_t devices, audio_config* config,
                                audio_stream_in** stream_in, audio_input_flags_t flags,
                                const char* address, audio_source_t source) noexcept;
void adev_close_input_stream_hidl(audio_hw_device* dev, audio_stream_in* stream) noexcept;
int adev_dump_hidl(const audio_hw_device* dev, int fd) noexcept;

}  // extern "C"

#endif  // BINAURAL_RECORD_BINAURAL_RECORD_IF_H_
