// Start, stop, standby, parameters and capture position of the stream; called by the framework's
// control threads through the stream's slots, and in part by the read path.
#define LOG_TAG "BinauralRecordHalStream"

#include <errno.h>
#include <string.h>
#include <time.h>

#include <ios>
#include <new>
#include <string>

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_runtime.h"
#include "binaural_record/hidl/2ch-record/1.0/binaural_stream_ops.h"
#include "binaural_record/hidl/2ch-record/1.0/live_objects.h"
#include "binaural_record/utils/locks.h"
#include "binaural_record/utils/log.h"
#include "binaural_record/utils/utils.h"

using vendor::corva::binaural_record::StreamGuard;
using vendor::corva::binaural_record::utils::AudioParamMap;
using vendor::corva::binaural_record::utils::GetAudioParamString;
using vendor::corva::binaural_record::utils::gRuntimeMutex;
using vendor::corva::binaural_record::utils::ParseAudioParams;
using vendor::corva::binaural_record::utils::RuntimeLock;
using vendor::corva::binaural_record::utils::StaticLock;
using vendor::corva::bluetooth_audio_extend::BinauralStreamState;

namespace {

constexpr char kRatesKey[] = AUDIO_PARAMETER_STREAM_SUP_SAMPLING_RATES;
constexpr char kChannelsKey[] = AUDIO_PARAMETER_STREAM_SUP_CHANNELS;
constexpr char kFormatsKey[] = AUDIO_PARAMETER_STREAM_SUP_FORMATS;
constexpr char kRoutingKey[] = AUDIO_PARAMETER_STREAM_ROUTING;
constexpr char kSuspendedKey[] = "RecordSuspended";

struct ValueText {
  uint32_t value;
  const char* text;
};

constexpr ValueText kRateTexts[] = {
    {16000, "16000"}, {24000, "24000"}, {44100, "44100"},   {48000, "48000"},
    {88200, "88200"}, {96000, "96000"}, {176400, "176400"}, {192000, "192000"},
};
constexpr ValueText kChannelTexts[] = {
    {AUDIO_CHANNEL_IN_MONO, "AUDIO_CHANNEL_IN_MONO"},
    {AUDIO_CHANNEL_IN_STEREO, "AUDIO_CHANNEL_IN_STEREO"},
};
constexpr ValueText kFormatTexts[] = {
    {AUDIO_FORMAT_PCM_16_BIT, "AUDIO_FORMAT_PCM_16_BIT"},
    {AUDIO_FORMAT_PCM_24_BIT_PACKED, "AUDIO_FORMAT_PCM_24_BIT_PACKED"},
    {AUDIO_FORMAT_PCM_32_BIT, "AUDIO_FORMAT_PCM_32_BIT"},
};

// Empty for a value outside the table.
template <size_t N>
const char* TextOf(const ValueText (&table)[N], uint32_t value) {
  for (const ValueText& row : table) {
    if (row.value == value) {
      return row.text;
    }
  }
  return "";
}

// Widened before it is multiplied: on 32-bit devices tv_sec has 32 bits.
uint64_t Nanoseconds(const timespec& time) {
  return static_cast<uint64_t>(time.tv_sec) * 1000000000u + static_cast<uint64_t>(time.tv_nsec);
}

const char* TextOrEmpty(const char* text) {
  return text == nullptr ? "" : text;
}

void ReloadConfig(const char* function, BinauralStreamIn& in) {
  audio_config config{};
  if (!in.bluetooth_input_.LoadAudioConfig(&config)) {
    BINAURAL_LOG(WARNING) << function << ": state=" << in.bluetooth_input_.GetState()
                          << " failed to get audio config";
    return;
  }
  // Deliberate: frames_count_ stays, so sizes keep to the configuration at open.
  in.sample_rate_ = config.sample_rate;
  in.channel_mask_ = config.channel_mask;
  in.format_ = config.format;
  // Deliberate: the line does not begin with the operation's name.
  BINAURAL_LOG(VERBOSE) << "state=" << in.bluetooth_input_.GetState()
                        << ", sample_rate=" << in.sample_rate_ << ", channels=0x" << std::hex
                        << in.channel_mask_ << std::dec << ", format=" << in.format_;
}

void ApplySuspended(const char* function, BinauralStreamIn& in, const std::string& value) {
  auto& port = in.bluetooth_input_;
  if (value == "true") {
    BINAURAL_LOG(WARNING) << function << ": state=" << port.GetState() << " stream param stopped";
    if (port.GetState() != BinauralStreamState::DISABLED) {
      port.Stop();
      port.SetState(BinauralStreamState::DISABLED);
    }
    return;
  }
  BINAURAL_LOG(WARNING) << function << ": state=" << port.GetState() << " stream param standby";
  if (port.GetState() == BinauralStreamState::DISABLED) {
    port.SetState(BinauralStreamState::STANDBY);
  }
}

// The oldest saved position, removed from the two slots; false when none is saved.
bool TakeSavedPosition(int64_t* frames, int64_t* time) {
  BinauralStreamInRuntimeParam* runtime = record_get_runtime_parameters_1_0();
  RuntimeLock lock(gRuntimeMutex);
  auto& saved = runtime->saved;
  if (!saved[0].used) {
    return false;
  }
  *frames = saved[0].frames;
  *time = saved[0].time;
  saved[0] = saved[1];  // all zero when unused
  saved[1] = {};
  return true;
}

}  // namespace

