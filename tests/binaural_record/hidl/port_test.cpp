// The capture port against the virtual headset: its log, its states, and that no callback reaches a
// port that is gone. The waits of 4.5 s are all in one test.
#include "binaural_record/hidl/binaural_device_port_proxy.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/headset_control.h"
#include "tests/support/log_capture.h"

namespace {

using namespace std::chrono_literals;
using namespace vendor::corva::bluetooth_audio_extend;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;
using virtual_headset::Activity;

constexpr char kTag[] = "BinauralRecordAudioHalDeviceProxy";
constexpr audio_devices_t kProxyDevice = 0x81000000;
constexpr auto kPatience = 10s;  // for what must happen, and happens at once

// Access to private members for the behaviours that no operation leads to: an explicit instantiation
// may name them.
template <auto Member>
struct Expose {
  friend constexpr auto MonoFlag() { return Member; }
};
template <auto Member>
struct ExposeBytes {
  friend constexpr auto BytesRead() { return Member; }
};
constexpr auto MonoFlag();
constexpr auto BytesRead();
template struct Expose<&BluetoothAudioPortIn::mono_>;
template struct ExposeBytes<&BluetoothAudioPortIn::total_bytes_read_>;

// The lines of the port, by severity.
constexpr auto At = [](int priority) {
  return [priority](const std::string& text) { return LoggedLine{priority, kTag, text}; };
};
const auto Verbose = At(ANDROID_LOG_VERBOSE);
const auto Debug = At(ANDROID_LOG_DEBUG);
const auto Info = At(ANDROID_LOG_INFO);
const auto Warning = At(ANDROID_LOG_WARN);
const auto Error = At(ANDROID_LOG_ERROR);
using Log = std::vector<LoggedLine>;

// How the lines name a port that is set up; the headset's cookies count from 1.
std::string Who(int cookie = 1) {
  return "session_type=BINAURAL_RECORD_SOFTWARE_ENCODING_DATAPATH, cookie=0x000" +
         std::to_string(cookie);
}

std::string Text(BinauralStreamState state) {
  std::ostringstream text;
  text << state;
  return text.str();
}

std::atomic<clockid_t> g_wait_clock{-1};

class PortTest : public testing::Test {
 protected:
  PortTest() { Restart(); }
  ~PortTest() override { Restart(); }  // no callback is running any more

  static void Restart(virtual_headset::Pacing pacing = virtual_headset::Pacing::kAsFastAsRead) {
    virtual_headset::Settings settings;
    settings.source = virtual_headset::Source::kTone;
    settings.pacing = pacing;
    ConfigureHeadset(settings);
  }
  Log Lines() { return log_.Take(kTag); }
  void SetUpPort() {
    ASSERT_TRUE(port_.SetUp(kProxyDevice));
    Lines();
  }
  // Waits for the starts that other threads are about to ask the session for.
  static void AwaitStarts(uint64_t count) {
    ASSERT_TRUE(virtual_headset::WaitUntil([count](const Activity& a) { return a.starts == count; },
                                           kPatience));
  }
  void StartPort() {
    SetUpPort();
    ASSERT_TRUE(port_.Start());
    Lines();
  }

