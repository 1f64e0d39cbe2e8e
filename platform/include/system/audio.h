/*
 * Audio types, constants and the two inline helpers that the module and its clients share with the
 * platform. Only what this project or its tests use is declared; every value is the platform's.
 *
 * Enumerations stay unscoped and four bytes wide. audio_format_t keeps a value above 0x7FFFFFFF and
 * audio_mode_t and audio_stream_type_t a negative one, because values are printed and the promotion
 * follows from the range. Device and channel-mask types are plain integers, which decides how
 * exported C++ functions that take them are named.
 */
#ifndef SYSTEM_AUDIO_H
#define SYSTEM_AUDIO_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t audio_devices_t;
typedef uint32_t audio_channel_mask_t;
typedef int audio_io_handle_t;
typedef int audio_patch_handle_t;
typedef int audio_port_handle_t;

#define AUDIO_DEVICE_MAX_ADDRESS_LEN 32

/* clang-format off */

/* Main format in the top byte, sub-format below; PCM is main format 0. */
typedef enum {
  AUDIO_FORMAT_INVALID           = 0xFFFFFFFFu,
  AUDIO_FORMAT_DEFAULT           = 0,
  AUDIO_FORMAT_PCM               = 0,
  AUDIO_FORMAT_PCM_16_BIT        = 0x1,
  AUDIO_FORMAT_PCM_8_BIT         = 0x2,
  AUDIO_FORMAT_PCM_32_BIT        = 0x3,
  AUDIO_FORMAT_PCM_8_24_BIT      = 0x4,
  AUDIO_FORMAT_PCM_FLOAT         = 0x5,
  AUDIO_FORMAT_PCM_24_BIT_PACKED = 0x6,
  AUDIO_FORMAT_MP3               = 0x01000000u,
  AUDIO_FORMAT_IEC61937          = 0x0D000000u,
  AUDIO_FORMAT_MAIN_MASK         = 0xFF000000u,
  AUDIO_FORMAT_SUB_MASK          = 0x00FFFFFFu,
} audio_format_t;

/* The top two bits of a channel mask name its representation, the low 30 bits its channels. */
enum {
  AUDIO_CHANNEL_COUNT_MAX               = 30,
  AUDIO_CHANNEL_REPRESENTATION_POSITION = 0x0,
  AUDIO_CHANNEL_REPRESENTATION_INDEX    = 0x2,
};

enum {
  AUDIO_CHANNEL_NONE      = 0x0,
  AUDIO_CHANNEL_INVALID   = 0xC0000000u,
  AUDIO_CHANNEL_INDEX_HDR = 0x80000000u,

  AUDIO_CHANNEL_INDEX_MASK_1  = 0x80000001u,
  AUDIO_CHANNEL_INDEX_MASK_2  = 0x80000003u,
  AUDIO_CHANNEL_INDEX_MASK_3  = 0x80000007u,
  AUDIO_CHANNEL_INDEX_MASK_4  = 0x8000000Fu,
  AUDIO_CHANNEL_INDEX_MASK_5  = 0x8000001Fu,
  AUDIO_CHANNEL_INDEX_MASK_6  = 0x8000003Fu,
  AUDIO_CHANNEL_INDEX_MASK_7  = 0x8000007Fu,
  AUDIO_CHANNEL_INDEX_MASK_8  = 0x800000FFu,
  AUDIO_CHANNEL_INDEX_MASK_9  = 0x800001FFu,
  AUDIO_CHANNEL_INDEX_MASK_10 = 0x800003FFu,
  AUDIO_CHANNEL_INDEX_MASK_11 = 0x800007FFu,
  AUDIO_CHANNEL_INDEX_MASK_12 = 0x80000FFFu,
  AUDIO_CHANNEL_INDEX_MASK_13 = 0x80001FFFu,
  AUDIO_CHANNEL_INDEX_MASK_14 = 0x80003FFFu,
  AUDIO_CHANNEL_INDEX_MASK_15 = 0x80007FFFu,
  AUDIO_CHANNEL_INDEX_MASK_16 = 0x8000FFFFu,
  AUDIO_CHANNEL_INDEX_MASK_17 = 0x8001FFFFu,
  AUDIO_CHANNEL_INDEX_MASK_18 = 0x8003FFFFu,
  AUDIO_CHANNEL_INDEX_MASK_19 = 0x8007FFFFu,
  AUDIO_CHANNEL_INDEX_MASK_20 = 0x800FFFFFu,
  AUDIO_CHANNEL_INDEX_MASK_21 = 0x801FFFFFu,
  AUDIO_CHANNEL_INDEX_MASK_22 = 0x803FFFFFu,
  AUDIO_CHANNEL_INDEX_MASK_23 = 0x807FFFFFu,
  AUDIO_CHANNEL_INDEX_MASK_24 = 0x80FFFFFFu,

