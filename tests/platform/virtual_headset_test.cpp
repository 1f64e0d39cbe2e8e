// The virtual headset itself: sources, pacing on its stepped clock, and the fault language. What the
// module makes of the faults is tested with the module.
#include "platform/virtual_headset/virtual_headset.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <thread>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/headset_control.h"

namespace {

using namespace std::chrono_literals;
using namespace vendor::corva::bluetooth_audio_extend;
using testing::ElementsAre;
using testing::IsEmpty;
using virtual_headset::Activity;
using virtual_headset::Pacing;
using virtual_headset::Settings;
using virtual_headset::Source;

class VirtualHeadsetTest : public testing::Test {
 protected:
  VirtualHeadsetTest() { Use({Source::kTone, ""}); }
  ~VirtualHeadsetTest() override { virtual_headset::Reset(); }

  static void Use(Settings settings, Pacing pacing = Pacing::kAsFastAsRead) {
    settings.pacing = pacing;
    ConfigureHeadset(settings);
  }
  static std::shared_ptr<BluetoothAudioSession> Session() {
    return BluetoothAudioSessionInstance::GetSessionInstance(
        SessionType::BINAURAL_RECORD_SOFTWARE_ENCODING_DATAPATH);
  }
  static bool Wait(const std::function<bool(const Activity&)>& condition) {
    return virtual_headset::WaitUntil(condition, 10s);
  }

  // Notes every callback as "1 SUCCESS", "1 changed" or "1 STEREO"; one that comes on the thread of
  // the test behind "inside".
  uint16_t Register() {
    const auto note = [this, test = std::this_thread::get_id()](uint16_t cookie,
                                                                const std::string& what) {
      const std::lock_guard<std::mutex> lock(mutex_);
      notes_.push_back((std::this_thread::get_id() == test ? "inside " : "") +
                       std::to_string(cookie) + " " + what);
    };
    return Session()->RegisterStatusCback(
        {[note](uint16_t cookie, bool, const Status& status) { note(cookie, toString(status)); },
         [note](uint16_t cookie) { note(cookie, "changed"); },
         [note](uint16_t cookie, const SessionParams& params) {
           note(cookie, toString(params.pcmParameters.channelMode));
         }});
  }
  std::vector<std::string> Notes() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::exchange(notes_, {});
  }
  static void Start() {
    ASSERT_TRUE(Session()->StartStream());
    ASSERT_TRUE(Wait([](const Activity& a) { return a.streaming; }));
  }
  static std::vector<int16_t> Read(size_t frames) {
    std::vector<int16_t> pcm(2 * frames, 0x5555);
    pcm.resize(Session()->InReadPcmData(pcm.data(), 4 * frames) / sizeof(int16_t));
    return pcm;
  }

  std::mutex mutex_;
  std::vector<std::string> notes_;
};

TEST_F(VirtualHeadsetTest, PcmComesInTheReportedLayout) {
  // The tone begins with 0, 0; 428, 639; 848, 1254: 1000 and 1500 Hz, peaks of -20 dBFS.
  const std::tuple<ChannelMode, BitsPerSample, std::vector<uint8_t>> cases[] = {
      {ChannelMode::STEREO, BitsPerSample::BITS_16, {0, 0, 0, 0, 172, 1, 127, 2, 80, 3, 230}},
      {ChannelMode::STEREO, BitsPerSample::BITS_24, {0, 0, 0, 0, 0, 0, 0, 172, 1, 0, 127, 2, 0}},
      {ChannelMode::STEREO, BitsPerSample::BITS_32, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 172, 1, 0, 0}},
      {ChannelMode::MONO, BitsPerSample::BITS_16, {0, 0, 21, 2, 27, 4}},
      {ChannelMode::UNKNOWN, BitsPerSample::BITS_UNKNOWN, {0, 0, 0, 0, 172, 1, 127, 2}},
  };
  for (const auto& [channels, bits, expected] : cases) {
    Settings settings{Source::kTone, ""};
    settings.parameters = PcmParameters{SampleRate::RATE_UNKNOWN, channels, bits};
    SCOPED_TRACE(toString(*settings.parameters));
    Use(settings);
    EXPECT_EQ(toString(Session()->GetAudioConfig()), toString(*settings.parameters));
    Start();
    // In reads that end within frames.
    std::vector<uint8_t> bytes(expected.size(), 0x55);
    EXPECT_EQ(Session()->InReadPcmData(bytes.data(), 3), 3U);
    EXPECT_EQ(Session()->InReadPcmData(bytes.data() + 3, bytes.size() - 3), bytes.size() - 3);
    EXPECT_EQ(bytes, expected);
  }
}