  LogCapture log_;
  BluetoothAudioPortIn port_;
};

TEST_F(PortTest, StatesPrintAsNamesOrHexadecimal) {
  const std::pair<int, const char*> cases[] = {
      {0, "DISABLED"}, {1, "STANDBY"}, {2, "STARTING"}, {3, "STARTED"}, {4, "SUSPENDING"},
      {5, "UNKNOWN"},  {6, "0x6"},     {9, "0x9"},      {171, "0xab"},  {255, "0xff"},
  };
  for (const auto& [value, name] : cases) {
    EXPECT_EQ(Text(static_cast<BinauralStreamState>(value)), name);
  }
}

TEST_F(PortTest, SetUpMapsTheDeviceAndNeedsACookie) {
  const LoggedLine mapped = Verbose("init_session_typedevice=AUDIO_DEVICE_IN_PROXY (0x81000000)");
  const LoggedLine not_ready =
      Error("init_session_typedevice=0x81000000, "
            "session_type=BINAURAL_RECORD_SOFTWARE_ENCODING_DATAPATH is not ready");
  const LoggedLine not_in_use = Error(": BluetoothAudioPortIn is not in use");
  const LoggedLine microphone = Error("init_session_typeunknown device=0x80000004");
  const LoggedLine none = Error("init_session_typeunknown device=0x00000000");
  const LoggedLine done = Info("SetUp: " + Who());
  // Callbacks from within: the cookie is not known yet.
  const std::string inside = "inside register session-change\nduring register result SUCCESS";
  const auto kDisabled = BinauralStreamState::DISABLED, kStandby = BinauralStreamState::STANDBY;
  const struct {
    std::string script;
    audio_devices_t device;
    bool result;
    BinauralStreamState state;
    Log lines;
  } cases[] = {
      {"", kProxyDevice, true, kStandby, {mapped, done}},
      {"", 0x80000004, false, kDisabled, {microphone}},
      {"", 0, false, kDisabled, {none}},
      {"ready no", kProxyDevice, false, kDisabled, {mapped, not_ready}},
      {"instance absent", kProxyDevice, false, kDisabled, {mapped, not_ready}},
      {"register zero", kProxyDevice, false, kStandby, {mapped, Info("SetUp: " + Who(0))}},
      {inside, kProxyDevice, true, kStandby, {mapped, not_in_use, not_in_use, done}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.script + std::to_string(c.device));
    Restart();
    Script(c.script);
    BluetoothAudioPortIn port;
    EXPECT_EQ(port.SetUp(c.device), c.result);
    EXPECT_EQ(port.in_use(), c.result);
    EXPECT_EQ(port.GetState(), c.state);
    EXPECT_EQ(Lines(), c.lines);
  }
}

TEST_F(PortTest, OperationsOnAPortThatIsNotInUseOnlyComplain) {
  int16_t pcm[2];
  const source_metadata tracks{3, nullptr};

  EXPECT_FALSE(port_.Start());
  port_.Stop();
  port_.ControlResultHandler(Status::SUCCESS);
  port_.SessionChangedHandler();
  EXPECT_EQ(port_.ReadData(pcm, sizeof(pcm)), 0U);
  port_.UpdateMetadata(&tracks);
  port_.TearDown();

  EXPECT_EQ(Lines(), Log({Error("Start: BluetoothAudioPortIn is not in use"),
                          Error("Stop: BluetoothAudioPortIn is not in use"),
                          Error("ControlResultHandler: BluetoothAudioPortIn is not in use"),
                          Error("SessionChangedHandler: BluetoothAudioPortIn is not in use"),
                          Error("UpdateMetadata: BluetoothAudioPortIn is not in use"),
                          Error("TearDown: session_type=UNKNOWN, cookie=0x0000 unknown monitor")}));
  EXPECT_EQ(port_.GetState(), BinauralStreamState::DISABLED);
  EXPECT_EQ(virtual_headset::GetActivity().starts, 0U);
}

TEST_F(PortTest, ALifeFromSetUpToTearDownIsLoggedLineByLine) {
  Script("answer SUCCESS early");
  SetUpPort();

  Do("result SUCCESS");  // counts only while starting
  EXPECT_EQ(port_.GetState(), BinauralStreamState::STANDBY);
  EXPECT_EQ(Lines(),
            Log({Info("control_result_cb: " + Who() + ", previous_state=STANDBY, status=SUCCESS"),
                 Error("control_result_cb: unexpected status=SUCCESS for " + Who() +
                       ", previous_state=STANDBY")}));

  EXPECT_TRUE(port_.Start());
  EXPECT_EQ(Lines(),
            Log({Info("Start: " + Who() + ", state=STANDBY, mono=false request"),
                 Info("control_result_cb: " + Who() + ", previous_state=STARTING, status=SUCCESS"),
                 Verbose("CondwaitState: " + Who() + " waiting for STARTED"),
                 Info("Start: " + Who() + ", state=STARTED, mono=false done")}));

  Do("result FAILURE");
  Do("session-params cookie wrong");  // not compared
  Do("session-change cookie 0x00ab");
  Do("result SUCCESS cookie 0xfedc");
  EXPECT_EQ(Lines(),
            Log({Info("control_result_cb: " + Who() + ", previous_state=STARTED, status=FAILURE"),
                 Error("control_result_cb: unexpected status=FAILURE for " + Who() +
                       ", previous_state=STARTED"),
                 Error("session_changed_cb: proxy of device port (cookie=0x00ab) is corrupted"),
                 Error("control_result_cb: proxy of device port (cookie=0xfedc) is corrupted")}));
  EXPECT_EQ(port_.GetState(), BinauralStreamState::STARTED);

  port_.Stop();
  port_.Stop();
  EXPECT_EQ(Lines(), Log({Info("Stop: " + Who() + ", state=STARTED request"),
                          Info("Stop: BluetoothAudioPortIn calling StopStream"),
                          Info("Stop: " + Who() + ", state=DISABLED done"),
                          Info("Stop: BluetoothAudioPortIn is already disabled")}));

  port_.TearDown();
  port_.TearDown();
  EXPECT_EQ(Lines(),
            Log({Info("TearDown: " + Who()), Error("TearDown: " + Who(0) + " unknown monitor")}));
  const Activity activity = virtual_headset::GetActivity();
  EXPECT_EQ(activity.stops, 1U);
  EXPECT_EQ(activity.unregistrations, 1U);
  EXPECT_EQ(activity.last_unregistered_cookie, 1);
}

TEST_F(PortTest, ARefusedStartRequestEndsAtOnce) {
  for (const char* script : {"start refused", "instance absent"}) {
    SCOPED_TRACE(script);
    Restart();
    BluetoothAudioPortIn port;
    ASSERT_TRUE(port.SetUp(kProxyDevice));
    Lines();
    Do(script);
    EXPECT_FALSE(port.Start());
    EXPECT_EQ(Lines(), Log({Info("Start: " + Who() + ", state=STANDBY, mono=false request"),
                            Error("Start: " + Who() + ", state=STARTING Hal fails"),
                            Error("Start: " + Who() + ", state=STARTING failure")}));
    EXPECT_EQ(port.GetState(), BinauralStreamState::STARTING);
  }
}

TEST_F(PortTest, WithoutSuccessAStartLastsItsFullTime) {
  Script("answer never");
  // The first port is told every failure, the second that its session changed, the third nothing of
  // its own.
  BluetoothAudioPortIn ports[3];
  std::thread starts[3];
  bool started[3] = {true, true, true};
  steady_clock::duration lasted[3];
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(ports[i].SetUp(kProxyDevice));
  }
  for (int i = 0; i < 3; ++i) {
    starts[i] = std::thread([&, i] {
      const auto begin = steady_clock::now();
      started[i] = ports[i].Start();
      lasted[i] = steady_clock::now() - begin;
    });
  }
  AwaitStarts(3);
  Lines();