  AUDIO_CHANNEL_IN_LEFT            = 0x4,
  AUDIO_CHANNEL_IN_RIGHT           = 0x8,
  AUDIO_CHANNEL_IN_STEREO          = 0xC,
  AUDIO_CHANNEL_IN_FRONT           = 0x10,
  AUDIO_CHANNEL_IN_MONO            = 0x10,
  AUDIO_CHANNEL_IN_BACK            = 0x20,
  AUDIO_CHANNEL_IN_FRONT_BACK      = 0x30,
  AUDIO_CHANNEL_IN_LEFT_PROCESSED  = 0x40,
  AUDIO_CHANNEL_IN_RIGHT_PROCESSED = 0x80,
  AUDIO_CHANNEL_IN_FRONT_PROCESSED = 0x100,
  AUDIO_CHANNEL_IN_BACK_PROCESSED  = 0x200,
  AUDIO_CHANNEL_IN_PRESSURE        = 0x400,
  AUDIO_CHANNEL_IN_X_AXIS          = 0x800,
  AUDIO_CHANNEL_IN_Y_AXIS          = 0x1000,
  AUDIO_CHANNEL_IN_Z_AXIS          = 0x2000,
  AUDIO_CHANNEL_IN_VOICE_UPLINK    = 0x4000,
  AUDIO_CHANNEL_IN_VOICE_DNLINK    = 0x8000,
  AUDIO_CHANNEL_IN_BACK_LEFT       = 0x10000,
  AUDIO_CHANNEL_IN_BACK_RIGHT      = 0x20000,
  AUDIO_CHANNEL_IN_CENTER          = 0x40000,
  AUDIO_CHANNEL_IN_LOW_FREQUENCY   = 0x100000,
  AUDIO_CHANNEL_IN_TOP_LEFT        = 0x200000,
  AUDIO_CHANNEL_IN_TOP_RIGHT       = 0x400000,
  AUDIO_CHANNEL_IN_ALL             = 0x77FFFC, /* bits 0, 1 and 19 belong to no input position */
};

enum {
  AUDIO_DEVICE_NONE                     = 0x0,
  AUDIO_DEVICE_BIT_IN                   = 0x80000000u,
  AUDIO_DEVICE_BIT_DEFAULT              = 0x40000000u,
  AUDIO_DEVICE_IN_BUILTIN_MIC           = 0x80000004u,
  AUDIO_DEVICE_IN_BLUETOOTH_SCO_HEADSET = 0x80000008u,
  AUDIO_DEVICE_IN_PROXY                 = 0x81000000u,
  AUDIO_DEVICE_IN_DEFAULT               = 0xC0000000u,
};

typedef enum {
  AUDIO_SOURCE_DEFAULT             = 0,
  AUDIO_SOURCE_MIC                 = 1,
  AUDIO_SOURCE_VOICE_UPLINK        = 2,
  AUDIO_SOURCE_VOICE_DOWNLINK      = 3,
  AUDIO_SOURCE_VOICE_CALL          = 4,
  AUDIO_SOURCE_CAMCORDER           = 5,
  AUDIO_SOURCE_VOICE_RECOGNITION   = 6,
  AUDIO_SOURCE_VOICE_COMMUNICATION = 7,
  AUDIO_SOURCE_REMOTE_SUBMIX       = 8,
  AUDIO_SOURCE_UNPROCESSED         = 9,
  AUDIO_SOURCE_VOICE_PERFORMANCE   = 10,
  AUDIO_SOURCE_ECHO_REFERENCE      = 1997,
  AUDIO_SOURCE_FM_TUNER            = 1998,
  AUDIO_SOURCE_HOTWORD             = 1999,
} audio_source_t;

typedef enum {
  AUDIO_INPUT_FLAG_NONE       = 0x0,
  AUDIO_INPUT_FLAG_FAST       = 0x1,
  AUDIO_INPUT_FLAG_HW_HOTWORD = 0x2,
  AUDIO_INPUT_FLAG_RAW        = 0x4,
  AUDIO_INPUT_FLAG_SYNC       = 0x8,
  AUDIO_INPUT_FLAG_MMAP_NOIRQ = 0x10,
  AUDIO_INPUT_FLAG_VOIP_TX    = 0x20,
  AUDIO_INPUT_FLAG_HW_AV_SYNC = 0x40,
  AUDIO_INPUT_FLAG_DIRECT     = 0x80,
} audio_input_flags_t;

