// The capture port against the virtual headset: its log, its states, and that no callback reaches a
// port that is gone. The waits of 4.5 s are all in one test.
#include "binaural_record/hidl/binaural_device_port_proxy.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "binaural_record/hidl/binaural_defaults.h"
#include "tests/support/headset_control.h"
#include "tests/support/log_capture.h"

namespace {

using namespace std::chrono_literals;
using namespace vendor::corva::bluetooth_audio_extend;
using std::chrono::steady_clock;
using testing::Contains;
using testing::ElementsAre;
using testing::IsSupersetOf;
using virtual_headset::Activity;
using State = BinauralStreamState;
using Log = std::vector<std::string>;
using Words = std::vector<uint32_t>;

constexpr audio_devices_t kProxyDevice = 0x81000000;
constexpr char kGone[] = "E : BluetoothAudioPortIn is not in use";

// Access to private members for the behaviours that no operation leads to: an explicit instantiation
// may name them.
template <auto Mono, auto Bytes, auto Time>
struct Expose {
  friend constexpr auto MonoFlag() { return Mono; }
  friend constexpr auto BytesRead() { return Bytes; }
  friend constexpr auto LastReadTime() { return Time; }
};
constexpr auto MonoFlag();
constexpr auto BytesRead();
constexpr auto LastReadTime();
template struct Expose<&BluetoothAudioPortIn::mono_, &BluetoothAudioPortIn::total_bytes_read_,
                       &BluetoothAudioPortIn::last_read_time_>;

// Rate, channel mask and format.
Words WordsOf(const audio_config& config) {
  return {config.sample_rate, config.channel_mask, config.format};
}

std::atomic<clockid_t> g_wait_clock{-1};

class PortTest : public testing::Test {
 protected:
  PortTest() { Restart(); }
  ~PortTest() override { Restart(); }  // no callback is running any more