  Do("result SINK_NOT_READY cookie 1");
  EXPECT_THAT(log_.TakeErrors(kTag),
              testing::IsSupersetOf({"control_result_cb: status=SINK_NOT_READY failure for " +
                                     Who() + ", previous_state=STARTING"}));
  for (const char* status :
       {"UNSUPPORTED_CODEC_CONFIGURATION", "FAILURE", "CALL_IN_PROGRESS", "SW_ERROR", "LW_ERROR",
        "FAILURE_DISC_IN_PROGRESS", "FAILURE_NO_WAIT", "0x4d"}) {
    Do("result " + std::string(status) + " cookie 1");
    EXPECT_THAT(Lines(), testing::Contains(Info("control_result_cb: " + Who() +
                                                ", previous_state=STARTING, status=" + status)));
    EXPECT_EQ(ports[0].GetState(), BinauralStreamState::STARTING);
  }
  Do("session-change cookie 2");
  EXPECT_THAT(Lines(), testing::Contains(
                           Info("session_changed_cb: " + Who(2) + ", previous_state=STARTING")));
  EXPECT_EQ(ports[1].GetState(), BinauralStreamState::DISABLED);
  Do("result SUCCESS cookie wrong");

  for (int i = 0; i < 3; ++i) {
    starts[i].join();
    EXPECT_FALSE(started[i]);
    EXPECT_GE(lasted[i], 4500ms);
    EXPECT_LT(lasted[i], 9s);
  }
  EXPECT_EQ(g_wait_clock, CLOCK_MONOTONIC);
  EXPECT_EQ(ports[2].GetState(), BinauralStreamState::STARTING);
  EXPECT_THAT(log_.TakeErrors(kTag),
              testing::IsSupersetOf({"Start: " + Who(1) + ", state=STARTING failure",
                                     "Start: " + Who(2) + ", state=DISABLED failure",
                                     "Start: " + Who(3) + ", state=STARTING failure"}));
  EXPECT_EQ(virtual_headset::GetActivity().stops, 0U);
}