typedef enum {
  AUDIO_OUTPUT_FLAG_NONE = 0x0,
} audio_output_flags_t;

typedef enum {
  AUDIO_MODE_INVALID          = -2,
  AUDIO_MODE_CURRENT          = -1,
  AUDIO_MODE_NORMAL           = 0,
  AUDIO_MODE_RINGTONE         = 1,
  AUDIO_MODE_IN_CALL          = 2,
  AUDIO_MODE_IN_COMMUNICATION = 3,
  AUDIO_MODE_CALL_SCREEN      = 4,
} audio_mode_t;

typedef enum {
  MIC_DIRECTION_UNSPECIFIED = 0,
  MIC_DIRECTION_FRONT       = 1,
  MIC_DIRECTION_BACK        = 2,
  MIC_DIRECTION_EXTERNAL    = 3,
} audio_microphone_direction_t;

typedef enum {
  AUDIO_STREAM_DEFAULT = -1,
} audio_stream_type_t;

typedef enum {
  AUDIO_USAGE_UNKNOWN = 0,
} audio_usage_t;

typedef enum {
  AUDIO_CONTENT_TYPE_UNKNOWN = 0,
} audio_content_type_t;

typedef enum {
  AUDIO_ENCAPSULATION_MODE_NONE = 0,
} audio_encapsulation_mode_t;

/* clang-format on */

/* Alignment 8 holds on every target; it decides the padding of audio_config. */
typedef struct __attribute__((aligned(8))) {
  uint16_t version;
  uint16_t size;
  uint32_t sample_rate;
  audio_channel_mask_t channel_mask;
  audio_format_t format;
  audio_stream_type_t stream_type;
  uint32_t bit_rate;
  int64_t duration_us;
  bool has_video;
  bool is_streaming;
  uint32_t bit_width;
  uint32_t offload_buffer_size;
  audio_usage_t usage;
  audio_encapsulation_mode_t encapsulation_mode;
  int32_t content_id;
  int32_t sync_id;
} audio_offload_info_t;

struct __attribute__((aligned(8))) audio_config {
  uint32_t sample_rate;
  audio_channel_mask_t channel_mask;
  audio_format_t format;
  audio_offload_info_t offload_info;
  uint32_t frame_count;
};
typedef struct audio_config audio_config_t;

typedef struct playback_track_metadata {
  audio_usage_t usage;
  audio_content_type_t content_type;
  float gain;
} playback_track_metadata_t;

typedef struct record_track_metadata {
  audio_source_t source;
  float gain;
  audio_devices_t dest_device;
  char dest_device_address[AUDIO_DEVICE_MAX_ADDRESS_LEN];
} record_track_metadata_t;

/* Passed through by pointer only. */
struct audio_microphone_characteristic_t;
struct audio_mmap_buffer_info;
struct audio_mmap_position;
struct audio_port;
struct audio_port_config;

/*
 * Number of channels of an input mask: set bits among the known input positions, or among the low
 * 30 bits of an index mask; 0 for the two representations that do not exist.
 */
static inline uint32_t audio_channel_count_from_in_mask(audio_channel_mask_t mask) {
  const uint32_t representation = mask >> AUDIO_CHANNEL_COUNT_MAX;
  const uint32_t low_bits = mask & ((1u << AUDIO_CHANNEL_COUNT_MAX) - 1u);
  if (representation == AUDIO_CHANNEL_REPRESENTATION_POSITION) {
    return (uint32_t)__builtin_popcount(low_bits & AUDIO_CHANNEL_IN_ALL);
  }
  if (representation == AUDIO_CHANNEL_REPRESENTATION_INDEX) {
    return (uint32_t)__builtin_popcount(low_bits);
  }
  return 0;
}

/* Bytes of one sample of one channel, by exact format; 0 for any other, AUDIO_FORMAT_DEFAULT too. */
static inline size_t audio_bytes_per_sample(audio_format_t format) {
  switch (format) {
    case AUDIO_FORMAT_PCM_8_BIT:
      return 1;
    case AUDIO_FORMAT_PCM_16_BIT:
    case AUDIO_FORMAT_IEC61937:
      return 2;
    case AUDIO_FORMAT_PCM_24_BIT_PACKED:
      return 3;
    case AUDIO_FORMAT_PCM_32_BIT:
    case AUDIO_FORMAT_PCM_8_24_BIT:
    case AUDIO_FORMAT_PCM_FLOAT:
      return 4;
    default:
      return 0;
  }
}

#ifdef __cplusplus
}
#endif

#endif /* SYSTEM_AUDIO_H */
