// Creation, destruction and configuration of the capture stream; called by the device operations and,
// through the stream's slots, by the framework, on framework threads.
#define LOG_TAG "BinauralRecordHalStream"

#include "binaural_record/hidl/2ch-record/1.0/binaural_stream_apis.h"

#include <errno.h>
#include <string.h>

#include <iomanip>
#include <memory>
#include <new>
#include <ostream>

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_runtime.h"
#include "binaural_record/hidl/2ch-record/1.0/binaural_stream_ops.h"
#include "binaural_record/hidl/2ch-record/1.0/live_objects.h"
#include "binaural_record/hidl/binaural_defaults.h"
#include "binaural_record/utils/locks.h"
#include "binaural_record/utils/log.h"

using vendor::corva::binaural_record::LiveStream;
using vendor::corva::binaural_record::StreamGuard;
using vendor::corva::binaural_record::utils::gRuntimeMutex;
using vendor::corva::binaural_record::utils::RuntimeLock;
using vendor::corva::bluetooth_audio_extend::BinauralStreamState;

extern "C" {
const uint32_t kBinauralInDefaultStateTimeoutMs = 20;
const uint32_t kBinauralInDefaultBufferMs = 20;
const uint32_t kBinauralInDefaultSampleRate = 48000;
const uint32_t kBinauralInDefaultAudioFormatBitsPerSample = AUDIO_FORMAT_PCM_16_BIT;
const uint32_t kBinauralInDefaultChannelModeMask = AUDIO_CHANNEL_IN_STEREO;
}

std::atomic<BinauralStreamIn*> gStreamIn;

std::ostream& operator<<(std::ostream& out, const audio_config& config) {
  return out << "audio_config[sample_rate=" << config.sample_rate << ", channels=0x" << std::hex
             << config.channel_mask << std::dec << ", format=" << config.format << "]";
}

