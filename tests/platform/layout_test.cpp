// The platform's records have the layout by which an audio service compiled elsewhere reads them;
// figures are the platform's own, not derived from our declarations.
// That the types of the operations are the platform's is seen where the product provides them.
#include <gtest/gtest.h>
#include <hardware/audio.h>

#include <cstddef>
#include <ctime>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

// Figures are given for 32-bit ARM and for x86-64, in that order.
constexpr size_t pick(size_t on_32_bit, size_t on_64_bit) {
  return sizeof(void*) == 4 ? on_32_bit : on_64_bit;
}

template <typename Record>
constexpr bool IsRecord(size_t size_32, size_t size_64, size_t alignment_32, size_t alignment_64) {
  return sizeof(Record) == pick(size_32, size_64) &&
         alignof(Record) == pick(alignment_32, alignment_64) && std::is_standard_layout_v<Record> &&
         std::is_trivial_v<Record>;
}
static_assert(IsRecord<hw_module_t>(128, 248, 4, 8));
static_assert(IsRecord<hw_module_methods_t>(4, 8, 4, 8));
static_assert(IsRecord<hw_device_t>(64, 120, 4, 8));
static_assert(IsRecord<audio_hw_device>(164, 320, 4, 8));
static_assert(IsRecord<audio_stream>(56, 112, 4, 8));
static_assert(IsRecord<audio_stream_in>(104, 208, 4, 8));
static_assert(IsRecord<audio_offload_info_t>(64, 64, 8, 8));
static_assert(IsRecord<audio_config>(88, 88, 8, 8));
static_assert(IsRecord<source_metadata>(8, 16, 4, 8) && IsRecord<sink_metadata>(8, 16, 4, 8));
static_assert(IsRecord<playback_track_metadata>(12, 12, 4, 4));
static_assert(IsRecord<record_track_metadata>(44, 44, 4, 4));

// Values are printed, so the promotion matters beside the width.
template <typename Enumeration, typename Promoted>
constexpr bool kIsWord =
    sizeof(Enumeration) == 4 && std::is_same_v<decltype(+std::declval<Enumeration>()), Promoted>;
static_assert(kIsWord<audio_format_t, unsigned int> && kIsWord<audio_mode_t, int>);
static_assert(kIsWord<audio_source_t, int> && kIsWord<audio_input_flags_t, int>);
static_assert(kIsWord<audio_output_flags_t, int> && kIsWord<audio_microphone_direction_t, int>);
static_assert(std::is_same_v<audio_devices_t, uint32_t>);
static_assert(std::is_same_v<audio_channel_mask_t, uint32_t>);
static_assert(std::is_same_v<audio_io_handle_t, int> && std::is_same_v<audio_patch_handle_t, int>);
static_assert(std::is_same_v<effect_handle_t, effect_interface_s**>);

// Target conventions that the records above and the product's time arithmetic build on.
static_assert(sizeof(size_t) == pick(4, 8) && sizeof(time_t) == pick(4, 8));
static_assert(sizeof(bool) == 1 && sizeof(int) == 4 && alignof(int64_t) == 8);

template <typename... Number>
std::vector<size_t> List(Number... numbers) {
  return {static_cast<size_t>(numbers)...};
}

// Operations one behind the other, from the given offset to the end of the record.
std::vector<size_t> SlotsOf(size_t first, size_t size) {
  std::vector<size_t> offsets;
  for (size_t offset = first; offset < size; offset += sizeof(void*)) {
    offsets.push_back(offset);
  }
  return offsets;
}

#define AT(field) offsetof(Record, field)