TEST_F(VirtualHeadsetTest, SceneCirclesTheHead) {
  Use({Source::kScene, ""});
  Start();
  const std::vector<int16_t> scene = Read(16 * 48000);  // once round
  // While the talker is at the right (about 4 s) and the left (about 12 s), the sound reaches the
  // nearer ear first, by about the 0.7 ms that a head makes.
  for (const auto& [second, expected_lag] : {std::pair{4, 35}, std::pair{12, -35}}) {
    const int16_t* const pcm = &scene[static_cast<size_t>(second) * 96000 - 48000];
    std::pair<int64_t, int> best{INT64_MIN, 0};  // correlation and lag of the left ear
    for (int lag = -50; lag <= 50; ++lag) {
      int64_t sum = 0;
      for (int i = 50; i < 47950; ++i) {
        sum += int64_t{pcm[2 * (i + lag)]} * pcm[2 * i + 1];
      }
      best = std::max(best, {sum, lag});
    }
    EXPECT_NEAR(best.second, expected_lag, 8);
  }
}

TEST_F(VirtualHeadsetTest, AReadWaitsForItsSound) {
  Use({Source::kTone, ""}, Pacing::kStepped);
  Start();
  std::thread reader([] { EXPECT_EQ(Read(960).size(), 1920U); });
  ASSERT_TRUE(Wait([](const Activity& a) { return a.reads_waiting == 1; }));
  virtual_headset::Advance(19ms);
  EXPECT_EQ(virtual_headset::GetActivity().reads_waiting, 1U);
  virtual_headset::Advance(41ms);
  reader.join();
  EXPECT_EQ(Read(1920).size(), 3840U);  // a late reader finds all that was captured meanwhile
}

TEST_F(VirtualHeadsetTest, ABlockedReadEndsWithTheStream) {
  const std::function<void()> enders[] = {[] { Session()->StopStream(); },
                                          [] { Do("session-change"); },
                                          [] { Do("instance replaced"); }, virtual_headset::Reset};
  for (const Pacing pacing : {Pacing::kAsFastAsRead, Pacing::kStepped}) {
    for (const auto& end : enders) {
      Use({Source::kTone, ""}, pacing);
      Script(pacing == Pacing::kStepped ? "" : "reads blocking");
      Start();
      std::thread reader([] { EXPECT_THAT(Read(960), IsEmpty()); });
      ASSERT_TRUE(Wait([](const Activity& a) { return a.reads_waiting == 1; }));
      end();
      reader.join();
    }
  }
}

TEST_F(VirtualHeadsetTest, PositionCountsWhatWasDeliveredAndSurvivesAStop) {
  uint64_t delay_ns = 0, bytes = 0;
  timespec time{};
  const auto ask = [&] { return Session()->GetPresentationPosition(&delay_ns, &bytes, &time); };
  EXPECT_FALSE(ask());
  Start();
  Read(100);
  ASSERT_TRUE(ask());
  const long nanoseconds = time.tv_nsec;
  Session()->StopStream();
  EXPECT_THAT(Read(100), IsEmpty());
  Do("position alternating");
  EXPECT_EQ((std::vector{ask(), ask(), ask()}), (std::vector{true, false, true}));
  EXPECT_EQ(std::tuple(delay_ns, bytes, time.tv_nsec), std::tuple(150000000U, 400U, nanoseconds));
}

TEST_F(VirtualHeadsetTest, CallbacksComeAsScripted) {
  // What has been told when the first StartStream returns, from which times count, and 1 s later.
  const std::tuple<const char*, std::vector<std::string>, std::vector<std::string>> cases[] = {
      {"answer FAILURE early twice", {"1 FAILURE", "1 FAILURE"}, {}},
      {"answer SINK_NOT_READY late 1s", {}, {"1 SINK_NOT_READY"}},
      {"answer SUCCESS late 0.3s cookie wrong", {}, {"23131 SUCCESS"}},
      {"answer never\ninside start result LW_ERROR", {"inside 1 LW_ERROR"}, {}},
      {"answer never\nduring start session-change", {"1 changed"}, {}},
      {"answer never\nafter start 700ms session-params # later", {}, {"1 STEREO"}},
      {"answer SUCCESS late 2s", {}, {}},
      {"at 500ms session-params\nevery 400ms session-change cookie 9\nanswer SUCCESS late 1ms\n"
       "at 900ms parameters RATE_48000 MONO BITS_16\nat 1s session-params",
       {},
       {"1 SUCCESS", "9 changed", "1 STEREO", "9 changed", "1 MONO"}},
  };
  for (const auto& [script, before, after] : cases) {
    SCOPED_TRACE(script);
    Use({Source::kTone, ""}, Pacing::kStepped);
    Script(script);
    ASSERT_EQ(Register(), 1);
    virtual_headset::Advance(10s);
    EXPECT_TRUE(Session()->StartStream());
    EXPECT_EQ(Notes(), before);
    virtual_headset::Advance(1s);
    EXPECT_EQ(Notes(), after);
  }
}