TEST_F(PortTest, StopReachesTheSessionOnlyFromARunningStream) {
  const uint64_t stops_from_state[10] = {0, 0, 1, 1, 0, 0, 0, 0, 0, 0};  // STARTING and STARTED
  for (int state = 1; state < 10; ++state) {
    SCOPED_TRACE(state);
    Restart();
    BluetoothAudioPortIn port;
    ASSERT_TRUE(port.SetUp(kProxyDevice));
    port.SetState(static_cast<BinauralStreamState>(state));
    port.Stop();
    EXPECT_EQ(port.GetState(), BinauralStreamState::DISABLED);
    EXPECT_EQ(virtual_headset::GetActivity().stops, stops_from_state[state]);
  }
}

TEST_F(PortTest, OnlyStartingCanBeWaitedFor) {
  SetUpPort();
  port_.SetState(BinauralStreamState::STARTED);
  EXPECT_FALSE(port_.CondwaitState(BinauralStreamState::STANDBY));
  EXPECT_TRUE(port_.CondwaitState(BinauralStreamState::STARTING));  // true before any wait
  EXPECT_EQ(Lines(), Log({Warning("CondwaitState: " + Who() + " waiting for KNOWN"),
                          Verbose("CondwaitState: " + Who() + " waiting for STARTED")}));
}

TEST_F(PortTest, AbortStartEndsAWaitAndTakesTheRequestBack) {
  Script("answer never");
  SetUpPort();
  const auto begin = steady_clock::now();
  bool started = true;
  std::thread starting([&] { started = port_.Start(); });
  AwaitStarts(1);
  port_.AbortStart();
  starting.join();
  EXPECT_FALSE(started);
  EXPECT_LT(steady_clock::now() - begin, 4s);
  EXPECT_EQ(virtual_headset::GetActivity().stops, 1U);

  EXPECT_FALSE(port_.Start());  // not even requested
  EXPECT_EQ(virtual_headset::GetActivity().starts, 1U);
  EXPECT_THAT(log_.TakeErrors(kTag),
              testing::Contains("Start: " + Who() + ", state=STARTING failure"));

  port_.TearDown();
  Script("answer SUCCESS");
  ASSERT_TRUE(port_.SetUp(kProxyDevice));
  EXPECT_TRUE(port_.Start());  // it was for one life
}

TEST_F(PortTest, AStartThatACloseOvertookLeavesNoStreamRunning) {
  // The close happens while StartStream is on its way: its own StopStream comes too early.
  SetUpPort();
  PortStatusCallbacks closer{[](uint16_t, bool, const Status&) {}, [](uint16_t) {},
                             [this](uint16_t, const SessionParams&) {
                               port_.AbortStart();
                               port_.Stop();
                             }};
  const auto session = BluetoothAudioSessionInstance::GetSessionInstance(
      SessionType::BINAURAL_RECORD_SOFTWARE_ENCODING_DATAPATH);
  ASSERT_NE(session->RegisterStatusCback(closer), 0);
  Script("during start session-params");

  EXPECT_FALSE(port_.Start());
  const Activity activity = virtual_headset::GetActivity();
  EXPECT_EQ(activity.starts, 1U);
  EXPECT_EQ(activity.stops, 2U);
  EXPECT_FALSE(activity.streaming);
  EXPECT_EQ(port_.GetState(), BinauralStreamState::DISABLED);
}

TEST_F(PortTest, AStateSetWhileAResultIsHandledIsNotOverwritten) {
  // The logger stops the result handler between its look at the state and its store.
  static std::atomic<bool> setting, set;
  static BluetoothAudioPortIn* port;
  static std::thread setter;
  setting = set = false;
  port = &port_;
  Script("answer never");
  SetUpPort();
  port_.SetState(BinauralStreamState::STARTING);
  __android_log_set_logger([](const __android_logger_data*, const char* message) {
    if (strstr(message, "previous_state=STARTING") == nullptr || setting.exchange(true)) {
      return;
    }
    setter = std::thread([] {
      port->SetState(BinauralStreamState::DISABLED);
      set = true;
    });
    for (const auto end = steady_clock::now() + 100ms; !set && steady_clock::now() < end;) {
      std::this_thread::yield();
    }
  });
  Do("result SUCCESS");
  setter.join();
  EXPECT_EQ(port_.GetState(), BinauralStreamState::DISABLED);
}

