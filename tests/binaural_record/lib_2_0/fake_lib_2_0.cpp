// A generation 2.0 library with the nineteen entry points: each notes its name and arguments and
// returns a value of its own, so that a test sees what was forwarded and what came back.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <hardware/audio.h>

#define EXPORT __attribute__((visibility("default")))

// An entry point that notes its arguments by `...`, a format and its values.
#define ENTRY(type, name, parameters, result, ...)                                                 \
  EXPORT type adev_##name##_2_0 parameters {                                                       \
    Note(#name "(" __VA_ARGS__);                                                                   \
    return result;                                                                                 \
  }

using Device = audio_hw_device;

extern "C" {

EXPORT char fake_lib_2_0_calls[1024];  // one "name(arguments) " per call
EXPORT int fake_lib_2_0_parse_result = 0;

__attribute__((format(printf, 1, 2))) static void Note(const char* format, ...) {
  const size_t used = strlen(fake_lib_2_0_calls);
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(fake_lib_2_0_calls + used, sizeof(fake_lib_2_0_calls) - used, format, arguments);
  va_end(arguments);
}

ENTRY(int, parse_algo_config_coeff, (), fake_lib_2_0_parse_result, ") ")
ENTRY(void, release_algo_config_coeff, (), , ") ")
ENTRY(int, set_parameters, (Device*, const char* text), 103, "%s) ", text)
ENTRY(char*, get_parameters, (const Device*, const char* keys), strdup("104"), "%s) ", keys)
ENTRY(int, init_check, (const Device*), 105, ") ")
ENTRY(int, set_voice_volume, (Device*, float volume), 106, "%g) ", double{volume})
ENTRY(int, get_master_volume, (Device*, float* volume), (*volume = 0.5F, 107), ") ")
ENTRY(int, set_master_volume, (Device*, float volume), 108, "%g) ", double{volume})
ENTRY(int, set_master_mute, (Device*, bool mute), 110, "%d) ", mute)
ENTRY(int, get_master_mute, (Device*, bool* mute), (*mute = true, 111), ") ")
#if !defined(INCOMPLETE)
ENTRY(int, set_mode, (Device*, audio_mode_t mode), 112, "%d) ", static_cast<int>(mode))
ENTRY(int, dump, (const Device*, int fd), 120, "%d) ", fd)
#endif
ENTRY(int, set_mic_mute, (Device*, bool state), 113, "%d) ", state)
ENTRY(int, get_mic_mute, (const Device*, bool* state), (*state = true, 114), ") ")
ENTRY(size_t, get_input_buffer_size, (const Device*, const audio_config* config), 115, "%u) ",
      config->sample_rate)
ENTRY(int, open_output_stream,
      (Device*, audio_io_handle_t handle, audio_devices_t devices, audio_output_flags_t flags,
       audio_config* config, audio_stream_out** stream, const char* address),
      (*stream = nullptr, 116), "%d,%x,%d,%u,%s) ", handle, devices, static_cast<int>(flags),
      config->sample_rate, address)
ENTRY(void, close_output_stream, (Device*, audio_stream_out* stream), , "%d) ", stream == nullptr)
ENTRY(int, open_input_stream,
      (Device*, audio_io_handle_t handle, audio_devices_t devices, audio_config* config,
       audio_stream_in** stream, audio_input_flags_t flags, const char* address,
       audio_source_t source),
      (*stream = nullptr, 118), "%d,%x,%u,%d,%s,%d) ", handle, devices, config->sample_rate,
      static_cast<int>(flags), address, static_cast<int>(source))
ENTRY(void, close_input_stream, (Device*, audio_stream_in* stream), , "%d) ", stream == nullptr)

}  // extern "C"
