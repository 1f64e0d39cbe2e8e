#include "tests/robustness/scripted_session.h"

#include <time.h>

#include <atomic>
#include <cstring>
#include <mutex>

namespace scripted_session {
namespace {

std::mutex g_mutex;
std::shared_ptr<const Registration> g_last;  // guarded by g_mutex

}  // namespace

Behaviour& Current() {
  static Behaviour behaviour;
  return behaviour;
}

void Reset() {
  Current() = Behaviour();
  std::lock_guard<std::mutex> lock(g_mutex);
  g_last.reset();
}

std::shared_ptr<const Registration> LastRegistration() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_last;
}

void Answer(const std::shared_ptr<const Registration>& registration, Status status) {
  if (registration != nullptr) {
    registration->callbacks.control_result_cb(registration->cookie, true, status);
  }
}

}  // namespace scripted_session

// The interface itself. The texts and the invalid parameter set stay the session library's.
namespace vendor::corva::bluetooth_audio_extend {
namespace {

using namespace scripted_session;

struct OneSession : BluetoothAudioSession {};

}  // namespace

bool BluetoothAudioSession::IsSessionReady() {
  return Current().ready;
}

uint16_t BluetoothAudioSession::RegisterStatusCback(const PortStatusCallbacks& callbacks) {
  static std::atomic<uint16_t> last_cookie{0};
  uint16_t cookie = ++last_cookie;
  cookie = cookie == 0 ? ++last_cookie : cookie;
  std::lock_guard<std::mutex> lock(g_mutex);
  g_last = std::make_shared<const Registration>(Registration{callbacks, cookie});
  return cookie;
}

void BluetoothAudioSession::UnregisterStatusCback(uint16_t) {
  if (Current().on_unregister) {
    Current().on_unregister();
  }
}

bool BluetoothAudioSession::StartStream() {
  if (Current().on_start) {
    return Current().on_start();
  }
  Answer(LastRegistration(), Status::SUCCESS);
  return true;
}

bool BluetoothAudioSession::StopStream() {
  if (Current().on_stop) {
    Current().on_stop();
  }
  return true;
}

PcmParameters BluetoothAudioSession::GetAudioConfig() {
  return Current().parameters;
}

size_t BluetoothAudioSession::InReadPcmData(void* buffer, size_t bytes) {
  if (Current().on_read) {
    return Current().on_read(buffer, bytes);
  }
  memset(buffer, 0x11, bytes);
  return bytes;
}

bool BluetoothAudioSession::GetPresentationPosition(uint64_t* delay_report_ns,
                                                    uint64_t* total_bytes,
                                                    timespec* data_position) {
  if (Current().on_position) {
    return Current().on_position(delay_report_ns, total_bytes, data_position);
  }
  *delay_report_ns = 0;
  *total_bytes = 0;
  clock_gettime(CLOCK_MONOTONIC, data_position);
  return true;
}

void BluetoothAudioSession::UpdateTracksMetadata(const source_metadata*) {}

std::shared_ptr<BluetoothAudioSession>
BluetoothAudioSessionInstance::GetSessionInstance(const SessionType&) {
  static const auto session = std::make_shared<OneSession>();
  return Current().present ? session : nullptr;
}

}  // namespace vendor::corva::bluetooth_audio_extend
