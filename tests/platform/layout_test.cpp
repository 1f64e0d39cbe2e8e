// The platform's records, constants and helpers have the layout, types and values by which an audio
// service compiled elsewhere reads them. Offsets are given for 32-bit ARM and for x86-64, in that
// order; figures are the platform's own, not derived from our declarations.
#include <audio_utils/primitives.h>
#include <gtest/gtest.h>
#include <hardware/audio.h>

#include <cstddef>
#include <ctime>
#include <type_traits>
#include <utility>

namespace {

#if defined(__LP64__)
constexpr size_t pick(size_t, size_t on_64_bit) {
  return on_64_bit;
}
using ReservedWord = uint64_t;
#else
constexpr size_t pick(size_t on_32_bit, size_t) {
  return on_32_bit;
}
using ReservedWord = uint32_t;
#endif

#define RECORD(record, size_32, size_64, alignment_32, alignment_64)                               \
  static_assert(sizeof(record) == pick(size_32, size_64) && std::is_standard_layout_v<record> &&   \
                    alignof(record) == pick(alignment_32, alignment_64) &&                         \
                    std::is_trivial_v<record>,                                                     \
                #record)
#define FIELD(record, field, offset_32, offset_64, ...)                                            \
  static_assert(offsetof(record, field) == pick(offset_32, offset_64) &&                           \
                    std::is_same_v<decltype(record::field), __VA_ARGS__>,                          \
                #record "::" #field)

// clang-format off
RECORD(hw_module_t, 128, 248, 4, 8);
FIELD(hw_module_t, tag, 0, 0, uint32_t);
FIELD(hw_module_t, module_api_version, 4, 4, uint16_t);
FIELD(hw_module_t, hal_api_version, 6, 6, uint16_t);
FIELD(hw_module_t, id, 8, 8, const char*);
FIELD(hw_module_t, name, 12, 16, const char*);
FIELD(hw_module_t, author, 16, 24, const char*);
FIELD(hw_module_t, methods, 20, 32, hw_module_methods_t*);
FIELD(hw_module_t, dso, 24, 40, void*);
FIELD(hw_module_t, reserved, 28, 48, ReservedWord[25]);

RECORD(hw_module_methods_t, 4, 8, 4, 8);
FIELD(hw_module_methods_t, open, 0, 0, int (*)(const hw_module_t*, const char*, hw_device_t**));

RECORD(hw_device_t, 64, 120, 4, 8);
FIELD(hw_device_t, tag, 0, 0, uint32_t);
FIELD(hw_device_t, version, 4, 4, uint32_t);
FIELD(hw_device_t, module, 8, 8, hw_module_t*);
FIELD(hw_device_t, reserved, 12, 16, ReservedWord[12]);
FIELD(hw_device_t, close, 60, 112, int (*)(hw_device_t*));

RECORD(audio_hw_device, 164, 320, 4, 8);
FIELD(audio_hw_device, common, 0, 0, hw_device_t);
FIELD(audio_hw_device, get_supported_devices, 64, 120, uint32_t (*)(const audio_hw_device*));
FIELD(audio_hw_device, init_check, 68, 128, int (*)(const audio_hw_device*));
FIELD(audio_hw_device, set_voice_volume, 72, 136, int (*)(audio_hw_device*, float));
FIELD(audio_hw_device, set_master_volume, 76, 144, int (*)(audio_hw_device*, float));
FIELD(audio_hw_device, get_master_volume, 80, 152, int (*)(audio_hw_device*, float*));
FIELD(audio_hw_device, set_mode, 84, 160, int (*)(audio_hw_device*, audio_mode_t));
FIELD(audio_hw_device, set_mic_mute, 88, 168, int (*)(audio_hw_device*, bool));
FIELD(audio_hw_device, get_mic_mute, 92, 176, int (*)(const audio_hw_device*, bool*));
FIELD(audio_hw_device, set_parameters, 96, 184, int (*)(audio_hw_device*, const char*));
FIELD(audio_hw_device, get_parameters, 100, 192, char* (*)(const audio_hw_device*, const char*));
FIELD(audio_hw_device, get_input_buffer_size, 104, 200, size_t (*)(const audio_hw_device*, const audio_config*));
FIELD(audio_hw_device, open_output_stream, 108, 208, int (*)(audio_hw_device*, audio_io_handle_t, audio_devices_t, audio_output_flags_t, audio_config*, audio_stream_out**, const char*));
FIELD(audio_hw_device, close_output_stream, 112, 216, void (*)(audio_hw_device*, audio_stream_out*));
FIELD(audio_hw_device, open_input_stream, 116, 224, int (*)(audio_hw_device*, audio_io_handle_t, audio_devices_t, audio_config*, audio_stream_in**, audio_input_flags_t, const char*, audio_source_t));
FIELD(audio_hw_device, close_input_stream, 120, 232, void (*)(audio_hw_device*, audio_stream_in*));
FIELD(audio_hw_device, get_microphones, 124, 240, int (*)(const audio_hw_device*, audio_microphone_characteristic_t*, size_t*));
FIELD(audio_hw_device, dump, 128, 248, int (*)(const audio_hw_device*, int));
FIELD(audio_hw_device, set_master_mute, 132, 256, int (*)(audio_hw_device*, bool));
FIELD(audio_hw_device, get_master_mute, 136, 264, int (*)(audio_hw_device*, bool*));
FIELD(audio_hw_device, create_audio_patch, 140, 272, int (*)(audio_hw_device*, unsigned int, const audio_port_config*, unsigned int, const audio_port_config*, audio_patch_handle_t*));
FIELD(audio_hw_device, release_audio_patch, 144, 280, int (*)(audio_hw_device*, audio_patch_handle_t));
FIELD(audio_hw_device, get_audio_port, 148, 288, int (*)(audio_hw_device*, audio_port*));
FIELD(audio_hw_device, set_audio_port_config, 152, 296, int (*)(audio_hw_device*, const audio_port_config*));
FIELD(audio_hw_device, add_device_effect, 156, 304, int (*)(audio_hw_device*, audio_port_handle_t, effect_handle_t));
FIELD(audio_hw_device, remove_device_effect, 160, 312, int (*)(audio_hw_device*, audio_port_handle_t, effect_handle_t));

RECORD(audio_stream, 56, 112, 4, 8);
FIELD(audio_stream, get_sample_rate, 0, 0, uint32_t (*)(const audio_stream*));
FIELD(audio_stream, set_sample_rate, 4, 8, int (*)(audio_stream*, uint32_t));
FIELD(audio_stream, get_buffer_size, 8, 16, size_t (*)(const audio_stream*));
FIELD(audio_stream, get_channels, 12, 24, audio_channel_mask_t (*)(const audio_stream*));
FIELD(audio_stream, get_format, 16, 32, audio_format_t (*)(const audio_stream*));
FIELD(audio_stream, set_format, 20, 40, int (*)(audio_stream*, audio_format_t));
FIELD(audio_stream, standby, 24, 48, int (*)(audio_stream*));
FIELD(audio_stream, dump, 28, 56, int (*)(const audio_stream*, int));
FIELD(audio_stream, get_device, 32, 64, audio_devices_t (*)(const audio_stream*));
FIELD(audio_stream, set_device, 36, 72, int (*)(audio_stream*, audio_devices_t));
FIELD(audio_stream, set_parameters, 40, 80, int (*)(audio_stream*, const char*));
FIELD(audio_stream, get_parameters, 44, 88, char* (*)(const audio_stream*, const char*));
FIELD(audio_stream, add_audio_effect, 48, 96, int (*)(const audio_stream*, effect_handle_t));
FIELD(audio_stream, remove_audio_effect, 52, 104, int (*)(const audio_stream*, effect_handle_t));

RECORD(audio_stream_in, 104, 208, 4, 8);
FIELD(audio_stream_in, common, 0, 0, audio_stream);
FIELD(audio_stream_in, set_gain, 56, 112, int (*)(audio_stream_in*, float));
FIELD(audio_stream_in, read, 60, 120, ssize_t (*)(audio_stream_in*, void*, size_t));
FIELD(audio_stream_in, get_input_frames_lost, 64, 128, uint32_t (*)(audio_stream_in*));
FIELD(audio_stream_in, get_capture_position, 68, 136, int (*)(const audio_stream_in*, int64_t*, int64_t*));
FIELD(audio_stream_in, start, 72, 144, int (*)(const audio_stream_in*));
FIELD(audio_stream_in, stop, 76, 152, int (*)(const audio_stream_in*));
FIELD(audio_stream_in, create_mmap_buffer, 80, 160, int (*)(const audio_stream_in*, int32_t, audio_mmap_buffer_info*));
FIELD(audio_stream_in, get_mmap_position, 84, 168, int (*)(const audio_stream_in*, audio_mmap_position*));
FIELD(audio_stream_in, get_active_microphones, 88, 176, int (*)(const audio_stream_in*, audio_microphone_characteristic_t*, size_t*));
FIELD(audio_stream_in, set_microphone_direction, 92, 184, int (*)(const audio_stream_in*, audio_microphone_direction_t));
FIELD(audio_stream_in, set_microphone_field_dimension, 96, 192, int (*)(const audio_stream_in*, float));
FIELD(audio_stream_in, update_sink_metadata, 100, 200, void (*)(audio_stream_in*, const sink_metadata*));

RECORD(audio_offload_info_t, 64, 64, 8, 8);
FIELD(audio_offload_info_t, version, 0, 0, uint16_t);
FIELD(audio_offload_info_t, size, 2, 2, uint16_t);
FIELD(audio_offload_info_t, sample_rate, 4, 4, uint32_t);
FIELD(audio_offload_info_t, channel_mask, 8, 8, audio_channel_mask_t);
FIELD(audio_offload_info_t, format, 12, 12, audio_format_t);
FIELD(audio_offload_info_t, stream_type, 16, 16, audio_stream_type_t);
FIELD(audio_offload_info_t, bit_rate, 20, 20, uint32_t);
FIELD(audio_offload_info_t, duration_us, 24, 24, int64_t);
FIELD(audio_offload_info_t, has_video, 32, 32, bool);
FIELD(audio_offload_info_t, is_streaming, 33, 33, bool);
FIELD(audio_offload_info_t, bit_width, 36, 36, uint32_t);
FIELD(audio_offload_info_t, offload_buffer_size, 40, 40, uint32_t);
FIELD(audio_offload_info_t, usage, 44, 44, audio_usage_t);
FIELD(audio_offload_info_t, encapsulation_mode, 48, 48, audio_encapsulation_mode_t);
FIELD(audio_offload_info_t, content_id, 52, 52, int32_t);
FIELD(audio_offload_info_t, sync_id, 56, 56, int32_t);

RECORD(audio_config, 88, 88, 8, 8);
FIELD(audio_config, sample_rate, 0, 0, uint32_t);
FIELD(audio_config, channel_mask, 4, 4, audio_channel_mask_t);
FIELD(audio_config, format, 8, 8, audio_format_t);
FIELD(audio_config, offload_info, 16, 16, audio_offload_info_t);
FIELD(audio_config, frame_count, 80, 80, uint32_t);

RECORD(source_metadata, 8, 16, 4, 8);
FIELD(source_metadata, track_count, 0, 0, size_t);
FIELD(source_metadata, tracks, 4, 8, playback_track_metadata*);

RECORD(sink_metadata, 8, 16, 4, 8);
FIELD(sink_metadata, track_count, 0, 0, size_t);
FIELD(sink_metadata, tracks, 4, 8, record_track_metadata*);

RECORD(playback_track_metadata, 12, 12, 4, 4);
FIELD(playback_track_metadata, usage, 0, 0, audio_usage_t);
FIELD(playback_track_metadata, content_type, 4, 4, audio_content_type_t);
FIELD(playback_track_metadata, gain, 8, 8, float);

RECORD(record_track_metadata, 44, 44, 4, 4);
FIELD(record_track_metadata, source, 0, 0, audio_source_t);
FIELD(record_track_metadata, gain, 4, 4, float);
FIELD(record_track_metadata, dest_device, 8, 8, audio_devices_t);
FIELD(record_track_metadata, dest_device_address, 12, 12, char[32]);
// clang-format on

// Values are printed, so the promotion matters beside the width.
template <typename Enumeration, typename Promoted>
constexpr bool kIsWord = sizeof(Enumeration) == 4 &&
                         std::is_same_v<decltype(+std::declval<Enumeration>()),
                                        Promoted>&& std::is_convertible_v<Enumeration, Promoted>;
static_assert(kIsWord<audio_format_t, unsigned int>);
static_assert(kIsWord<audio_mode_t, int> && kIsWord<audio_stream_type_t, int>);
static_assert(kIsWord<audio_source_t, int> && kIsWord<audio_input_flags_t, int>);
static_assert(kIsWord<audio_output_flags_t, int> && kIsWord<audio_microphone_direction_t, int>);
static_assert(kIsWord<audio_usage_t, int> && kIsWord<audio_content_type_t, int>);
static_assert(kIsWord<audio_encapsulation_mode_t, int>);
static_assert(std::is_same_v<audio_devices_t, uint32_t>);
static_assert(std::is_same_v<audio_channel_mask_t, uint32_t>);
static_assert(std::is_same_v<audio_io_handle_t, int> && std::is_same_v<audio_patch_handle_t, int>);
static_assert(std::is_same_v<audio_port_handle_t, int>);
static_assert(std::is_same_v<effect_handle_t, effect_interface_s**>);

static_assert(HARDWARE_MODULE_TAG == 0x48574D54 && HARDWARE_DEVICE_TAG == 0x48574454);
static_assert(HARDWARE_HAL_API_VERSION == 0x0100 && AUDIO_MODULE_API_VERSION_0_1 == 0x0001);
static_assert(AUDIO_DEVICE_API_VERSION_2_0 == 0x0200 && AUDIO_DEVICE_API_VERSION_MIN == 0x0200);
static_assert(AUDIO_DEVICE_API_VERSION_3_0 == 0x0300 && AUDIO_DEVICE_API_VERSION_CURRENT == 0x0301);
static_assert(AUDIO_FORMAT_INVALID == 0xFFFFFFFF && AUDIO_FORMAT_PCM_24_BIT_PACKED == 6);
static_assert(AUDIO_CHANNEL_IN_STEREO == 12 && AUDIO_CHANNEL_IN_MONO == 16);
static_assert(AUDIO_CHANNEL_IN_ALL == 0x77FFFC && AUDIO_CHANNEL_INVALID == 0xC0000000);
static_assert(AUDIO_DEVICE_IN_PROXY == 0x81000000 && AUDIO_DEVICE_IN_DEFAULT == 0xC0000000);
static_assert(AUDIO_MODE_INVALID == -2 && AUDIO_MODE_CALL_SCREEN == 4);
static_assert(AUDIO_SOURCE_CAMCORDER == 5 && AUDIO_SOURCE_HOTWORD == 1999);
static_assert(AUDIO_INPUT_FLAG_DIRECT == 0x80 && MIC_DIRECTION_EXTERNAL == 3);

// Target conventions that the records above and the product's time arithmetic build on.
static_assert(sizeof(size_t) == pick(4, 8) && sizeof(time_t) == pick(4, 8));
static_assert(sizeof(bool) == 1 && sizeof(int) == 4 && alignof(int64_t) == 8);

TEST(PlatformHelpers, CountInputChannelsByRepresentation) {
  const std::pair<audio_channel_mask_t, uint32_t> cases[] = {
      {0, 0},          {0xC, 2},         {0x10, 1},       {0x3, 0},        {0x80000, 0},
      {0x77FFFC, 20},  {0x3FFFFFFF, 20}, {0x80000003, 2}, {0x80080003, 3}, {0xBFFFFFFF, 30},
      {0x4000000C, 0}, {0xC0000000, 0},  {0xC000000C, 0}};
  for (const auto& [mask, channels] : cases) {
    EXPECT_EQ(audio_channel_count_from_in_mask(mask), channels) << std::hex << mask;
  }
}

TEST(PlatformHelpers, GiveSampleBytesByExactFormat) {
  const std::pair<uint32_t, size_t> cases[] = {
      {0, 0}, {1, 2}, {2, 1},          {3, 4},          {4, 4},          {5, 4},
      {6, 3}, {7, 0}, {0x01000000, 0}, {0x0D000000, 2}, {0x0D000001, 0}, {0xFFFFFFFF, 0}};
  for (const auto& [format, bytes] : cases) {
    EXPECT_EQ(audio_bytes_per_sample(static_cast<audio_format_t>(format)), bytes) << format;
  }
}

TEST(PlatformHelpers, DownmixRoundsTowardsMinusInfinityAndWorksInPlace) {
  int16_t samples[] = {1, 2, 3, 4, -1, 0, -1, -2, 32767, 32767, -32768, -32768, 32767, -32768};
  const int16_t mono[] = {1, 3, -1, -2, 32767, -32768, -1};
  downmix_to_mono_i16_from_stereo_i16(samples, samples, 0);
  EXPECT_EQ(samples[0], 1);
  downmix_to_mono_i16_from_stereo_i16(samples, samples, 7);
  for (size_t frame = 0; frame < 7; ++frame) {
    EXPECT_EQ(samples[frame], mono[frame]) << frame;
  }
}

}  // namespace
