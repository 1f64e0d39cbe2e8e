// Built-in device operations of algorithm 1.0, one per slot of the platform's device record; called by
// the dispatch wrappers on framework threads. Nothing throws.
//
// Most are fixed answers: the device has no output, volume or mute. set_parameters stores scene, mirror
// flag, algorithm mode and headset name in the runtime record and passes the string on to the stream.
#ifndef BINAURAL_RECORD_HIDL_2CH_RECORD_1_0_BINAURAL_RECORD_HW_H_
#define BINAURAL_RECORD_HIDL_2CH_RECORD_1_0_BINAURAL_RECORD_HW_H_

#include <hardware/audio.h>

extern "C" {

int adev_init_check_1_0(const audio_hw_device* dev) noexcept;                  // 0
int adev_set_voice_volume_1_0(audio_hw_device* dev, float volume) noexcept;    // -38
int adev_set_master_volume_1_0(audio_hw_device* dev, float volume) noexcept;   // -38
int adev_get_master_volume_1_0(audio_hw_device* dev, float* volume) noexcept;  // -38, unwritten
int adev_set_master_mute_1_0(audio_hw_device* dev, bool mute) noexcept;        // -38
int adev_get_master_mute_1_0(audio_hw_device* dev, bool* mute) noexcept;       // -38, unwritten
int adev_set_mode_1_0(audio_hw_device* dev, audio_mode_t mode) noexcept;       // 0, ignored
int adev_set_mic_mute_1_0(audio_hw_device* dev, bool state) noexcept;          // -38
int adev_get_mic_mute_1_0(const audio_hw_device* dev, bool* state) noexcept;   // -38, unwritten
int adev_dump_1_0(const audio_hw_device* dev, int fd) noexcept;                // 0, writes nothing

// "binaural_recording_orientation" back|front, "binaural_recording_mirror" true|false,
// "binaural_recording_algorithmMode" 0..3, "binaural_recording_bt_name" (first 127 bytes kept). Bad
// values are logged and change nothing. Then the whole string goes to the open stream, whose result is
// returned; 0 without a stream. An empty string stores and forwards nothing.
// A new mode releases and re-creates an existing library instance; the re-creation happens only
// while INFO is logged for "BinauralRecordAudioHw" (log.tag.BinauralRecordAudioHw): with INFO off,
// reads return 0 until the stream is opened again.
int adev_set_parameters_1_0(audio_hw_device* dev, const char* kv_pairs) noexcept;

// The stream's answer as text for the caller to free(); null for no keys or no stream.
char* adev_get_parameters_1_0(const audio_hw_device* dev, const char* keys) noexcept;

size_t adev_get_input_buffer_size_1_0(const audio_hw_device* dev,
                                      const audio_config* config) noexcept;
int adev_open_output_stream_1_0(audio_hw_device* dev, audio_io_handle_t handle,
                                audio_devices_t devices, audio_output_flags_t flags,
                                audio_config* config, audio_stream_out** stream_out,
                                const char* address) noexcept;
void adev_close_output_stream_1_0(audio_hw_device* dev, audio_stream_out* stream) noexcept;
int adev_open_input_stream_1_0(audio_hw_device* dev, audio_io_handle_t handle,
                               audio_devices_t devices, audio_config* config,
                               audio_stream_in** stream_in, audio_input_flags_t flags,
                               const char* address, audio_source_t source) noexcept;
void adev_close_input_stream_1_0(audio_hw_device* dev, audio_stream_in* stream) noexcept;

}  // extern "C"

#endif  // BINAURAL_RECORD_HIDL_2CH_RECORD_1_0_BINAURAL_RECORD_HW_H_