namespace {

// How long a close waits for operations in flight before it keeps the stream's memory instead.
constexpr int kCloseLimitMs = 5000;

// Deliberate: halved for mono (2000, not 1000), so that frames_count_ * 4 is the size of a 16-bit
// period either way. Wraps at 32 bits.
uint32_t FramesPerPeriod(uint32_t sample_rate_hz, uint32_t channel_mask) {
  return static_cast<uint32_t>(uint64_t{sample_rate_hz} * kBinauralInDefaultBufferMs *
                               audio_channel_count_from_in_mask(channel_mask)) /
         2000;
}

// The session's configuration at this moment; false when the port has none.
bool FreshConfig(const BinauralStreamIn& stream, audio_config* config) {
  *config = {};
  return stream.bluetooth_input_.LoadAudioConfig(config);
}

uint32_t in_get_sample_rate(const audio_stream* stream) noexcept {
  const StreamGuard in(stream);
  if (!in) {
    return 0;
  }
  audio_config config;
  if (FreshConfig(*in, &config)) {
    BINAURAL_LOG(VERBOSE) << __func__ << " enter, " << config;
    return config.sample_rate;
  }
  BINAURAL_LOG(VERBOSE) << __func__ << ": state=" << in->bluetooth_input_.GetState()
                        << ", sample_rate=" << in->sample_rate_ << " failed";
  return in->sample_rate_;
}

int in_set_sample_rate(audio_stream* stream, uint32_t rate) noexcept {
  const StreamGuard in(stream);
  if (!in) {
    return -1;
  }
  BINAURAL_LOG(VERBOSE) << __func__ << ": state=" << in->bluetooth_input_.GetState()
                        << ", sample_rate=" << in->sample_rate_;
  return rate == in->sample_rate_ ? 0 : -1;
}

audio_channel_mask_t in_get_channels(const audio_stream* stream) noexcept {
  const StreamGuard in(stream);
  if (!in) {
    return 0;
  }
  audio_config config;
  if (FreshConfig(*in, &config)) {
    BINAURAL_LOG(INFO) << __func__ << " enter,  " << config;
    return config.channel_mask;
  }
  BINAURAL_LOG(WARNING) << __func__ << ": state=" << in->bluetooth_input_.GetState()
                        << ", channels=0x" << std::hex << in->channel_mask_ << " failure";
  return in->channel_mask_;
}

audio_format_t in_get_format(const audio_stream* stream) noexcept {
  const StreamGuard in(stream);
  if (!in) {
    return AUDIO_FORMAT_DEFAULT;
  }
  audio_config config;
  if (FreshConfig(*in, &config)) {
    BINAURAL_LOG(INFO) << __func__ << " enter, " << config;
    return config.format;
  }
  BINAURAL_LOG(WARNING) << __func__ << ": state=" << in->bluetooth_input_.GetState()
                        << ", format=" << in->format_ << " failure";
  return static_cast<audio_format_t>(in->format_.load());
}

int in_set_format(audio_stream* stream, audio_format_t format) noexcept {
  const StreamGuard in(stream);
  if (!in) {
    return -1;
  }
  BINAURAL_LOG(INFO) << __func__ << ": state=" << in->bluetooth_input_.GetState()
                     << ", format=" << in->format_;
  return format == in->format_ ? 0 : -1;
}

void LogEffect(const char* function, const audio_stream* stream, effect_handle_t effect) {
  if (const StreamGuard in{stream}) {
    BINAURAL_LOG(VERBOSE) << function << ": state=" << in->bluetooth_input_.GetState()
                          << ", effect=" << effect;
  }
}

int in_add_audio_effect(const audio_stream* stream, effect_handle_t effect) noexcept {
  LogEffect(__func__, stream, effect);
  return 0;
}

int in_remove_audio_effect(const audio_stream* stream, effect_handle_t effect) noexcept {
  LogEffect(__func__, stream, effect);
  return 0;
}

int in_set_gain(audio_stream_in*, float) noexcept {
  return 0;
}

uint32_t in_get_input_frames_lost(audio_stream_in*) noexcept {
  return 0;
}

int in_get_active_microphones(const audio_stream_in*, audio_microphone_characteristic_t*,
                              size_t*) noexcept {
  return 0;
}

int in_set_microphone_direction(const audio_stream_in*, audio_microphone_direction_t) noexcept {
  return 0;
}

int in_set_microphone_field_dimension(const audio_stream_in*, float) noexcept {
  return 0;
}

void in_update_sink_metadata(audio_stream_in*, const sink_metadata*) noexcept {}

// get_device, set_device, create_mmap_buffer and get_mmap_position stay null: not provided.
void InstallOperations(audio_stream_in* stream) {
  stream->common.get_sample_rate = in_get_sample_rate;
  stream->common.set_sample_rate = in_set_sample_rate;
  stream->common.get_buffer_size = in_get_buffer_size;
  stream->common.get_channels = in_get_channels;
  stream->common.get_format = in_get_format;
  stream->common.set_format = in_set_format;
  stream->common.standby = in_standby;
  stream->common.dump = in_dump;
  stream->common.set_parameters = in_set_parameters;
  stream->common.get_parameters = in_get_parameters;
  stream->common.add_audio_effect = in_add_audio_effect;
  stream->common.remove_audio_effect = in_remove_audio_effect;
  stream->set_gain = in_set_gain;
  stream->read = in_read;
  stream->get_input_frames_lost = in_get_input_frames_lost;
  stream->get_capture_position = in_get_capture_position;
  // Deliberate: the memory-mapped mode's slots serve as this stream's ordinary start and stop.
  stream->start = in_start;
  stream->stop = in_stop;
  stream->get_active_microphones = in_get_active_microphones;
  stream->set_microphone_direction = in_set_microphone_direction;
  stream->set_microphone_field_dimension = in_set_microphone_field_dimension;
  stream->update_sink_metadata = in_update_sink_metadata;
}

// Waits until nobody is inside the closing stream, whose port is stopped, and hands its memory to the
// registry. No lock is held: whoever is inside may still need any of them.
void EmptyAndKeep(const char* function, LiveStream* live) {
  if (!WaitUntilIdle(live, kCloseLimitMs)) {
    BINAURAL_LOG(ERROR) << function << ": an operation is still inside the stream after "
                        << kCloseLimitMs << " ms, its memory is quarantined";
  }
  EndClose(live);
}

// The four settings that the device stores in the runtime record outlive every stream.
void ClearRuntimeExceptSettings(BinauralStreamInRuntimeParam* runtime) {
  char name[sizeof(runtime->btHeadsetName)];
  memcpy(name, runtime->btHeadsetName, sizeof(name));
  const auto scene = runtime->algScene;
  const auto mode = runtime->algMode;
  const auto mirror = runtime->mirrorEnabled;
  *runtime = {};
  runtime->algScene = scene;
  runtime->algMode = mode;
  runtime->mirrorEnabled = mirror;
  memcpy(runtime->btHeadsetName, name, strnlen(name, sizeof(name) - 1));
}

}  // namespace

