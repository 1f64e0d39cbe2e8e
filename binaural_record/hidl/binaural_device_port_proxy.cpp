// The Bluetooth capture port. Stream operations run on the audio service's threads, the two handlers
// on the session library's. The session is looked up anew for every call: it may be replaced.
#define LOG_TAG "BinauralRecordAudioHalDeviceProxy"

#include "binaural_record/hidl/binaural_device_port_proxy.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <new>
#include <ostream>

#include "audio_utils/primitives.h"
#include "binaural_record/hidl/binaural_defaults.h"
#include "binaural_record/utils/log.h"

namespace vendor::corva::bluetooth_audio_extend {
namespace {

// Deliberate: a refused start ends after this time and not at the refusal; the framework's retries
// are paced by it.
constexpr std::chrono::milliseconds kStartTimeout{4500};
constexpr useconds_t kSessionSettleUs = 100;
constexpr size_t kStereoFrameBytes = 2 * sizeof(int16_t);

std::atomic<uint32_t> gStartRequests{0};  // of all ports: the session has one stream

// `digits` hexadecimal digits at least.
struct Hex {
  unsigned value;
  int digits;
};

std::ostream& operator<<(std::ostream& out, const Hex& hex) {
  char text[16];
  snprintf(text, sizeof(text), "%0*x", hex.digits, hex.value);
  return out << text;
}

// The session library's text for a value. It allocates: without memory the log line is lost, and
// the operation goes on.
template <typename T>
struct Named {
  const T& value;
};
template <typename T>
Named(const T&) -> Named<T>;

template <typename T>
std::ostream& operator<<(std::ostream& out, const Named<T>& named) {
  try {
    return out << toString(named.value);
  } catch (const std::bad_alloc&) {
    out.setstate(std::ios_base::badbit);
    return out;
  }
}

// How most lines name the session: session_type=<type>, cookie=0x<cookie>
struct Identity {
  SessionType type;
  uint16_t cookie;
};

std::ostream& operator<<(std::ostream& out, const Identity& identity) {
  return out << "session_type=" << Named{identity.type} << ", cookie=0x" << Hex{identity.cookie, 4};
}

std::shared_ptr<BluetoothAudioSession> SessionOf(SessionType type) {
  return BluetoothAudioSessionInstance::GetSessionInstance(type);
}

// Deliberate: 32000, 24000_2 and 8000 Hz have names but no entry, and count as the default.
uint32_t SampleRateHz(SampleRate rate) {
  switch (rate) {
    case SampleRate::RATE_44100:
      return 44100;
    case SampleRate::RATE_48000:
      return 48000;
    case SampleRate::RATE_88200:
      return 88200;
    case SampleRate::RATE_96000:
      return 96000;
    case SampleRate::RATE_176400:
      return 176400;
    case SampleRate::RATE_192000:
      return 192000;
    case SampleRate::RATE_16000:
      return 16000;
    case SampleRate::RATE_24000:
      return 24000;
    default:
      return kBinauralInDefaultSampleRate;
  }
}

uint32_t ChannelMaskOf(ChannelMode mode) {
  return mode == ChannelMode::MONO ? AUDIO_CHANNEL_IN_MONO : AUDIO_CHANNEL_IN_STEREO;
}

audio_format_t FormatOf(BitsPerSample bits) {
  switch (bits) {
    case BitsPerSample::BITS_24:
      return AUDIO_FORMAT_PCM_24_BIT_PACKED;
    case BitsPerSample::BITS_32:
      return AUDIO_FORMAT_PCM_32_BIT;
    default:
      return AUDIO_FORMAT_PCM_16_BIT;
  }
}

}  // namespace

std::ostream& operator<<(std::ostream& out, BinauralStreamState state) {
  switch (state) {
    case BinauralStreamState::DISABLED:
      return out << "DISABLED";
    case BinauralStreamState::STANDBY:
      return out << "STANDBY";
    case BinauralStreamState::STARTING:
      return out << "STARTING";
    case BinauralStreamState::STARTED:
      return out << "STARTED";
    case BinauralStreamState::SUSPENDING:
      return out << "SUSPENDING";
    case BinauralStreamState::UNKNOWN:
      return out << "UNKNOWN";
  }
  return out << "0x" << Hex{static_cast<uint8_t>(state), 1};
}

struct BluetoothAudioPortIn::CallbackGate {
  explicit CallbackGate(BluetoothAudioPortIn* owner) : port(owner) {}

