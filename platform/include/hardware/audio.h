/*
 * Operation tables of an audio device and its streams, as an audio service of API level 30 reads
 * them. Constness is irregular on purpose: it is the platform's. A slot that a module does not
 * provide must be null, since that is the only sign of absence a client has.
 */
#ifndef HARDWARE_AUDIO_H
#define HARDWARE_AUDIO_H

#include <hardware/hardware.h>
#include <system/audio.h>

#ifdef __cplusplus
extern "C" {
#endif

#define AUDIO_HARDWARE_MODULE_ID "audio"
#define AUDIO_HARDWARE_INTERFACE "audio_hw_if"

#define AUDIO_MODULE_API_VERSION_0_1 HARDWARE_MODULE_API_VERSION(0, 1)
#define AUDIO_MODULE_API_VERSION_CURRENT AUDIO_MODULE_API_VERSION_0_1
#define AUDIO_DEVICE_API_VERSION_2_0 HARDWARE_DEVICE_API_VERSION(2, 0)
#define AUDIO_DEVICE_API_VERSION_3_0 HARDWARE_DEVICE_API_VERSION(3, 0)
#define AUDIO_DEVICE_API_VERSION_3_1 HARDWARE_DEVICE_API_VERSION(3, 1)
#define AUDIO_DEVICE_API_VERSION_CURRENT AUDIO_DEVICE_API_VERSION_3_1
#define AUDIO_DEVICE_API_VERSION_MIN AUDIO_DEVICE_API_VERSION_2_0

#define AUDIO_PARAMETER_STREAM_ROUTING "routing"
#define AUDIO_PARAMETER_STREAM_SUP_SAMPLING_RATES "sup_sampling_rates"
#define AUDIO_PARAMETER_STREAM_SUP_CHANNELS "sup_channels"
#define AUDIO_PARAMETER_STREAM_SUP_FORMATS "sup_formats"

struct effect_interface_s;
typedef struct effect_interface_s** effect_handle_t;

struct audio_stream_out;
typedef struct audio_stream_out audio_stream_out_t;

typedef struct source_metadata {
  size_t track_count;
  struct playback_track_metadata* tracks;
} source_metadata_t;

typedef struct sink_metadata {
  size_t track_count;
  struct record_track_metadata* tracks;
} sink_metadata_t;

struct audio_stream {
  uint32_t (*get_sample_rate)(const struct audio_stream* stream);
  int (*set_sample_rate)(struct audio_stream* stream, uint32_t rate);
  size_t (*get_buffer_size)(const struct audio_stream* stream); /* bytes */
  audio_channel_mask_t (*get_channels)(const struct audio_stream* stream);
  audio_format_t (*get_format)(const struct audio_stream* stream);
  int (*set_format)(struct audio_stream* stream, audio_format_t format);
  int (*standby)(struct audio_stream* stream);
  int (*dump)(const struct audio_stream* stream, int fd);
  audio_devices_t (*get_device)(const struct audio_stream* stream);
  int (*set_device)(struct audio_stream* stream, audio_devices_t device);
  int (*set_parameters)(struct audio_stream* stream, const char* kv_pairs);
  char* (*get_parameters)(const struct audio_stream* stream, const char* keys); /* caller frees */
  int (*add_audio_effect)(const struct audio_stream* stream, effect_handle_t effect);
  int (*remove_audio_effect)(const struct audio_stream* stream, effect_handle_t effect);
};
typedef struct audio_stream audio_stream_t;

struct audio_stream_in {
  struct audio_stream common;
  int (*set_gain)(struct audio_stream_in* stream, float gain);
  ssize_t (*read)(struct audio_stream_in* stream, void* buffer, size_t bytes);
  uint32_t (*get_input_frames_lost)(struct audio_stream_in* stream);
  int (*get_capture_position)(const struct audio_stream_in* stream, int64_t* frames, int64_t* time);
  int (*start)(const struct audio_stream_in* stream);
  int (*stop)(const struct audio_stream_in* stream);
  int (*create_mmap_buffer)(const struct audio_stream_in* stream, int32_t min_size_frames,
                            struct audio_mmap_buffer_info* info);
  int (*get_mmap_position)(const struct audio_stream_in* stream,
                           struct audio_mmap_position* position);
  int (*get_active_microphones)(const struct audio_stream_in* stream,
                                struct audio_microphone_characteristic_t* mic_array,
                                size_t* mic_count);
  int (*set_microphone_direction)(const struct audio_stream_in* stream,
                                  audio_microphone_direction_t direction);
  int (*set_microphone_field_dimension)(const struct audio_stream_in* stream, float zoom);
  void (*update_sink_metadata)(struct audio_stream_in* stream,
                               const struct sink_metadata* sink_metadata);
};
typedef struct audio_stream_in audio_stream_in_t;

struct audio_hw_device {
  struct hw_device_t common;
  uint32_t (*get_supported_devices)(const struct audio_hw_device* dev);
  int (*init_check)(const struct audio_hw_device* dev);
  int (*set_voice_volume)(struct audio_hw_device* dev, float volume);
  int (*set_master_volume)(struct audio_hw_device* dev, float volume);
  int (*get_master_volume)(struct audio_hw_device* dev, float* volume);
  int (*set_mode)(struct audio_hw_device* dev, audio_mode_t mode);
  int (*set_mic_mute)(struct audio_hw_device* dev, bool state);
  int (*get_mic_mute)(const struct audio_hw_device* dev, bool* state);
  int (*set_parameters)(struct audio_hw_device* dev, const char* kv_pairs);
  char* (*get_parameters)(const struct audio_hw_device* dev, const char* keys); /* caller frees */
  size_t (*get_input_buffer_size)(const struct audio_hw_device* dev,
                                  const struct audio_config* config);
  int (*open_output_stream)(struct audio_hw_device* dev, audio_io_handle_t handle,
                            audio_devices_t devices, audio_output_flags_t flags,
                            struct audio_config* config, struct audio_stream_out** stream_out,
                            const char* address);
  void (*close_output_stream)(struct audio_hw_device* dev, struct audio_stream_out* stream_out);
  int (*open_input_stream)(struct audio_hw_device* dev, audio_io_handle_t handle,
                           audio_devices_t devices, struct audio_config* config,
                           struct audio_stream_in** stream_in, audio_input_flags_t flags,
                           const char* address, audio_source_t source);
  void (*close_input_stream)(struct audio_hw_device* dev, struct audio_stream_in* stream_in);
  int (*get_microphones)(const struct audio_hw_device* dev,
                         struct audio_microphone_characteristic_t* mic_array, size_t* mic_count);
  int (*dump)(const struct audio_hw_device* dev, int fd);
  int (*set_master_mute)(struct audio_hw_device* dev, bool mute);
  int (*get_master_mute)(struct audio_hw_device* dev, bool* mute);
  int (*create_audio_patch)(struct audio_hw_device* dev, unsigned int num_sources,
                            const struct audio_port_config* sources, unsigned int num_sinks,
                            const struct audio_port_config* sinks, audio_patch_handle_t* handle);
  int (*release_audio_patch)(struct audio_hw_device* dev, audio_patch_handle_t handle);
  int (*get_audio_port)(struct audio_hw_device* dev, struct audio_port* port);
  int (*set_audio_port_config)(struct audio_hw_device* dev, const struct audio_port_config* config);
  int (*add_device_effect)(struct audio_hw_device* dev, audio_port_handle_t device,
                           effect_handle_t effect);
  int (*remove_device_effect)(struct audio_hw_device* dev, audio_port_handle_t device,
                              effect_handle_t effect);
};
typedef struct audio_hw_device audio_hw_device_t;

#ifdef __cplusplus
}
#endif

#endif /* HARDWARE_AUDIO_H */