TEST_F(VirtualHeadsetTest, WhenReadFastTheSoundAskedForIsTheClock) {
  Script("at 100ms reads empty\nat 140ms reads short 8\nat 200ms session-change");
  Start();
  std::vector<size_t> samples(11);
  std::generate(samples.begin(), samples.end(), [] { return Read(960).size(); });
  EXPECT_THAT(samples, ElementsAre(1920, 1920, 1920, 1920, 1920, 0, 0, 4, 4, 4, 0));

  // Refusals count as 20 ms each: no fault keeps the script from going on. It is 220 ms by now.
  Script("instance absent\nat 300ms instance present\nstart refused\nat 400ms start ok");
  int absent = 0, refused = 0;
  while (Session() == nullptr) {
    ++absent;
  }
  while (!Session()->StartStream()) {
    ++refused;
  }
  EXPECT_EQ(std::pair(absent, refused), std::pair(3, 5));  // 300 ms reached, it is present at once
}

TEST_F(VirtualHeadsetTest, AReplacedSessionServesNothingAndItsCookieIsUsedAgain) {
  const auto old = Session();
  EXPECT_EQ(Register(), 1);
  Do("instance replaced");
  EXPECT_FALSE(old->IsSessionReady() || old->StartStream());
  EXPECT_EQ(Register(), 1);
  Session()->UnregisterStatusCback(1);  // the new one; the old is out of reach
  Do("session-change");
  EXPECT_THAT(Notes(), ElementsAre("1 changed"));
}

TEST_F(VirtualHeadsetTest, UnregisteringWaitsForACallbackInProgress) {
  std::atomic<bool> left{false};
  std::thread remover;
  uint16_t other = 0;
  const auto stay = [&](uint16_t cookie) {
    Session()->UnregisterStatusCback(other);
    remover = std::thread([&left, cookie] {
      Session()->UnregisterStatusCback(cookie);
      EXPECT_TRUE(left);
    });
    EXPECT_TRUE(Wait([](const Activity& a) { return a.unregistrations == 2; }));
    left = true;
  };
  Session()->RegisterStatusCback({nullptr, stay, nullptr});
  const auto called = [](uint16_t) { ADD_FAILURE() << "unregistered while the first was called"; };
  other = Session()->RegisterStatusCback({nullptr, called, nullptr});
  Do("session-change");
  remover.join();
}

TEST_F(VirtualHeadsetTest, AScriptThatCannotBeReadNamesLineAndWhatWasExpected) {
  const std::pair<const char*, const char*> cases[] = {
      {"reads fll", "1: expected full, empty, blocking, short or over, found \"fll\""},
      {"\n\n# comment\nready maybe", "4: expected yes or no, found \"maybe\""},
      {"reads short -1", "1: expected a number from 0 to 1073741824, found \"-1\""},
      {"result SUCCESS cookie 65536", "1: expected a number from 0 to 65535, found \"65536\""},
      {"at 5 ready no", "1: expected a time such as 300ms or 1.5s, found \"5\""},
      {"every 0s ready no", "1: expected a time of 1ms or more, found \"0s\""},
      {"ready no please", "1: expected the end of the line, found \"please\""},
      {"at 1s ready", "1: expected yes or no, found the end of the line"},
  };
  Script("reads empty");
  std::string error;
  for (const auto& [text, expected] : cases) {
    EXPECT_FALSE(virtual_headset::LoadScript(text, "f", &error)) << text;
    EXPECT_EQ(error, std::string("f:") + expected);
  }
  EXPECT_FALSE(virtual_headset::Do("at 1s ready no", &error));  // an action has no time
  Start();
  EXPECT_TRUE(Read(10).empty());  // the script before is still there
}

}  // namespace
