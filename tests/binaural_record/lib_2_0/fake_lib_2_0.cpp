// A generation 2.0 library with the nineteen entry points: each notes its name and arguments and
// returns a value of its own, so that a test sees what was forwarded and what came back.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <hardware/audio.h>

#define EXPORT __attribute__((visibility("default")))

extern "C" {

EXPORT char fake_lib_2_0_calls[1024];  // one "name(arguments) " per call
EXPORT int fake_lib_2_0_parse_result = 0;

}  // extern "C"

namespace {

__attribute__((format(printf, 1, 2))) void Note(const char* format, ...) {
  const size_t used = strlen(fake_lib_2_0_calls);
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(fake_lib_2_0_calls + used, sizeof(fake_lib_2_0_calls) - used, format, arguments);
  va_end(arguments);
}

}  // namespace

extern "C" {

EXPORT int adev_parse_algo_config_coeff_2_0() {
  Note("parse() ");
  return fake_lib_2_0_parse_result;
}
EXPORT void adev_release_algo_config_coeff_2_0() {
  Note("release() ");
}
EXPORT int adev_set_parameters_2_0(audio_hw_device*, const char* text) {
  Note("set_parameters(%s) ", text);
  return 103;
}
EXPORT char* adev_get_parameters_2_0(const audio_hw_device*, const char* keys) {
  Note("get_parameters(%s) ", keys);
  return strdup("104");
}
EXPORT int adev_init_check_2_0(const audio_hw_device*) {
  Note("init_check() ");
  return 105;
}
EXPORT int adev_set_voice_volume_2_0(audio_hw_device*, float volume) {
  Note("set_voice_volume(%g) ", double{volume});
  return 106;
}
EXPORT int adev_get_master_volume_2_0(audio_hw_device*, float* volume) {
  Note("get_master_volume() ");
  *volume = 0.5F;
  return 107;
}
EXPORT int adev_set_master_volume_2_0(audio_hw_device*, float volume) {
  Note("set_master_volume(%g) ", double{volume});
  return 108;
}
EXPORT int adev_set_master_mute_2_0(audio_hw_device*, bool mute) {
  Note("set_master_mute(%d) ", mute);
  return 110;
}
EXPORT int adev_get_master_mute_2_0(audio_hw_device*, bool* mute) {
  Note("get_master_mute() ");
  *mute = true;
  return 111;
}
EXPORT int adev_set_mode_2_0(audio_hw_device*, audio_mode_t mode) {
  Note("set_mode(%d) ", static_cast<int>(mode));
  return 112;
}
EXPORT int adev_set_mic_mute_2_0(audio_hw_device*, bool state) {
  Note("set_mic_mute(%d) ", state);
  return 113;
}
EXPORT int adev_get_mic_mute_2_0(const audio_hw_device*, bool* state) {
  Note("get_mic_mute() ");
  *state = true;
  return 114;
}
EXPORT size_t adev_get_input_buffer_size_2_0(const audio_hw_device*, const audio_config* config) {
  Note("get_input_buffer_size(%u) ", config->sample_rate);
  return 115;
}
EXPORT int adev_open_output_stream_2_0(audio_hw_device*, audio_io_handle_t handle,
                                       audio_devices_t devices, audio_output_flags_t flags,
                                       audio_config* config, audio_stream_out** stream,
                                       const char* address) {
  Note("open_output_stream(%d,%x,%d,%u,%s) ", handle, devices, static_cast<int>(flags),
       config->sample_rate, address);
  *stream = nullptr;
  return 116;
}
EXPORT void adev_close_output_stream_2_0(audio_hw_device*, audio_stream_out* stream) {
  Note("close_output_stream(%d) ", stream == nullptr);
}
EXPORT int adev_open_input_stream_2_0(audio_hw_device*, audio_io_handle_t handle,
                                      audio_devices_t devices, audio_config* config,
                                      audio_stream_in** stream, audio_input_flags_t flags,
                                      const char* address, audio_source_t source) {
  Note("open_input_stream(%d,%x,%u,%d,%s,%d) ", handle, devices, config->sample_rate,
       static_cast<int>(flags), address, static_cast<int>(source));
  *stream = nullptr;
  return 118;
}
EXPORT void adev_close_input_stream_2_0(audio_hw_device*, audio_stream_in* stream) {
  Note("close_input_stream(%d) ", stream == nullptr);
}
EXPORT int adev_dump_2_0(const audio_hw_device*, int fd) {
  Note("dump(%d) ", fd);
  return 120;
}

}  // extern "C"