TEST(PlatformRecords, DeviceOperationsStandInThePlatformsOrder) {
  using Record = audio_hw_device;
  EXPECT_EQ(List(AT(get_supported_devices), AT(init_check), AT(set_voice_volume),
                 AT(set_master_volume), AT(get_master_volume), AT(set_mode), AT(set_mic_mute),
                 AT(get_mic_mute), AT(set_parameters), AT(get_parameters),
                 AT(get_input_buffer_size), AT(open_output_stream), AT(close_output_stream),
                 AT(open_input_stream), AT(close_input_stream), AT(get_microphones), AT(dump),
                 AT(set_master_mute), AT(get_master_mute), AT(create_audio_patch),
                 AT(release_audio_patch), AT(get_audio_port), AT(set_audio_port_config),
                 AT(add_device_effect), AT(remove_device_effect)),
            SlotsOf(pick(64, 120), pick(164, 320)));
}

TEST(PlatformRecords, StreamOperationsStandInThePlatformsOrder) {
  using Record = audio_stream_in;
  EXPECT_EQ(List(AT(common.get_sample_rate), AT(common.set_sample_rate), AT(common.get_buffer_size),
                 AT(common.get_channels), AT(common.get_format), AT(common.set_format),
                 AT(common.standby), AT(common.dump), AT(common.get_device), AT(common.set_device),
                 AT(common.set_parameters), AT(common.get_parameters), AT(common.add_audio_effect),
                 AT(common.remove_audio_effect), AT(set_gain), AT(read), AT(get_input_frames_lost),
                 AT(get_capture_position), AT(start), AT(stop), AT(create_mmap_buffer),
                 AT(get_mmap_position), AT(get_active_microphones), AT(set_microphone_direction),
                 AT(set_microphone_field_dimension), AT(update_sink_metadata)),
            SlotsOf(0, pick(104, 208)));
}

TEST(PlatformRecords, ModuleAndDeviceFieldsStandAtThePlatformsOffsets) {
  {
    using Record = hw_module_t;
    EXPECT_EQ(
        List(AT(tag), AT(module_api_version), AT(hal_api_version), AT(id), AT(name), AT(author),
             AT(methods), AT(dso), AT(reserved)),
        List(0, 4, 6, 8, pick(12, 16), pick(16, 24), pick(20, 32), pick(24, 40), pick(28, 48)));
  }
  using Record = hw_device_t;
  EXPECT_EQ(List(AT(tag), AT(version), AT(module), AT(reserved), AT(close)),
            List(0, 4, 8, pick(12, 16), pick(60, 112)));
}

TEST(PlatformRecords, ConfigurationFieldsStandAtThePlatformsOffsets) {
  using Record = audio_config;
  EXPECT_EQ(List(AT(sample_rate), AT(channel_mask), AT(format), AT(offload_info.version),
                 AT(offload_info.size), AT(offload_info.sample_rate), AT(offload_info.channel_mask),
                 AT(offload_info.format), AT(offload_info.stream_type), AT(offload_info.bit_rate),
                 AT(offload_info.duration_us), AT(offload_info.has_video),
                 AT(offload_info.is_streaming), AT(offload_info.bit_width),
                 AT(offload_info.offload_buffer_size), AT(offload_info.usage),
                 AT(offload_info.encapsulation_mode), AT(offload_info.content_id),
                 AT(offload_info.sync_id), AT(frame_count)),
            List(0, 4, 8, 16, 18, 20, 24, 28, 32, 36, 40, 48, 49, 52, 56, 60, 64, 68, 72, 80));
}

TEST(PlatformRecords, MetadataFieldsStandAtThePlatformsOffsets) {
  EXPECT_EQ(offsetof(source_metadata, tracks), sizeof(void*));
  EXPECT_EQ(offsetof(sink_metadata, tracks), sizeof(void*));
  EXPECT_EQ(offsetof(playback_track_metadata, content_type), 4u);
  EXPECT_EQ(offsetof(playback_track_metadata, gain), 8u);
  using Record = record_track_metadata;
  EXPECT_EQ(List(AT(source), AT(gain), AT(dest_device), AT(dest_device_address)),
            List(0, 4, 8, 12));
}

}  // namespace
