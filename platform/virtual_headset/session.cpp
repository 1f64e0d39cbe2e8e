// The session library's interface, answered by the virtual headset. Out of memory is answered like
// any other failure of the session.
#include <cinttypes>
#include <cstdio>
#include <new>

#include "platform/virtual_headset/headset.h"

namespace vendor::corva::hardware::bluetooth_audio_extend::V2_1 {
namespace {

std::string Hexadecimal(uint32_t value) {
  char text[16];
  snprintf(text, sizeof(text), "0x%" PRIx32, value);
  return text;
}

}  // namespace

#define NAME(type, name)                                                                           \
  case type::name:                                                                                 \
    return #name;

std::string toString(SessionType type) {
  switch (type) {
    NAME(SessionType, UNKNOWN)
    NAME(SessionType, BINAURAL_RECORD_SOFTWARE_ENCODING_DATAPATH)
  }
  return Hexadecimal(static_cast<uint32_t>(type));
}

std::string toString(Status status) {
  switch (status) {
    NAME(Status, SUCCESS)
    NAME(Status, UNSUPPORTED_CODEC_CONFIGURATION)
    NAME(Status, FAILURE)
    NAME(Status, SINK_NOT_READY)
    NAME(Status, CALL_IN_PROGRESS)
    NAME(Status, SW_ERROR)
    NAME(Status, LW_ERROR)
    NAME(Status, FAILURE_DISC_IN_PROGRESS)
    NAME(Status, FAILURE_NO_WAIT)
  }
  return Hexadecimal(static_cast<uint32_t>(status));
}

std::string toString(SampleRate rate) {
  switch (rate) {
    NAME(SampleRate, RATE_UNKNOWN)
    NAME(SampleRate, RATE_44100)
    NAME(SampleRate, RATE_48000)
    NAME(SampleRate, RATE_88200)
    NAME(SampleRate, RATE_96000)
    NAME(SampleRate, RATE_176400)
    NAME(SampleRate, RATE_192000)
    NAME(SampleRate, RATE_16000)
    NAME(SampleRate, RATE_24000)
    NAME(SampleRate, RATE_32000)
    NAME(SampleRate, RATE_24000_2)
    NAME(SampleRate, RATE_8000)
  }
  return Hexadecimal(static_cast<uint32_t>(rate));
}

std::string toString(ChannelMode mode) {
  switch (mode) {
    NAME(ChannelMode, UNKNOWN)
    NAME(ChannelMode, MONO)
    NAME(ChannelMode, STEREO)
  }
  return Hexadecimal(static_cast<uint32_t>(mode));
}

std::string toString(BitsPerSample bits) {
  switch (bits) {
    NAME(BitsPerSample, BITS_UNKNOWN)
    NAME(BitsPerSample, BITS_16)
    NAME(BitsPerSample, BITS_24)
    NAME(BitsPerSample, BITS_32)
  }
  return Hexadecimal(static_cast<uint32_t>(bits));
}

#undef NAME

std::string toString(const PcmParameters& parameters) {
  return "{.sampleRate = " + toString(parameters.sampleRate) +
         ", .channelMode = " + toString(parameters.channelMode) +
         ", .bitsPerSample = " + toString(parameters.bitsPerSample) + "}";
}

}  // namespace vendor::corva::hardware::bluetooth_audio_extend::V2_1

namespace vendor::corva::bluetooth_audio_extend {
namespace {

using virtual_headset::Headset;
using virtual_headset::Session;

// Every session is one of the headset's.
Session& Own(BluetoothAudioSession* session) {
  return *static_cast<Session*>(session);
}

template <typename R, typename Work>
R OnFailure(R failure, Work work) noexcept {
  try {
    return work(Headset::Get());
  } catch (...) {
    return failure;
  }
}

}  // namespace

const PcmParameters BluetoothAudioSession::invalidSoftwareAudioConfiguration{
    SampleRate::RATE_UNKNOWN, ChannelMode::UNKNOWN, BitsPerSample::BITS_UNKNOWN};

bool BluetoothAudioSession::IsSessionReady() {
  return OnFailure(false, [this](Headset& headset) { return headset.IsReady(Own(this)); });
}

uint16_t BluetoothAudioSession::RegisterStatusCback(const PortStatusCallbacks& callbacks) {
  return OnFailure(uint16_t{0},
                   [&](Headset& headset) { return headset.Register(Own(this), callbacks); });
}

void BluetoothAudioSession::UnregisterStatusCback(uint16_t cookie) {
  OnFailure(false, [&](Headset& headset) {
    headset.Unregister(Own(this), cookie);
    return true;
  });
}

bool BluetoothAudioSession::StartStream() {
  return OnFailure(false, [this](Headset& headset) { return headset.Start(Own(this)); });
}

bool BluetoothAudioSession::StopStream() {
  return OnFailure(false, [this](Headset& headset) { return headset.Stop(Own(this)); });
}

PcmParameters BluetoothAudioSession::GetAudioConfig() {
  return OnFailure(invalidSoftwareAudioConfiguration,
                   [this](Headset& headset) { return headset.GetParameters(Own(this)); });
}

size_t BluetoothAudioSession::InReadPcmData(void* buffer, size_t bytes) {
  return OnFailure(size_t{0},
                   [&](Headset& headset) { return headset.Read(Own(this), buffer, bytes); });
}

bool BluetoothAudioSession::GetPresentationPosition(uint64_t* delay_report_ns,
                                                    uint64_t* total_bytes,
                                                    timespec* data_position) {
  return OnFailure(false, [&](Headset& headset) {
    return headset.GetPosition(Own(this), delay_report_ns, total_bytes, data_position);
  });
}

void BluetoothAudioSession::UpdateTracksMetadata(const source_metadata* metadata) {
  OnFailure(false, [&](Headset& headset) {
    headset.UpdateTracks(Own(this), metadata->track_count);
    return true;
  });
}

std::shared_ptr<BluetoothAudioSession>
BluetoothAudioSessionInstance::GetSessionInstance(const SessionType& type) {
  return OnFailure(std::shared_ptr<BluetoothAudioSession>(), [&](Headset& headset) {
    return type == SessionType::BINAURAL_RECORD_SOFTWARE_ENCODING_DATAPATH
               ? std::shared_ptr<BluetoothAudioSession>(headset.Current())
               : nullptr;
  });
}

}  // namespace vendor::corva::bluetooth_audio_extend
