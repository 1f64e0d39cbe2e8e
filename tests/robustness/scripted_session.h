// A Bluetooth audio session that lies in the test program, in place of the session library's: what
// each call of the module gets is decided inside the call. It has no thread and no pace of its own,
// and in its default behaviour it neither allocates nor locks while PCM is read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "bluetooth_audio_extend_session.h"

namespace scripted_session {

using namespace vendor::corva::bluetooth_audio_extend;

// To be changed only while no other thread is inside the module.
struct Behaviour {
  bool present = true;
  bool ready = true;
  PcmParameters parameters{SampleRate::RATE_48000, ChannelMode::STEREO, BitsPerSample::BITS_16};
  // Called inside the call of that name; empty: as a session that works.
  std::function<void()> on_unregister;  // before the session forgets the callables
  std::function<bool()> on_start;       // empty: SUCCESS before the call returns
  std::function<void()> on_stop;
  std::function<size_t(void* buffer, size_t bytes)> on_read;  // empty: fills the buffer
  std::function<bool(uint64_t* delay_ns, uint64_t* total_bytes, timespec* position)> on_position;
};

// The one in force. Reset puts it back to the default and forgets every registration.
Behaviour& Current();
void Reset();

// What a registration leaves behind; usable after its port is gone, as a session may.
struct Registration {
  PortStatusCallbacks callbacks;
  uint16_t cookie = 0;
};
// The registration made last, null after Reset. It stays when it is unregistered.
std::shared_ptr<const Registration> LastRegistration();
// Calls a registration's control_result_cb with its own cookie; nothing without one.
void Answer(const std::shared_ptr<const Registration>& registration, Status status);

}  // namespace scripted_session