  static void Restart() {
    virtual_headset::Settings settings;
    settings.source = virtual_headset::Source::kTone;
    settings.pacing = virtual_headset::Pacing::kAsFastAsRead;
    ConfigureHeadset(settings);
  }
  // The port's lines as "I text"; "<2>" is how they name the port of that cookie. Cookies count from 1.
  Log Lines() {
    const std::string who = "session_type=BINAURAL_RECORD_SOFTWARE_ENCODING_DATAPATH, cookie=0x000";
    Log texts = log_.TakeTexts("BinauralRecordAudioHalDeviceProxy");
    for (std::string& text : texts) {
      if (const size_t at = text.find(who); at != std::string::npos) {
        text.replace(at, who.size() + 1, std::string("<") + text[at + who.size()] + ">");
      }
    }
    return texts;
  }
  void SetUpPort(BluetoothAudioPortIn& port) {
    ASSERT_TRUE(port.SetUp(kProxyDevice));
    Lines();
  }
  void StartPort() {
    SetUpPort(port_);
    ASSERT_TRUE(port_.Start());
    Lines();
  }
  std::chrono::nanoseconds LastRead() {
    const timespec& time = port_.*LastReadTime();
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
  }
  LogCapture log_;
  BluetoothAudioPortIn port_;
};

TEST_F(PortTest, SetUpMapsTheDeviceAndNeedsACookie) {
  const std::string mapped = "V init_session_typedevice=AUDIO_DEVICE_IN_PROXY (0x81000000)";
  const std::string not_ready =
      "E init_session_typedevice=0x81000000, "
      "session_type=BINAURAL_RECORD_SOFTWARE_ENCODING_DATAPATH is not ready";
  // Callbacks from within: the cookie is not known yet.
  const char inside[] = "inside register session-change\nduring register result SUCCESS";
  // TearDown's line shows which session type is left.
  const Log unknown = {"E init_session_typeunknown device=0x80000004",
                       "E TearDown: session_type=UNKNOWN, cookie=0x0000 unknown monitor"};
  const char unused[] = "E TearDown: <0> unknown monitor";
  const char used[] = "I TearDown: <1>";
  const std::tuple<const char*, audio_devices_t, bool, State, Log> cases[] = {
      {"", kProxyDevice, true, State::STANDBY, {mapped, "I SetUp: <1>", used}},
      {"", 0x80000004, false, State::DISABLED, unknown},
      {"ready no", kProxyDevice, false, State::DISABLED, {mapped, not_ready, unused}},
      {"instance absent", kProxyDevice, false, State::DISABLED, {mapped, not_ready, unused}},
      {"register zero", kProxyDevice, false, State::STANDBY, {mapped, "I SetUp: <0>", unused}},
      {inside, kProxyDevice, true, State::STANDBY, {mapped, kGone, kGone, "I SetUp: <1>", used}},
  };
  for (const auto& [script, device, result, state, lines] : cases) {
    SCOPED_TRACE(script + std::to_string(device));
    Restart();
    Script(script);
    BluetoothAudioPortIn port;
    EXPECT_EQ(port.SetUp(device), result);
    EXPECT_EQ(port.in_use(), result);
    EXPECT_EQ(port.GetState(), state);
    port.TearDown();
    EXPECT_EQ(port.GetState(), state);
    EXPECT_EQ(Lines(), lines);
  }
}

TEST_F(PortTest, OperationsOnAPortThatIsNotInUseOnlyComplain) {
  int16_t pcm[2];
  const source_metadata tracks{3, nullptr};
  audio_config config{};
  EXPECT_FALSE(port_.Start());
  port_.Stop();
  port_.ControlResultHandler(Status::SUCCESS);
  port_.SessionChangedHandler();
  EXPECT_EQ(port_.ReadData(pcm, sizeof(pcm)), 0U);
  port_.UpdateMetadata(&tracks);
  EXPECT_FALSE(port_.LoadAudioConfig(&config));
  port_.TearDown();

  Log expected;
  for (const std::string operation :
       {"Start", "Stop", "ControlResultHandler", "SessionChangedHandler", "UpdateMetadata",
        "LoadAudioConfig"}) {
    expected.push_back("E " + operation + ": BluetoothAudioPortIn is not in use");
  }
  expected.emplace_back("E TearDown: session_type=UNKNOWN, cookie=0x0000 unknown monitor");
  EXPECT_EQ(Lines(), expected);
  EXPECT_EQ(port_.GetState(), State::DISABLED);
  EXPECT_EQ(virtual_headset::GetActivity().starts, 0U);
  EXPECT_EQ(WordsOf(config), (Words{48000, 12, 1}));
}

TEST_F(PortTest, ALifeFromSetUpToTearDownIsLoggedLineByLine) {
  Script("answer SUCCESS early");
  SetUpPort(port_);
  Do("result SUCCESS");  // counts only while starting
  EXPECT_EQ(port_.GetState(), State::STANDBY);
  EXPECT_TRUE(port_.Start());
  port_.*MonoFlag() = true;
  EXPECT_TRUE(port_.Start());  // requested whatever the state
  EXPECT_EQ(virtual_headset::GetActivity().starts, 2U);
  Do("result FAILURE");
  Do("session-params cookie wrong");  // not compared
  Do("session-change cookie 0x00ab");
  Do("result SUCCESS cookie 0xfedc");
  EXPECT_EQ(port_.GetState(), State::STARTED);
  for (const int tracks : {0, 2}) {
    const source_metadata metadata{static_cast<size_t>(tracks), nullptr};
    port_.UpdateMetadata(&metadata);  // without tracks, nothing is forwarded
    EXPECT_EQ(virtual_headset::GetActivity().track_updates, tracks == 0 ? 0U : 1U);
  }
  EXPECT_EQ(virtual_headset::GetActivity().last_track_count, 2U);
  port_.Stop();
  port_.Stop();
  port_.TearDown();
  port_.TearDown();

  const Log expected = {
      "I control_result_cb: <1>, previous_state=STANDBY, status=SUCCESS",
      "E control_result_cb: unexpected status=SUCCESS for <1>, previous_state=STANDBY",
      "I Start: <1>, state=STANDBY, mono=false request",
      "I control_result_cb: <1>, previous_state=STARTING, status=SUCCESS",
      "V CondwaitState: <1> waiting for STARTED",
      "I Start: <1>, state=STARTED, mono=false done",
      "I Start: <1>, state=STARTED, mono=true request",
      "I control_result_cb: <1>, previous_state=STARTING, status=SUCCESS",
      "V CondwaitState: <1> waiting for STARTED",
      "I Start: <1>, state=STARTED, mono=true done",
      "I control_result_cb: <1>, previous_state=STARTED, status=FAILURE",
      "E control_result_cb: unexpected status=FAILURE for <1>, previous_state=STARTED",
      "E session_changed_cb: proxy of device port (cookie=0x00ab) is corrupted",
      "E control_result_cb: proxy of device port (cookie=0xfedc) is corrupted",
      "D UpdateMetadata: <1>, state=STARTED, 0 track(s)",
      "D UpdateMetadata: <1>, state=STARTED, 2 track(s)",
      "I Stop: <1>, state=STARTED request",
      "I Stop: BluetoothAudioPortIn calling StopStream",
      "I Stop: <1>, state=DISABLED done",
      "I Stop: BluetoothAudioPortIn is already disabled",
      "I TearDown: <1>",
      "E TearDown: <0> unknown monitor",
  };
  EXPECT_EQ(Lines(), expected);
  const Activity activity = virtual_headset::GetActivity();
  EXPECT_EQ(activity.stops, 1U);
  EXPECT_EQ(activity.unregistrations, 1U);
  EXPECT_EQ(activity.last_unregistered_cookie, 1);
}

TEST_F(PortTest, ARefusedStartRequestEndsAtOnce) {
  SetUpPort(port_);
  for (const char* script : {"start refused", "instance absent"}) {
    SCOPED_TRACE(script);
    port_.SetState(State::STANDBY);
    Do(script);
    EXPECT_FALSE(port_.Start());
    EXPECT_EQ(Lines(), Log({"I Start: <1>, state=STANDBY, mono=false request",
                            "E Start: <1>, state=STARTING Hal fails",
                            "E Start: <1>, state=STARTING failure"}));
    EXPECT_EQ(port_.GetState(), State::STARTING);
  }
}

TEST_F(PortTest, WithoutSuccessAStartLastsItsFullTime) {
  EXPECT_EQ(kBinauralInDefaultStateTimeoutMs, 20U);  // not what is waited for
  Script("answer never");
  // The first port is told every failure, the second that its session changed, the third nothing of
  // its own.
  BluetoothAudioPortIn ports[3];
  std::thread starts[3];
  for (int i = 0; i < 3; ++i) {
    SetUpPort(ports[i]);
    starts[i] = std::thread([&port = ports[i]] {
      const auto begin = steady_clock::now();
      EXPECT_FALSE(port.Start());
      EXPECT_GE(steady_clock::now() - begin, 4500ms);
      EXPECT_LT(steady_clock::now() - begin, 9s);
    });
  }
  ASSERT_TRUE(virtual_headset::WaitUntil([](const Activity& a) { return a.starts == 3; }, 10s));
  for (const std::string status : {"SINK_NOT_READY", "FAILURE", "FAILURE_NO_WAIT", "0x4d"}) {
    Do("result " + status + " cookie 1");
    EXPECT_EQ(ports[0].GetState(), State::STARTING) << status;
  }
  Do("session-change cookie 2");
  Do("result SUCCESS cookie wrong");
  for (std::thread& start : starts) {
    start.join();
  }
  EXPECT_EQ(g_wait_clock, CLOCK_MONOTONIC);
  const std::string told = "I control_result_cb: <1>, previous_state=STARTING, status=";
  EXPECT_THAT(Lines(),
              IsSupersetOf(Log{told + "SINK_NOT_READY", told + "FAILURE", told + "FAILURE_NO_WAIT",
                               told + "0x4d",
                               "E control_result_cb: status=SINK_NOT_READY failure for <1>, "
                               "previous_state=STARTING",
                               "I session_changed_cb: <2>, previous_state=STARTING",
                               "E Start: <1>, state=STARTING failure",
                               "E Start: <2>, state=DISABLED failure",
                               "E Start: <3>, state=STARTING failure"}));
  EXPECT_EQ(virtual_headset::GetActivity().stops, 0U);
}

TEST_F(PortTest, EveryStateHasItsNameAndOnlyARunningStreamIsStopped) {
  const std::tuple<int, const char*, uint64_t> cases[] = {
      // the stops so far
      {0, "DISABLED", 0},   {1, "STANDBY", 0}, {2, "STARTING", 1}, {3, "STARTED", 2},
      {4, "SUSPENDING", 2}, {5, "UNKNOWN", 2}, {6, "0x6", 2},      {171, "0xab", 2},
  };
  SetUpPort(port_);
  for (const auto& [state, name, stops] : cases) {
    port_.SetState(static_cast<State>(state));
    EXPECT_EQ(testing::PrintToString(port_.GetState()), name);
    port_.Stop();
    EXPECT_EQ(port_.GetState(), State::DISABLED) << name;
    EXPECT_EQ(virtual_headset::GetActivity().stops, stops) << name;
  }
  Lines();
  // Only STARTING can be waited for.
  port_.SetState(State::STARTED);
  EXPECT_FALSE(port_.CondwaitState(State::STANDBY));
  EXPECT_TRUE(port_.CondwaitState(State::STARTING));  // true before any wait
  EXPECT_EQ(Lines(), Log({"W CondwaitState: <1> waiting for KNOWN",
                          "V CondwaitState: <1> waiting for STARTED"}));
}

TEST_F(PortTest, AStartThatACloseOvertookLeavesNoStreamRunning) {
  // The close happens while StartStream is on its way: its own StopStream comes too early.
  SetUpPort(port_);
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
  EXPECT_EQ(port_.GetState(), State::DISABLED);
  EXPECT_FALSE(port_.Start());  // not even requested
  EXPECT_EQ(virtual_headset::GetActivity().starts, 1U);

  port_.TearDown();
  Script("answer SUCCESS");
  StartPort();  // the abortion was for one life
}

TEST_F(PortTest, AnAbortedStartDoesNotStopANewerOne) {
  Script("answer never");
  BluetoothAudioPortIn ports[2];
  std::thread starts[2];
  for (int i = 0; i < 2; ++i) {
    SetUpPort(ports[i]);
    starts[i] = std::thread([&port = ports[i], i] { EXPECT_EQ(port.Start(), i == 1); });
    const auto begun = [i](const Activity& a) { return a.starts == static_cast<uint64_t>(i + 1); };
    ASSERT_TRUE(virtual_headset::WaitUntil(begun, 10s));
  }
  ports[0].AbortStart();
  starts[0].join();
  EXPECT_EQ(virtual_headset::GetActivity().stops, 0U);
  Do("result SUCCESS cookie 2");
  starts[1].join();
  EXPECT_TRUE(virtual_headset::GetActivity().streaming);
}

TEST_F(PortTest, AStateSetWhileAResultIsHandledIsNotOverwritten) {
  // The logger stops the result handler between its look at the state and its store.
  static std::atomic<bool> handling, set;
  handling = set = false;
  Script("answer never");
  SetUpPort(port_);
  port_.SetState(State::STARTING);
  std::thread setter([this] {
    while (!handling) {
      std::this_thread::yield();
    }
    port_.SetState(State::DISABLED);
    set = true;
  });
  __android_log_set_logger([](const __android_logger_data*, const char*) {
    handling = true;
    for (const auto end = steady_clock::now() + 100ms; !set && steady_clock::now() < end;) {
      std::this_thread::yield();
    }
  });
  Do("result SUCCESS");
  setter.join();
  EXPECT_EQ(port_.GetState(), State::DISABLED);
}

TEST_F(PortTest, CallbacksAfterTheEndFindThePortGone) {
  // A session that was replaced never learns of the end; here there was not even a TearDown.
  {
    BluetoothAudioPortIn port;
    SetUpPort(port);
    Do("instance replaced");
  }
  for (const char* callback : {"result SUCCESS", "session-change", "session-params"}) {
    Do(callback);
  }
  EXPECT_EQ(Lines(), Log({kGone, kGone, kGone}));
}

TEST_F(PortTest, ConfigurationFollowsTheSession) {
  const Words untouched = {7, 7, 7};
  const std::tuple<const char*, Words, bool> cases[] = {
      {"parameters RATE_44100 STEREO BITS_16", {44100, 12, 1}, false},
      {"parameters RATE_48000 STEREO BITS_16", {48000, 12, 1}, false},
      {"parameters RATE_88200 STEREO BITS_16", {88200, 12, 1}, false},
      {"parameters RATE_96000 STEREO BITS_16", {96000, 12, 1}, false},
      {"parameters RATE_176400 STEREO BITS_16", {176400, 12, 1}, false},
      {"parameters RATE_192000 STEREO BITS_32", {192000, 12, 3}, false},
      {"parameters RATE_16000 MONO BITS_24", {16000, 16, 6}, false},
      {"parameters RATE_24000 MONO BITS_24", {24000, 12, 6}, true},  // as a mono stream
      // Named or not, what has no entry counts as the default.
      {"parameters RATE_24000_2 STEREO BITS_16", {48000, 12, 1}, false},
      {"parameters RATE_32000 STEREO BITS_16", {48000, 12, 1}, false},
      {"parameters RATE_8000 STEREO BITS_16", {48000, 12, 1}, false},
      {"parameters 3 9 8", {48000, 12, 1}, false},
      {"parameters RATE_UNKNOWN STEREO BITS_16", untouched, false},
      {"parameters RATE_48000 UNKNOWN BITS_16", untouched, false},
      {"parameters RATE_48000 STEREO BITS_UNKNOWN", untouched, false},
      {"instance absent", untouched, false},
  };
  SetUpPort(port_);
  for (const auto& [parameters, expected, mono] : cases) {
    SCOPED_TRACE(parameters);
    Do(parameters);
    port_.*MonoFlag() = mono;
    audio_config config{};
    config.sample_rate = config.channel_mask = 7;
    config.format = static_cast<audio_format_t>(7);
    EXPECT_EQ(port_.LoadAudioConfig(&config), expected != untouched);
    EXPECT_EQ(WordsOf(config), expected);
  }
  EXPECT_THAT(Lines(), Contains("V LoadAudioConfig: <1>, state=STANDBY, PcmConfig=[{.sampleRate = "
                                "0x3, .channelMode = 0x9, .bitsPerSample = 0x8}]"));
}

TEST_F(PortTest, ReadsAndPositionsAreWhatTheSessionSays) {
  // Whatever the state of the port.
  const std::tuple<const char*, State, size_t, size_t> cases[] = {
      {"full", State::DISABLED, 3840, 3840},
      {"short 100", State::STANDBY, 3840, 100},
      {"over 64", State::STARTING, 256, 320},
      {"empty", State::STARTED, 3840, 0}};
  StartPort();
  const auto begin = steady_clock::now();
  std::vector<uint8_t> pcm(3840);
  for (const auto& [reads, state, bytes, result] : cases) {
    Do("reads " + std::string(reads));
    port_.SetState(state);
    EXPECT_EQ(port_.ReadData(pcm.data(), bytes), result) << reads;
  }
  const auto last_read = LastRead();
  EXPECT_GE(last_read, begin.time_since_epoch());
  EXPECT_LE(last_read, steady_clock::now().time_since_epoch());
  EXPECT_EQ(port_.ReadData(nullptr, 16), 0U);
  EXPECT_EQ(port_.*BytesRead(), 4196U);  // what fits
  port_.Stop();
  EXPECT_EQ(port_.*BytesRead(), 0U);
  EXPECT_EQ(LastRead(), last_read);
  EXPECT_EQ(port_.UpdatePresentationData(7), 7U);
  EXPECT_EQ(port_.*BytesRead(), 7U);

  // The position is the session's own, in use or not.
  port_.TearDown();
  uint64_t delay_ns = 1, bytes = 2;
  timespec time{};
  EXPECT_TRUE(port_.GetPresentationPosition(&delay_ns, &bytes, &time));
  EXPECT_EQ(bytes, 4196U);
  for (const char* fault : {"position failing", "instance absent"}) {
    Do(fault);
    EXPECT_FALSE(port_.GetPresentationPosition(&delay_ns, &bytes, &time)) << fault;
  }
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
  EXPECT_EQ(LastRead(), 0ns);
  EXPECT_EQ(port_.ReadData(pcm, 3), 0U);
  EXPECT_EQ(Lines(), Log({"E ReadData enter, read_frames error-----"}));
}

}  // namespace

extern "C" int __real_pthread_cond_clockwait(pthread_cond_t*, pthread_mutex_t*, clockid_t,
                                             const timespec*);
extern "C" int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                             clockid_t clock, const timespec* end) {
  g_wait_clock = clock;
  return __real_pthread_cond_clockwait(condition, mutex, clock, end);
}