  // Runs `handler` on the port, unless it is gone or not set up.
  template <typename Handler>
  void Enter(Handler handler) {
    std::lock_guard<std::mutex> lock(mutex);
    if (port == nullptr || !port->in_use()) {
      // Deliberate: no function name.
      BINAURAL_LOG(ERROR) << ": BluetoothAudioPortIn is not in use";
      return;
    }
    handler(*port);
  }

  // The same for a callback meant for one registration.
  template <typename Handler>
  void Enter(const char* callback, uint16_t cookie, Handler handler) {
    Enter([&](BluetoothAudioPortIn& entered) {
      if (cookie != entered.cookie_) {
        BINAURAL_LOG(ERROR) << callback << ": proxy of device port (cookie=0x" << Hex{cookie, 4}
                            << ") is corrupted";
        return;
      }
      handler(entered);
    });
  }

  std::mutex mutex;
  BluetoothAudioPortIn* port;  // null once the port is torn down
};

BluetoothAudioPortIn::BluetoothAudioPortIn()
    : state_(BinauralStreamState::DISABLED), session_type_(SessionType::UNKNOWN), cookie_(0),
      total_bytes_read_(0), last_read_time_{}, mono_(false) {}

BluetoothAudioPortIn::~BluetoothAudioPortIn() {
  CloseGate();
}

bool BluetoothAudioPortIn::SetUp(audio_devices_t devices) {
  if (!init_session_type(devices)) {
    return false;
  }
  {
    std::lock_guard<std::mutex> lock(cv_mutex_);
    state_ = BinauralStreamState::STANDBY;
    aborted_ = false;
  }
  uint16_t cookie = 0;
  try {
    if (gate_ == nullptr) {
      gate_ = std::make_shared<CallbackGate>(this);
    }
    const PortStatusCallbacks callbacks{
        [gate = gate_](uint16_t given, bool /*start_resp*/, const Status& status) {
          gate->Enter("control_result_cb", given,
                      [&](BluetoothAudioPortIn& port) { port.ControlResultHandler(status); });
        },
        [gate = gate_](uint16_t given) {
          gate->Enter("session_changed_cb", given,
                      [](BluetoothAudioPortIn& port) { port.SessionChangedHandler(); });
        },
        // Deliberate: the cookie is not compared.
        [gate = gate_](uint16_t, const SessionParams&) {
          gate->Enter([](BluetoothAudioPortIn&) {});
        },
    };
    if (const auto session = SessionOf(session_type_)) {
      cookie = session->RegisterStatusCback(callbacks);
    }
  } catch (const std::bad_alloc&) {
    cookie = 0;
  }
  cookie_ = cookie;
  BINAURAL_LOG(INFO) << __func__ << ": " << Identity{session_type_, cookie_};
  return in_use();
}

bool BluetoothAudioPortIn::init_session_type(audio_devices_t devices) {
  // Deliberate: in each line function name and text run together.
  if (devices != AUDIO_DEVICE_IN_PROXY) {
    BINAURAL_LOG(ERROR) << __func__ << "unknown device=0x" << Hex{devices, 8};
    return false;
  }
  BINAURAL_LOG(VERBOSE) << __func__ << "device=AUDIO_DEVICE_IN_PROXY (0x" << Hex{devices, 8} << ")";
  session_type_ = SessionType::BINAURAL_RECORD_SOFTWARE_ENCODING_DATAPATH;
  usleep(kSessionSettleUs);
  const auto session = SessionOf(session_type_);
  if (session != nullptr && session->IsSessionReady()) {
    return true;
  }
  BINAURAL_LOG(ERROR) << __func__ << "device=0x" << Hex{devices, 8}
                      << ", session_type=" << Named{session_type_} << " is not ready";
  return false;  // Deliberate: session_type_ keeps the new value
}

void BluetoothAudioPortIn::TearDown() {
  if (!in_use()) {
    BINAURAL_LOG(ERROR) << __func__ << ": " << Identity{session_type_, cookie_}
                        << " unknown monitor";
    return;
  }
  BINAURAL_LOG(INFO) << __func__ << ": " << Identity{session_type_, cookie_};
  // Without the gate: the session may wait for a callback in progress, or call back from in here.
  if (const auto session = SessionOf(session_type_)) {
    session->UnregisterStatusCback(cookie_);
  }
  CloseGate();
  cookie_ = 0;
}

void BluetoothAudioPortIn::CloseGate() {
  if (gate_ == nullptr) {
    return;
  }
  {
    std::lock_guard<std::mutex> lock(gate_->mutex);
    gate_->port = nullptr;
  }
  gate_.reset();
}

bool BluetoothAudioPortIn::in_use() const {
  return cookie_ != 0;
}

void BluetoothAudioPortIn::ControlResultHandler(const Status& status) {
  if (!in_use()) {
    BINAURAL_LOG(ERROR) << __func__ << ": BluetoothAudioPortIn is not in use";
    return;
  }
  {
    std::lock_guard<std::mutex> lock(cv_mutex_);
    const BinauralStreamState previous = state_;
    BINAURAL_LOG(INFO) << "control_result_cb: " << Identity{session_type_, cookie_}
                       << ", previous_state=" << previous << ", status=" << Named{status};
    if (previous != BinauralStreamState::STARTING) {
      BINAURAL_LOG(ERROR) << "control_result_cb: unexpected status=" << Named{status} << " for "
                          << Identity{session_type_, cookie_} << ", previous_state=" << previous;
      return;
    }
    // Deliberate: no failure moves the state out of STARTING; the waiting start runs into its timeout.
    if (status == Status::SUCCESS) {
      state_ = BinauralStreamState::STARTED;
    } else if (status == Status::SINK_NOT_READY) {
      BINAURAL_LOG(ERROR) << "control_result_cb: status=" << Named{status} << " failure for "
                          << Identity{session_type_, cookie_} << ", previous_state=" << previous;
    }
  }
  state_cv_.notify_all();
}

void BluetoothAudioPortIn::SessionChangedHandler() {
  if (!in_use()) {
    BINAURAL_LOG(ERROR) << __func__ << ": BluetoothAudioPortIn is not in use";
    return;
  }
  {
    std::lock_guard<std::mutex> lock(cv_mutex_);
    BINAURAL_LOG(INFO) << "session_changed_cb: " << Identity{session_type_, cookie_}
                       << ", previous_state=" << state_;
    state_ = BinauralStreamState::DISABLED;
  }
  state_cv_.notify_all();
}

bool BluetoothAudioPortIn::CondwaitState(BinauralStreamState state) {
  std::unique_lock<std::mutex> lock(cv_mutex_);
  if (state != BinauralStreamState::STARTING) {
    BINAURAL_LOG(WARNING) << __func__ << ": " << Identity{session_type_, cookie_}
                          << " waiting for KNOWN";
    return false;
  }
  BINAURAL_LOG(VERBOSE) << __func__ << ": " << Identity{session_type_, cookie_}
                        << " waiting for STARTED";
  // Deliberate: a session change, which leaves DISABLED, does not end the wait.
  state_cv_.wait_until(lock, std::chrono::steady_clock::now() + kStartTimeout,
                       [this] { return state_ == BinauralStreamState::STARTED || aborted_; });
  return state_ == BinauralStreamState::STARTED && !aborted_;
}

bool BluetoothAudioPortIn::Start() {
  if (!in_use()) {
    BINAURAL_LOG(ERROR) << __func__ << ": BluetoothAudioPortIn is not in use";
    return false;
  }
  BINAURAL_LOG(INFO) << __func__ << ": " << Identity{session_type_, cookie_} << ", state=" << state_
                     << ", mono=" << (mono_ ? "true" : "false") << " request";
  bool aborted;
  {
    std::lock_guard<std::mutex> lock(cv_mutex_);
    aborted = aborted_;
    if (!aborted) {
      state_ = BinauralStreamState::STARTING;
    }
  }
  if (!aborted) {
    const uint32_t request = ++gStartRequests;
    const auto session = SessionOf(session_type_);
    if (session == nullptr || !session->StartStream()) {
      BINAURAL_LOG(ERROR) << __func__ << ": " << Identity{session_type_, cookie_}
                          << ", state=" << state_ << " Hal fails";
    } else if (CondwaitState(BinauralStreamState::STARTING)) {
      BINAURAL_LOG(INFO) << __func__ << ": " << Identity{session_type_, cookie_}
                         << ", state=" << state_ << ", mono=" << (mono_ ? "true" : "false")
                         << " done";
      return true;
    } else {
      TakeBackAbortedStart(request);
    }
  }
  BINAURAL_LOG(ERROR) << __func__ << ": " << Identity{session_type_, cookie_}
                      << ", state=" << state_ << " failure";
  return false;
}

void BluetoothAudioPortIn::AbortStart() {
  {
    std::lock_guard<std::mutex> lock(cv_mutex_);
    aborted_ = true;
  }
  state_cv_.notify_all();
}

void BluetoothAudioPortIn::TakeBackAbortedStart(uint32_t request) {
  // After a newer request the stream is that one's, as when StartStream answered long after the close.
  if (!aborted_ || request != gStartRequests) {
    return;
  }
  // The owner's Stop may have come before our StartStream, and would not come again.
  if (const auto session = SessionOf(session_type_)) {
    session->StopStream();
  }
}

void BluetoothAudioPortIn::Stop() {
  if (!in_use()) {
    BINAURAL_LOG(ERROR) << __func__ << ": BluetoothAudioPortIn is not in use";
    return;
  }
  const BinauralStreamState previous = state_;
  if (previous == BinauralStreamState::DISABLED) {
    BINAURAL_LOG(INFO) << __func__ << ": BluetoothAudioPortIn is already disabled";
    return;
  }
  BINAURAL_LOG(INFO) << __func__ << ": " << Identity{session_type_, cookie_}
                     << ", state=" << previous << " request";
  if (previous == BinauralStreamState::STARTING || previous == BinauralStreamState::STARTED) {
    BINAURAL_LOG(INFO) << __func__ << ": BluetoothAudioPortIn calling StopStream";
    if (const auto session = SessionOf(session_type_)) {
      session->StopStream();
    }
  }
  // Deliberate: not STANDBY, although the callbacks stay registered.
  SetState(BinauralStreamState::DISABLED);
  BINAURAL_LOG(INFO) << __func__ << ": " << Identity{session_type_, cookie_} << ", state=" << state_
                     << " done";
  ResetPresentationData();
}

void BluetoothAudioPortIn::SetState(BinauralStreamState state) {
  // For the store only: a result handler between its test and its store would undo ours.
  std::lock_guard<std::mutex> lock(cv_mutex_);
  state_ = state;
}

BinauralStreamState BluetoothAudioPortIn::GetState() const {
  return state_;
}

bool BluetoothAudioPortIn::LoadAudioConfig(audio_config* config) const {
  audio_config ignored;
  config = config == nullptr ? &ignored : config;
  if (!in_use()) {
    BINAURAL_LOG(ERROR) << __func__ << ": BluetoothAudioPortIn is not in use";
    config->sample_rate = kBinauralInDefaultSampleRate;
    config->channel_mask = kBinauralInDefaultChannelModeMask;
    config->format = static_cast<audio_format_t>(kBinauralInDefaultAudioFormatBitsPerSample);
    return false;
  }
  const auto session = SessionOf(session_type_);
  const PcmParameters pcm = session != nullptr
                                ? session->GetAudioConfig()
                                : BluetoothAudioSession::invalidSoftwareAudioConfiguration;
  BINAURAL_LOG(VERBOSE) << __func__ << ": " << Identity{session_type_, cookie_}
                        << ", state=" << state_ << ", PcmConfig=[" << Named{pcm} << "]";
  // Deliberate: nothing is written here, unlike above.
  if (pcm.sampleRate == SampleRate::RATE_UNKNOWN || pcm.channelMode == ChannelMode::UNKNOWN ||
      pcm.bitsPerSample == BitsPerSample::BITS_UNKNOWN) {
    return false;
  }
  config->sample_rate = SampleRateHz(pcm.sampleRate);
  config->channel_mask = mono_ ? AUDIO_CHANNEL_IN_STEREO : ChannelMaskOf(pcm.channelMode);
  config->format = FormatOf(pcm.bitsPerSample);
  return true;
}

// Deliberate: whatever the state; whether the port is STARTED is for the stream to look at.
size_t BluetoothAudioPortIn::ReadData(void* buffer, size_t bytes) const {
  if (!in_use() || aborted_ || buffer == nullptr) {
    return 0;
  }
  if (mono_) {
    return ReadDataMono(buffer, bytes);
  }
  const auto session = SessionOf(session_type_);
  const size_t read = session != nullptr ? session->InReadPcmData(buffer, bytes) : 0;
  if (aborted_) {
    return 0;  // The stream was closed meanwhile; its sound must not reach the algorithm of the next one.
  }
  // A session that claims more than it was asked for must not push the counter ahead of the PCM.
  UpdatePresentationData(std::min(read, bytes));
  return read;
}

// Deliberate: what the session delivers stays in the temporary, the caller's buffer is only read, and
// counter and time stand still.
size_t BluetoothAudioPortIn::ReadDataMono(const void* buffer, size_t bytes) const {
  const size_t frames = bytes / kStereoFrameBytes;
  if (frames == 0) {
    BINAURAL_LOG(ERROR) << "ReadData enter, read_frames error-----";
    return 0;
  }
  // Holds the stereo frames, which may lie unaligned in the caller's buffer, then their downmix.
  const std::unique_ptr<int16_t[]> samples(new (std::nothrow) int16_t[2 * frames]);
  if (samples == nullptr) {
    return 0;
  }
  memcpy(samples.get(), buffer, frames * kStereoFrameBytes);
  downmix_to_mono_i16_from_stereo_i16(samples.get(), samples.get(), frames);
  const auto session = SessionOf(session_type_);
  return session != nullptr ? session->InReadPcmData(samples.get(), frames * sizeof(int16_t)) * 2
                            : 0;
}

size_t BluetoothAudioPortIn::UpdatePresentationData(size_t bytes) const {
  std::lock_guard<std::mutex> lock(cv_mutex_);
  total_bytes_read_ += bytes;
  clock_gettime(CLOCK_MONOTONIC, &last_read_time_);
  return bytes;
}

void BluetoothAudioPortIn::ResetPresentationData() {
  std::lock_guard<std::mutex> lock(cv_mutex_);
  total_bytes_read_ = 0;
}

// Deliberate: the session's answer, whether the port is in use or not.
bool BluetoothAudioPortIn::GetPresentationPosition(uint64_t* delay_report, uint64_t* total_bytes,
                                                   timespec* data_position) const {
  const auto session = SessionOf(session_type_);
  return session != nullptr &&
         session->GetPresentationPosition(delay_report, total_bytes, data_position);
}

void BluetoothAudioPortIn::UpdateMetadata(const source_metadata* source_metadata) const {
  if (!in_use()) {
    BINAURAL_LOG(ERROR) << __func__ << ": BluetoothAudioPortIn is not in use";
    return;
  }
  const size_t track_count = source_metadata == nullptr ? 0 : source_metadata->track_count;
  BINAURAL_LOG(DEBUG) << __func__ << ": " << Identity{session_type_, cookie_}
                      << ", state=" << state_ << ", " << track_count << " track(s)";
  if (track_count == 0) {
    return;
  }
  if (const auto session = SessionOf(session_type_)) {
    session->UpdateTracksMetadata(source_metadata);
  }
}

}  // namespace vendor::corva::bluetooth_audio_extend