int in_start(const audio_stream_in*) noexcept {
  // Deliberate: the global stream is started, whatever the argument.
  const StreamGuard in(gStreamIn.load());
  if (!in) {
    // Deliberate: function name and text run together.
    BINAURAL_LOG(ERROR) << __func__ << "gStreamIn == nullptr error---";
    return 0;
  }
  auto& port = in->bluetooth_input_;
  if (port.GetState() == BinauralStreamState::STARTED) {
    BINAURAL_LOG(INFO) << __func__ << ": state=" << port.GetState() << " already in_start";
    return 0;
  }
  const int result = port.Start() ? 0 : -EIO;
  BINAURAL_LOG(INFO) << __func__ << ": state=" << port.GetState()
                     << ", in_start (start) ret=" << result;
  return result;
}

int in_stop(const audio_stream_in*) noexcept {
  // Deliberate: the global stream is stopped, whatever the argument.
  const StreamGuard in(gStreamIn.load());
  if (!in) {
    // Deliberate: function name and text run together.
    BINAURAL_LOG(ERROR) << __func__ << "gStreamIn == nullptr error---";
    return 0;
  }
  auto& port = in->bluetooth_input_;
  if (port.GetState() == BinauralStreamState::DISABLED) {
    BINAURAL_LOG(INFO) << __func__ << ": state=" << port.GetState() << " already in_stop";
    return 0;
  }
  port.Stop();
  if (is_bcap_algo_1_0()) {
    BinauralStreamInRuntimeParam* runtime = record_get_runtime_parameters_1_0();
    RuntimeLock lock(gRuntimeMutex);
    {
      StaticLock pre_lock(gPreBuffMutex);
      RingBuffer_clear(runtime->preBuff);
    }
    StaticLock post_lock(gPostBuffMutex);
    RingBuffer_clear(runtime->postBuff);
  }
  return 0;
}

int in_standby(audio_stream* stream) noexcept {
  const StreamGuard in(stream);
  if (!in) {
    return 0;
  }
  auto& port = in->bluetooth_input_;
  BINAURAL_LOG(INFO) << __func__ << ": state=" << port.GetState() << " being standby (suspend)";
  int result = 0;
  switch (port.GetState()) {
    case BinauralStreamState::STARTED:
      port.Stop();
      break;
    case BinauralStreamState::STARTING:
      BINAURAL_LOG(WARNING) << __func__ << ": state=" << port.GetState()
                            << " NOT ready to be standby";
      result = -EBUSY;
      break;
    default:
      BINAURAL_LOG(DEBUG) << __func__ << ": state=" << port.GetState() << " standby already";
      break;
  }
  BINAURAL_LOG(VERBOSE) << __func__ << ": state=" << port.GetState()
                        << " standby (stop) retval=" << result;
  return result;
}

int in_dump(const audio_stream* stream, int) noexcept {
  if (const StreamGuard in{stream}) {
    BINAURAL_LOG(VERBOSE) << __func__ << ": state=" << in->bluetooth_input_.GetState();
  }
  return 0;
}

