// The Bluetooth audio session library's interface as this module uses it: package
// vendor.corva.hardware.bluetooth_audio_extend@2.1, library libbluetooth_audio_extend_session_corva.so.
//
// Our own declarations; in a device tree the maker's header takes their place. On a development
// machine platform/virtual_headset implements them.
//
// Threads: every function may be called from any thread. The callables of PortStatusCallbacks are
// called on a thread of the library, or from inside one of the calls below; hold no lock over a call
// that a callable needs.
#ifndef BLUETOOTH_AUDIO_EXTEND_SESSION_H_
#define BLUETOOTH_AUDIO_EXTEND_SESSION_H_

#include <time.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "hardware/audio.h"

namespace vendor::corva::hardware::bluetooth_audio_extend::V2_1 {

enum class SessionType : uint8_t {
  UNKNOWN = 0,
  BINAURAL_RECORD_SOFTWARE_ENCODING_DATAPATH = 1,
};

// Outcome of a start request.
enum class Status : uint8_t {
  SUCCESS = 0,
  UNSUPPORTED_CODEC_CONFIGURATION = 1,
  FAILURE = 2,
  SINK_NOT_READY = 3,
  CALL_IN_PROGRESS = 4,
  SW_ERROR = 5,
  LW_ERROR = 6,
  FAILURE_DISC_IN_PROGRESS = 7,
  FAILURE_NO_WAIT = 8,
};

enum class SampleRate : uint32_t {
  RATE_UNKNOWN = 0,
  RATE_44100 = 1,
  RATE_48000 = 2,
  RATE_88200 = 4,
  RATE_96000 = 8,
  RATE_176400 = 16,
  RATE_192000 = 32,
  RATE_16000 = 64,
  RATE_24000 = 96,
  RATE_32000 = 128,
  RATE_24000_2 = 256,
  RATE_8000 = 512,
};

enum class ChannelMode : uint8_t { UNKNOWN = 0, MONO = 1, STEREO = 2 };

enum class BitsPerSample : uint8_t { BITS_UNKNOWN = 0, BITS_16 = 1, BITS_24 = 2, BITS_32 = 4 };

// A field of 0 is unknown.
struct PcmParameters {
  SampleRate sampleRate;
  ChannelMode channelMode;
  BitsPerSample bitsPerSample;
};

// What a session reports as changed. The module takes it and looks at none of it.
struct SessionParams {
  PcmParameters pcmParameters;
};

// An enumerator's name, or "0x" and the value in hexadecimal for a value without a name.
std::string toString(SessionType type);
std::string toString(Status status);
std::string toString(SampleRate rate);
std::string toString(ChannelMode mode);
std::string toString(BitsPerSample bits);
// For example {.sampleRate = RATE_48000, .channelMode = STEREO, .bitsPerSample = BITS_16}
std::string toString(const PcmParameters& parameters);

}  // namespace vendor::corva::hardware::bluetooth_audio_extend::V2_1

namespace vendor::corva::bluetooth_audio_extend {

using hardware::bluetooth_audio_extend::V2_1::BitsPerSample;
using hardware::bluetooth_audio_extend::V2_1::ChannelMode;
using hardware::bluetooth_audio_extend::V2_1::PcmParameters;
using hardware::bluetooth_audio_extend::V2_1::SampleRate;
using hardware::bluetooth_audio_extend::V2_1::SessionParams;
using hardware::bluetooth_audio_extend::V2_1::SessionType;
using hardware::bluetooth_audio_extend::V2_1::Status;
using hardware::bluetooth_audio_extend::V2_1::toString;

// What a session tells a registered port. `cookie` is the one that RegisterStatusCback returned.
struct PortStatusCallbacks {
  // Outcome of StartStream (start_resp true) or of another request.
  std::function<void(uint16_t cookie, bool start_resp, const Status& status)> control_result_cb;
  // The session began, ended or was replaced.
  std::function<void(uint16_t cookie)> session_changed_cb;
  // The session's parameters changed.
  std::function<void(uint16_t cookie, const SessionParams& params)> session_params_cb;
};

class BluetoothAudioSession {
 public:
  // The parameter set of a session that does not exist; every field is unknown.
  static const PcmParameters invalidSoftwareAudioConfiguration;

  // True when the session exists and can serve.
  bool IsSessionReady();

  // Keeps a copy of the callbacks. Returns the cookie that identifies them, 0 on failure.
  uint16_t RegisterStatusCback(const PortStatusCallbacks& callbacks);
  // Removes them: no callback with that cookie follows.
  void UnregisterStatusCback(uint16_t cookie);

  // Asks the remote side to start. True when the request was sent; the outcome comes through
  // control_result_cb, perhaps before this call returns.
  bool StartStream();
  // Asks the remote side to stop; a pending InReadPcmData returns.
  bool StopStream();

  PcmParameters GetAudioConfig();

  // Copies up to `bytes` bytes of captured PCM and returns how many; 0 when there is nothing, or on
  // failure. Blocks until the PCM is there.
  size_t InReadPcmData(void* buffer, size_t bytes);

  // Delay of the remote side in nanoseconds, bytes captured in all, and when the last of them came
  // (CLOCK_MONOTONIC). False when there is no position; the outputs are then unspecified.
  bool GetPresentationPosition(uint64_t* delay_report_ns, uint64_t* total_bytes,
                               timespec* data_position);

  // Passes the recording tracks on to the remote side.
  void UpdateTracksMetadata(const source_metadata* metadata);

 protected:
  // Sessions are made by the library alone and reached through BluetoothAudioSessionInstance.
  BluetoothAudioSession() = default;
  ~BluetoothAudioSession() = default;
};

class BluetoothAudioSessionInstance {
 public:
  // The session of this type, or an empty pointer when there is none. Look it up anew for every
  // call: it may be replaced at any time.
  static std::shared_ptr<BluetoothAudioSession> GetSessionInstance(const SessionType& type);
};

}  // namespace vendor::corva::bluetooth_audio_extend

#endif  // BLUETOOTH_AUDIO_EXTEND_SESSION_H_
