// The one capture stream: its object, creation, destruction and buffer size query.
//
// Called by the device operations on framework threads. The stream's own operations are reached
// through the slots of `stream`. Nothing here throws.
#ifndef BINAURAL_RECORD_HIDL_2CH_RECORD_1_0_BINAURAL_STREAM_APIS_H_
#define BINAURAL_RECORD_HIDL_2CH_RECORD_1_0_BINAURAL_STREAM_APIS_H_

#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <type_traits>

#include <hardware/audio.h>

#include "binaural_record/hidl/binaural_device_port_proxy.h"

// Written at open and by the stream's parameter operation, read on any thread.
struct BinauralStreamIn {
  audio_stream_in stream{};  // first: the framework's pointer is the object's pointer
  vendor::corva::bluetooth_audio_extend::BluetoothAudioPortIn bluetooth_input_;
  std::atomic<uint32_t> sample_rate_{0};   // Hz
  std::atomic<uint32_t> channel_mask_{0};  // audio_channel_mask_t
  std::atomic<uint32_t> format_{0};        // audio_format_t
  uint32_t frames_count_ = 0;              // frames per buffer period; fixed at open
  std::atomic<uint64_t> frames_read_{0};   // frames delivered, advanced by the capture thread
};

static_assert(offsetof(audio_stream_in, common) == 0, "the platform casts between the two");
static_assert(std::is_standard_layout<BinauralStreamIn>::value &&
                  offsetof(BinauralStreamIn, stream) == 0,
              "the platform's pointer is cast to the object");
static_assert(sizeof(audio_stream_in) == (sizeof(void*) == 4 ? 104 : 208) &&
                  alignof(vendor::corva::bluetooth_audio_extend::BluetoothAudioPortIn) <= 8,
              "the port begins directly behind the platform's record");

// The open stream or null: set when open publishes a stream, cleared first thing at close. Atomic,
// no lock; a loaded pointer is entered through the registry before it is followed.
extern std::atomic<BinauralStreamIn*> gStreamIn;

// Returns 0; -22 when the port cannot be set up and -12 without memory (nothing published, *stream_in
// null); -1 when the algorithm cannot be initialised.
// Deliberate: after -1 the stream stays published, and the framework's close releases it. One that
// is never closed is torn down at the next open or at the last device's close.
// `config` is overwritten with the session's rate, channel mask and format.
int binaural_open_input_stream(audio_hw_device* dev, audio_io_handle_t handle,
                               audio_devices_t devices, audio_config* config,
                               audio_stream_in** stream_in, audio_input_flags_t flags,
                               const char* address, audio_source_t source) noexcept;

// Stops and tears down the port, waits for operations in flight (at most 5 s), releases the algorithm
// and clears the runtime record except scene, mode, mirror flag and headset name. Valid in any port
// state; a pointer that is not an open stream, null included, is logged at ERROR and ignored.
void binaural_close_input_stream(audio_hw_device* dev, audio_stream_in* stream) noexcept;

// Tears down the streams whose own open failed and that nobody closed, and frees closed streams.
void binaural_reap_streams() noexcept;

// Bytes of a 20 ms period of `config`; 0 for null or a format or mask that counts as 0.
size_t binaural_stream_input_buffer_size(const audio_hw_device* dev,
                                         const audio_config* config) noexcept;

// There is no output: always -22, creates nothing.
int binaural_open_output_stream(audio_hw_device* dev, audio_io_handle_t handle,
                                audio_devices_t devices, audio_output_flags_t flags,
                                audio_config* config, audio_stream_out** stream_out,
                                const char* address) noexcept;
void binaural_close_output_stream(audio_hw_device* dev, audio_stream_out* stream) noexcept;

#endif  // BINAURAL_RECORD_HIDL_2CH_RECORD_1_0_BINAURAL_STREAM_APIS_H_