size_t in_get_buffer_size(const audio_stream* stream) noexcept {
  const StreamGuard in(stream);
  if (!in) {
    return 0;
  }
  const size_t bytes = size_t{in->frames_count_} * kBytesPerFrame;
  BINAURAL_LOG(INFO) << __func__ << ": state=" << in->bluetooth_input_.GetState()
                     << ", buffer_size=" << bytes << ", frames_count_=" << in->frames_count_;
  return bytes;
}

int binaural_open_input_stream(audio_hw_device* dev, audio_io_handle_t, audio_devices_t devices,
                               audio_config* config, audio_stream_in** stream_in,
                               audio_input_flags_t, const char*, audio_source_t) noexcept {
  BINAURAL_LOG(INFO) << __func__ << " enter-";
  audio_stream_in* ignored_stream;
  audio_config ignored_config{};
  stream_in = stream_in == nullptr ? &ignored_stream : stream_in;
  config = config == nullptr ? &ignored_config : config;
  *stream_in = nullptr;
  BinauralStreamInRuntimeParam* runtime = record_get_runtime_parameters_1_0();

  std::unique_ptr<LiveStream> live(new (std::nothrow) LiveStream);
  // After the allocation: a late close of a stream freed here must not hit the new one's address.
  binaural_reap_streams();
  if (live == nullptr) {
    return -ENOMEM;
  }
  BinauralStreamIn& in = live->in;
  if (!in.bluetooth_input_.SetUp(devices)) {
    BINAURAL_LOG(ERROR) << __func__ << " enter: SetUp fail---";
    return -EINVAL;
  }
  BINAURAL_LOG(VERBOSE) << __func__ << ": device=0x" << std::hex << std::setw(8)
                        << std::setfill('0') << devices;
  InstallOperations(&in.stream);
  if (!in.bluetooth_input_.LoadAudioConfig(config)) {
    BINAURAL_LOG(ERROR) << __func__ << ": state=" << in.bluetooth_input_.GetState()
                        << " failed to get audio config";
  }
  in.sample_rate_ = config->sample_rate;
  in.channel_mask_ = config->channel_mask;
  in.format_ = config->format;
  in.frames_count_ = FramesPerPeriod(config->sample_rate, config->channel_mask);

  RuntimeLock lock(gRuntimeMutex);
  runtime->sampleRate = in.sample_rate_;
  runtime->channelMask = in.channel_mask_;
  runtime->format = in.format_;
  runtime->frameCount = in.frames_count_;
  LiveStream* published = live.release();
  PublishStream(dev, published);
  *stream_in = &in.stream;
  gStreamIn = &in;
  BINAURAL_LOG(INFO) << __func__ << ": state=" << in.bluetooth_input_.GetState()
                     << ", sample_rate=" << in.sample_rate_ << ", channels=" << std::hex
                     << in.channel_mask_ << std::dec << ", format=" << in.format_
                     << ", frames=" << in.frames_count_;
  if (is_bcap_algo_1_0() &&
      binaural_algorithm_init_1_0(runtime, static_cast<int>(runtime->algMode), true) != 0) {
    BINAURAL_LOG(ERROR) << __func__ << " enter: binaural_algorithm_init_1_0 fail---";
    MarkOpenFailed(published);
    return -1;
  }
  return 0;
}