int in_set_parameters(audio_stream* stream, const char* kvpairs) noexcept {
  if (gStreamIn.load() == nullptr) {
    BINAURAL_LOG(WARNING) << __func__ << ": input has closed, return";
    return 0;
  }
  const StreamGuard in(stream);
  if (!in) {
    return 0;
  }
  try {
    const char* const text = TextOrEmpty(kvpairs);
    BINAURAL_LOG(VERBOSE) << __func__ << ": state=" << in->bluetooth_input_.GetState()
                          << ", kvpairs=[" << text << "]";
    const AudioParamMap params = ParseAudioParams(text);
    if (params.empty()) {
      return 0;
    }
    BINAURAL_LOG(VERBOSE) << __func__ << ": ParamsMap=[" << GetAudioParamString(params) << "]";
    if (params.count(kRatesKey) != 0 || params.count(kChannelsKey) != 0 ||
        params.count(kFormatsKey) != 0) {
      ReloadConfig(__func__, *in);
    }
    const auto routing = params.find(kRoutingKey);
    if (routing != params.end()) {
      BINAURAL_LOG(INFO) << __func__ << ": state=" << in->bluetooth_input_.GetState()
                         << ", stream param 'routing=" << routing->second << "'";
    }
    const auto suspended = params.find(kSuspendedKey);
    if (suspended != params.end()) {
      ApplySuspended(__func__, *in, suspended->second);
    }
    BINAURAL_LOG(VERBOSE) << __func__ << ": state=" << in->bluetooth_input_.GetState()
                          << ", kvpairs=[" << text << "], retval=0";
  } catch (const std::bad_alloc&) {
    // Parameter calls never fail; what was stored before stays.
  }
  return 0;
}

char* in_get_parameters(const audio_stream* stream, const char* keys) noexcept {
  const StreamGuard in(stream);
  if (!in) {
    return strdup("");
  }
  try {
    BINAURAL_LOG(INFO) << __func__ << ": state=" << in->bluetooth_input_.GetState() << ", keys=["
                       << TextOrEmpty(keys) << "]";
    const AudioParamMap params = ParseAudioParams(TextOrEmpty(keys));
    if (params.empty()) {
      BINAURAL_LOG(ERROR) << __func__ << ": ParseAudioParams fail------";
      return strdup("");
    }
    audio_config config{};
    if (!in->bluetooth_input_.LoadAudioConfig(&config)) {
      BINAURAL_LOG(ERROR) << __func__ << ": state=" << in->bluetooth_input_.GetState()
                          << " failed to get audio config";
    } else {
      BINAURAL_LOG(VERBOSE) << __func__ << ": state=" << in->bluetooth_input_.GetState()
                            << " audio_cfg=" << config;
    }
    AudioParamMap reply;
    if (params.count(kRatesKey) != 0) {
      reply[kRatesKey] = TextOf(kRateTexts, config.sample_rate);
    }
    if (params.count(kChannelsKey) != 0) {
      reply[kChannelsKey] = TextOf(kChannelTexts, config.channel_mask);
    }
    if (params.count(kFormatsKey) != 0) {
      reply[kFormatsKey] = TextOf(kFormatTexts, config.format);
    }
    std::string text;
    for (const auto& [key, value] : reply) {
      text += key + "=" + value + ";";
    }
    BINAURAL_LOG(INFO) << __func__ << ": state=" << in->bluetooth_input_.GetState() << ", result=["
                       << text << "]";
    return strdup(text.c_str());
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

int in_get_capture_position(const audio_stream_in* stream, int64_t* frames,
                            int64_t* time) noexcept {
  const StreamGuard in(stream);
  if (!in) {
    return 0;
  }
  int64_t ignored;
  frames = frames == nullptr ? &ignored : frames;
  time = time == nullptr ? &ignored : time;
  if (TakeSavedPosition(frames, time)) {
    BINAURAL_LOG(INFO) << __func__ << " enter,  runtimeParams->saved[0].used-----";
  } else {
    obtain_bluetooth_capture_position(stream, frames, time);
  }
  return 0;
}

void obtain_bluetooth_capture_position(const audio_stream_in* stream, int64_t* frames,
                                       int64_t* time) noexcept {
  const auto* in = reinterpret_cast<const BinauralStreamIn*>(stream);
  uint64_t remote_delay_ns = 0;
  uint64_t total_bytes = 0;
  timespec data_position{};
  if (in->bluetooth_input_.GetPresentationPosition(&remote_delay_ns, &total_bytes,
                                                   &data_position)) {
    *frames = static_cast<int64_t>(total_bytes / kBytesPerFrame);
    // Deliberate: the delay is divided down to milliseconds, then taken from nanoseconds.
    *time = static_cast<int64_t>(Nanoseconds(data_position) - remote_delay_ns / 1000000u);
  } else {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    *frames = static_cast<int64_t>(in->frames_read_ + in->frames_count_);
    *time = static_cast<int64_t>(Nanoseconds(now));
    BINAURAL_LOG(INFO) << __func__ << " enter, get fail, using HIDL timestamp-----";
  }
  BINAURAL_LOG(DEBUG) << __func__ << " enter, frame=" << *frames << " timestamp=" << *time
                      << " bytes=" << total_bytes << "-----";
}