TEST_F(PortTest, CallbacksAfterTheEndFindThePortGone) {
  for (const char* callback : {"result SUCCESS", "session-change", "session-params"}) {
    SCOPED_TRACE(callback);
    Restart(virtual_headset::Pacing::kStepped);
    Script("after unregister 1ms " + std::string(callback));
    {
      BluetoothAudioPortIn port;
      ASSERT_TRUE(port.SetUp(kProxyDevice));
      port.TearDown();
    }
    Lines();
    virtual_headset::Advance(1ms);
    EXPECT_EQ(Lines(), Log({Error(": BluetoothAudioPortIn is not in use")}));
  }
  // A session that was replaced never learns of the end; here there was not even a TearDown.
  Restart();
  {
    BluetoothAudioPortIn port;
    ASSERT_TRUE(port.SetUp(kProxyDevice));
    Do("instance replaced");
  }
  Lines();
  Do("session-change");
  EXPECT_EQ(Lines(), Log({Error(": BluetoothAudioPortIn is not in use")}));
}

TEST_F(PortTest, CallbacksFromEverySideNeverMeetADyingPort) {
  std::atomic<bool> done{false};
  std::thread other_side([&] {
    while (!done) {
      Do("result SUCCESS");
      Do("session-change cookie wrong");
    }
  });
  log_.SetMinimumPriority(ANDROID_LOG_ERROR);
  for (int i = 0; i < 200; ++i) {
    Script("inside register session-params\n"
           "inside start session-params\n"
           "during start session-change cookie wrong\n"
           "inside stop session-change\n"
           "during stop result SUCCESS\n"
           "inside unregister session-change\n"
           "during unregister result FAILURE\n"
           "after unregister result SUCCESS\n");
    BluetoothAudioPortIn port;
    ASSERT_TRUE(port.SetUp(kProxyDevice));
    ASSERT_TRUE(port.Start());
    port.Stop();
    port.TearDown();
  }
  done = true;
  other_side.join();
  EXPECT_GE(virtual_headset::GetActivity().callbacks_delivered, 200U * 8);
}

TEST_F(PortTest, ConfigurationFollowsTheSession) {
  const struct {
    const char* parameters;
    bool mono;
    bool result;
    uint32_t rate;
    audio_channel_mask_t mask;
    uint32_t format;
  } cases[] = {
      {"RATE_44100 STEREO BITS_16", false, true, 44100, 12, 1},
      {"RATE_48000 STEREO BITS_16", false, true, 48000, 12, 1},
      {"RATE_88200 STEREO BITS_16", false, true, 88200, 12, 1},
      {"RATE_96000 STEREO BITS_16", false, true, 96000, 12, 1},
      {"RATE_176400 STEREO BITS_16", false, true, 176400, 12, 1},
      {"RATE_192000 STEREO BITS_32", false, true, 192000, 12, 3},
      {"RATE_16000 MONO BITS_24", false, true, 16000, 16, 6},
      {"RATE_16000 MONO BITS_24", true, true, 16000, 12, 6},
      {"RATE_24000 STEREO BITS_16", false, true, 24000, 12, 1},
      // Named or not, what has no entry counts as the default.
      {"RATE_24000_2 STEREO BITS_16", false, true, 48000, 12, 1},
      {"RATE_32000 STEREO BITS_16", false, true, 48000, 12, 1},
      {"RATE_8000 STEREO BITS_16", false, true, 48000, 12, 1},
      {"3 9 8", false, true, 48000, 12, 1},
      {"RATE_UNKNOWN STEREO BITS_16", false, false, 7, 7, 7},  // untouched
      {"RATE_48000 UNKNOWN BITS_16", false, false, 7, 7, 7},
      {"RATE_48000 STEREO BITS_UNKNOWN", false, false, 7, 7, 7},
  };
  SetUpPort();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.parameters);
    Do("parameters " + std::string(c.parameters));
    port_.*MonoFlag() = c.mono;
    audio_config config{};
    config.sample_rate = config.channel_mask = config.frame_count = 7;
    config.format = static_cast<audio_format_t>(7);
    EXPECT_EQ(port_.LoadAudioConfig(&config), c.result);
    EXPECT_EQ(config.sample_rate, c.rate);
    EXPECT_EQ(config.channel_mask, c.mask);
    EXPECT_EQ(config.format, c.format);
    EXPECT_EQ(config.frame_count, 7U);
  }
  Lines();
  audio_config config{};
  Do("parameters 3 STEREO BITS_16");
  EXPECT_TRUE(port_.LoadAudioConfig(&config));
  EXPECT_EQ(Lines(), Log({Verbose("LoadAudioConfig: " + Who() +
                                  ", state=STANDBY, PcmConfig=[{.sampleRate = 0x3, "
                                  ".channelMode = STEREO, .bitsPerSample = BITS_16}]")}));
  Do("instance absent");
  config.sample_rate = 7;
  EXPECT_FALSE(port_.LoadAudioConfig(&config));
  EXPECT_EQ(config.sample_rate, 7U);

  Lines();
  BluetoothAudioPortIn unused;
  EXPECT_FALSE(unused.LoadAudioConfig(&config));
  EXPECT_EQ(config.sample_rate, 48000U);
  EXPECT_EQ(config.channel_mask, 12U);
  EXPECT_EQ(config.format, AUDIO_FORMAT_PCM_16_BIT);
  EXPECT_EQ(Lines(), Log({Error("LoadAudioConfig: BluetoothAudioPortIn is not in use")}));
}