void binaural_close_input_stream(audio_hw_device* dev, audio_stream_in* stream) noexcept {
  LiveStream* live = nullptr;
  {
    // One section, as publishing is: a stream in gStreamIn from here on was opened during this close.
    RuntimeLock lock(gRuntimeMutex);
    live = vendor::corva::binaural_record::BeginClose(dev, stream);
    if (live != nullptr) {
      // Before the global forgets the stream: a reader that finds it gone must not go on to the port.
      live->in.bluetooth_input_.AbortStart();
      gStreamIn = nullptr;
    }
  }
  if (live == nullptr) {
    BINAURAL_LOG(ERROR) << __func__ << ": " << stream << " is not an open stream, ignored";
    BINAURAL_LOG(INFO) << __func__ << " out";
    return;
  }
  auto& port = live->in.bluetooth_input_;
  BINAURAL_LOG(VERBOSE) << __func__ << ": state=" << port.GetState() << ", stopping";
  if (port.GetState() != BinauralStreamState::DISABLED) {
    port.Stop();
  }
  port.TearDown();
  BINAURAL_LOG(VERBOSE) << __func__ << ": state=" << port.GetState() << ", stopped";
  EmptyAndKeep(__func__, live);

  BinauralStreamInRuntimeParam* runtime = record_get_runtime_parameters_1_0();
  RuntimeLock lock(gRuntimeMutex);
  if (gStreamIn == nullptr) {  // else the runtime is already that of a stream opened meanwhile
    if (is_bcap_algo_1_0() && binaural_algorithm_release_1_0(runtime) != 0) {
      BINAURAL_LOG(ERROR) << __func__ << " enter: binaural_algorithm_release_1_0 fail---";
    }
    ClearRuntimeExceptSettings(runtime);
  }
  BINAURAL_LOG(INFO) << __func__ << " out";
}

void binaural_reap_streams() noexcept {
  while (LiveStream* live = vendor::corva::binaural_record::BeginCloseOfFailedOpen()) {
    auto& port = live->in.bluetooth_input_;
    port.AbortStart();
    {
      RuntimeLock lock(gRuntimeMutex);
      BinauralStreamIn* expected = &live->in;
      if (gStreamIn.compare_exchange_strong(expected, nullptr)) {
        // A failed sizing has left the ring buffers, and no close will come for them.
        binaural_algorithm_release_1_0(record_get_runtime_parameters_1_0());
        ClearRuntimeExceptSettings(record_get_runtime_parameters_1_0());
      }
    }
    const BinauralStreamState state = port.GetState();
    if (state == BinauralStreamState::STARTING || state == BinauralStreamState::STARTED) {
      port.Stop();
    }
    port.TearDown();
    EmptyAndKeep(__func__, live);
  }
  vendor::corva::binaural_record::FreeClosedStreams();
}

size_t binaural_stream_input_buffer_size(const audio_hw_device*,
                                         const audio_config* config) noexcept {
  if (config == nullptr) {
    BINAURAL_LOG(ERROR) << __func__ << " enter: param error---";
    return 0;
  }
  const uint32_t frames =
      static_cast<uint32_t>(uint64_t{kBinauralInDefaultBufferMs} * config->sample_rate) / 1000;
  return size_t{frames} * audio_channel_count_from_in_mask(config->channel_mask) *
         audio_bytes_per_sample(config->format);
}

int binaural_open_output_stream(audio_hw_device*, audio_io_handle_t, audio_devices_t,
                                audio_output_flags_t, audio_config*, audio_stream_out**,
                                const char*) noexcept {
  return -EINVAL;
}

void binaural_close_output_stream(audio_hw_device*, audio_stream_out*) noexcept {}
