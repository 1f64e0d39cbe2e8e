// The capture stream's proxy of one Bluetooth audio session: registration, the start handshake with
// its state, PCM, position.
//
// Who calls it: the capture stream, which owns one port by value, on the audio service's threads; the
// session library, through the registered callables, on its own threads or from inside our calls to
// it. Nothing here throws. No lock of the port is held while the session is called.
//
// Order of calls: SetUp, LoadAudioConfig, any number of Start / ReadData / Stop, then at close
// AbortStart, Stop, TearDown. "In use" is the time from a SetUp that returned true to TearDown.
//
// Locks: the gate (one per set-up, shared with the registered callables) then `cv_mutex_`; both are
// leaves.
#ifndef BINAURAL_RECORD_HIDL_BINAURAL_DEVICE_PORT_PROXY_H_
#define BINAURAL_RECORD_HIDL_BINAURAL_DEVICE_PORT_PROXY_H_

#include <time.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <mutex>

#include "bluetooth_audio_extend_session.h"
#include "hardware/audio.h"

namespace vendor::corva::bluetooth_audio_extend {

enum class BinauralStreamState : uint8_t {
  DISABLED = 0,    // no stream; also after a session change or a stop
  STANDBY = 1,     // callbacks registered, stream not started
  STARTING = 2,    // start requested, waiting for the session's answer
  STARTED = 3,     // answered with SUCCESS; PCM may be read
  SUSPENDING = 4,  // never entered by the port
  UNKNOWN = 5,     // never entered by the port
};
static_assert(sizeof(BinauralStreamState) == 1, "callers pass the state as one byte");

// Writes the name; a value of 6 or more as "0x" and lower-case hexadecimal digits.
__attribute__((visibility("default"))) std::ostream& operator<<(std::ostream& out,
                                                                BinauralStreamState state);

class __attribute__((visibility("default"))) BluetoothAudioPortIn {
 public:
  BluetoothAudioPortIn();
  // Callbacks that still come afterwards find the port gone.
  ~BluetoothAudioPortIn();
  BluetoothAudioPortIn(const BluetoothAudioPortIn&) = delete;
  BluetoothAudioPortIn& operator=(const BluetoothAudioPortIn&) = delete;

  // Maps the device to a session type and registers the callbacks. True when the session gave a
  // cookie. Only AUDIO_DEVICE_IN_PROXY has a session.
  bool SetUp(audio_devices_t devices);
  bool init_session_type(audio_devices_t devices);
  // Unregisters, waits for callbacks in progress and clears the cookie. The state stays.
  void TearDown();
  bool in_use() const;

  // Requests the stream and waits up to 4500 ms for the session's SUCCESS, whatever other status
  // comes first. False when it did not come, the session refused, or AbortStart was called.
  bool Start();
  // Stops the stream if it is starting or started; then the state is DISABLED and the byte counter 0.
  void Stop();
  // For the owner's close, before its Stop: a Start in progress or to come returns false at once and
  // takes back what it requested, unless another port has started since; a read to come returns 0: Stop
  // does not release a read from a session that was never started. Lasts until the next SetUp.
  void AbortStart();

  // Start's wait, for STARTING only: true once the state is STARTED. False at once for another state.
  bool CondwaitState(BinauralStreamState state);
  // The registered callables after their checks.
  void ControlResultHandler(const Status& status);
  void SessionChangedHandler();
  void SetState(BinauralStreamState state);
  BinauralStreamState GetState() const;

  // Fills sample rate, channel mask and format from the session. False with the defaults filled in
  // when not in use; false with nothing written when the session does not know one of the three.
  bool LoadAudioConfig(audio_config* config) const;
  // Reads up to `bytes` bytes of PCM into `buffer` and returns what the session says it copied,
  // which may be more than was asked for; 0 on every failure. Blocks as long as the session does.
  size_t ReadData(void* buffer, size_t bytes) const;
  // Counts `bytes` as delivered now; returns them.
  size_t UpdatePresentationData(size_t bytes) const;
  void ResetPresentationData();
  // The session's position: remote delay in ns, bytes in all, CLOCK_MONOTONIC time of the last.
  bool GetPresentationPosition(uint64_t* delay_report, uint64_t* total_bytes,
                               timespec* data_position) const;
  void UpdateMetadata(const source_metadata* source_metadata) const;

 private:
  // What the registered callables hold: they lock it for the length of a handler, and it outlives
  // the port for as long as the session keeps a copy of them.
  struct CallbackGate;

  // Waits for a callback in progress; later ones find the port gone.
  void CloseGate();
  void TakeBackAbortedStart(uint32_t request);
  size_t ReadDataMono(const void* buffer, size_t bytes) const;

  std::atomic<BinauralStreamState> state_;  // stored under cv_mutex_
  SessionType session_type_;                // written by SetUp only
  std::atomic<uint16_t> cookie_;            // 0: not in use
  mutable std::mutex cv_mutex_;  // guards the two counters and stores of state_ and aborted_
  mutable std::condition_variable state_cv_;
  mutable uint64_t total_bytes_read_;  // since the last stop
  mutable timespec last_read_time_;    // CLOCK_MONOTONIC, of the last counted read
  bool mono_;                          // Deliberate: nothing sets it, both behaviours are kept

  std::shared_ptr<CallbackGate> gate_;  // made by SetUp, dropped by TearDown
  std::atomic<bool> aborted_{false};    // no Start begins or waits on, no read begins or delivers
};

}  // namespace vendor::corva::bluetooth_audio_extend

#endif  // BINAURAL_RECORD_HIDL_BINAURAL_DEVICE_PORT_PROXY_H_