TEST_F(PortTest, ReadsReturnWhatTheSessionSaysAndCountWhatFits) {
  const struct {
    const char* reads;
    size_t bytes, result;
    uint64_t counted;
  } cases[] = {
      {"full", 3840, 3840, 3840}, {"short 100", 3840, 100, 100},
      {"empty", 3840, 0, 0},      {"over 64", 256, 320, 256},
      {"full", 0, 0, 0},
  };
  StartPort();
  std::vector<uint8_t> pcm(3840);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reads);
    Do("reads " + std::string(c.reads));
    port_.ResetPresentationData();
    EXPECT_EQ(port_.ReadData(pcm.data(), c.bytes), c.result);
    EXPECT_EQ(port_.*BytesRead(), c.counted);
  }
  EXPECT_EQ(port_.UpdatePresentationData(12), 12U);
  EXPECT_EQ(port_.*BytesRead(), 12U);
  port_.Stop();
  EXPECT_EQ(port_.*BytesRead(), 0U);
  EXPECT_EQ(port_.ReadData(nullptr, 16), 0U);
}

TEST_F(PortTest, AMonoReadAsksForHalfAndLeavesTheBufferAlone) {
  StartPort();
  port_.*MonoFlag() = true;
  uint8_t pcm[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  // An odd address: the samples may lie anywhere.
  EXPECT_EQ(port_.ReadData(pcm + 1, 8), 8U);
  EXPECT_EQ(virtual_headset::GetActivity().last_read_bytes, 4U);
  EXPECT_THAT(pcm, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9));
  Do("reads short 3");
  EXPECT_EQ(port_.ReadData(pcm, 8), 6U);
  EXPECT_EQ(port_.*BytesRead(), 0U);
  EXPECT_THAT(Lines(), IsEmpty());

  EXPECT_EQ(port_.ReadData(pcm, 3), 0U);
  EXPECT_EQ(Lines(), Log({Error("ReadData enter, read_frames error-----")}));
  port_.*MonoFlag() = false;
}

TEST_F(PortTest, PositionIsTheSessionsOwn) {
  uint64_t delay_ns = 1, bytes = 2;
  timespec time{};
  StartPort();
  uint8_t pcm[400];
  ASSERT_EQ(port_.ReadData(pcm, sizeof(pcm)), sizeof(pcm));
  port_.Stop();
  port_.TearDown();  // in use or not
  EXPECT_TRUE(port_.GetPresentationPosition(&delay_ns, &bytes, &time));
  EXPECT_EQ(bytes, 400U);
  for (const char* fault : {"position failing", "instance absent"}) {
    Do(fault);
    EXPECT_FALSE(port_.GetPresentationPosition(&delay_ns, &bytes, &time)) << fault;
  }
}

TEST_F(PortTest, TracksAreForwardedWhenThereAreAny) {
  SetUpPort();
  source_metadata tracks{0, nullptr};
  port_.UpdateMetadata(&tracks);
  EXPECT_EQ(virtual_headset::GetActivity().track_updates, 0U);
  tracks.track_count = 2;
  port_.UpdateMetadata(&tracks);
  EXPECT_EQ(virtual_headset::GetActivity().last_track_count, 2U);
  EXPECT_EQ(Lines(), Log({Debug("UpdateMetadata: " + Who() + ", state=STANDBY, 0 track(s)"),
                          Debug("UpdateMetadata: " + Who() + ", state=STANDBY, 2 track(s)")}));
}

}  // namespace

extern "C" int __real_pthread_cond_clockwait(pthread_cond_t*, pthread_mutex_t*, clockid_t,
                                             const timespec*);
extern "C" int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                             clockid_t clock, const timespec* end) {
  g_wait_clock = clock;
  return __real_pthread_cond_clockwait(condition, mutex, clock, end);
}
