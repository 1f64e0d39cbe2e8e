// The virtual headset itself: sources, pacing on its stepped clock, and the fault language. What the
// module makes of the faults is tested with the module.
#include "platform/virtual_headset/virtual_headset.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <numeric>
#include <thread>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sndfile.h>

#include "tests/support/headset_control.h"

namespace {

using namespace std::chrono_literals;
using namespace vendor::corva::bluetooth_audio_extend;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using virtual_headset::Activity;
using virtual_headset::AtEnd;
using virtual_headset::Pacing;
using virtual_headset::Settings;
using virtual_headset::Source;

class VirtualHeadsetTest : public testing::Test {
 protected:
  VirtualHeadsetTest() {
    std::string pattern = (std::filesystem::temp_directory_path() / "headsetXXXXXX").string();
    folder_ = mkdtemp(pattern.data());
    Use({Source::kTone, ""});
  }
  ~VirtualHeadsetTest() override {
    virtual_headset::Reset();
    std::filesystem::remove_all(folder_);
  }

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

  // Writes frames of 100, -100, 101, -101, ... (one channel: 100, 101, ...).
  std::string WriteWav(const char* name, int rate_hz, int channels, int frames) const {
    SF_INFO info{0, rate_hz, channels, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 0, 0};
    SNDFILE* const file = sf_open((folder_ / name).c_str(), SFM_WRITE, &info);
    std::vector<int16_t> pcm;
    for (int i = 0; i < frames * channels; ++i) {
      const int value = 100 + i / channels;
      pcm.push_back(static_cast<int16_t>(i % channels == 1 ? -value : value));
    }
    sf_writef_short(file, pcm.data(), frames);
    sf_close(file);
    return folder_ / name;
  }

  // Notes every callback as "result 1 SUCCESS", "changed 1" or "params 1 STEREO".
  uint16_t Register() {
    const auto note = [this](const char* what, uint16_t cookie, const std::string& more) {
      const std::lock_guard<std::mutex> lock(mutex_);
      notes_.push_back(what + std::to_string(cookie) + more);
      threads_.push_back(std::this_thread::get_id());
    };
    return Session()->RegisterStatusCback(
        {[note](uint16_t cookie, bool, const Status& status) {
           note("result ", cookie, " " + toString(status));
         },
         [note](uint16_t cookie) { note("changed ", cookie, ""); },
         [note](uint16_t cookie, const SessionParams& params) {
           note("params ", cookie, " " + toString(params.pcmParameters.channelMode));
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

  std::filesystem::path folder_;
  std::mutex mutex_;
  std::vector<std::string> notes_;
  std::vector<std::thread::id> threads_;
};

TEST_F(VirtualHeadsetTest, ParametersPrintTheirNames) {
  const std::pair<PcmParameters, const char*> cases[] = {
      {{SampleRate(2), ChannelMode(2), BitsPerSample(1)},
       "{.sampleRate = RATE_48000, .channelMode = STEREO, .bitsPerSample = BITS_16}"},
      {{SampleRate(256), ChannelMode(1), BitsPerSample(2)},
       "{.sampleRate = RATE_24000_2, .channelMode = MONO, .bitsPerSample = BITS_24}"},
      {{SampleRate(96), ChannelMode(0), BitsPerSample(4)},
       "{.sampleRate = RATE_24000, .channelMode = UNKNOWN, .bitsPerSample = BITS_32}"},
      {{SampleRate(3), ChannelMode(16), BitsPerSample(0)},
       "{.sampleRate = 0x3, .channelMode = 0x10, .bitsPerSample = BITS_UNKNOWN}"},
  };
  for (const auto& [parameters, expected] : cases) {
    EXPECT_EQ(toString(parameters), expected);
  }
}

TEST_F(VirtualHeadsetTest, AWavFileIsDeliveredFrameByFrameAndThenSilence) {
  // The last read asks for three frames, and one is left.
  const std::tuple<const char*, int, int, AtEnd, std::vector<int16_t>> cases[] = {
      {"stereo.wav", 44100, 2, AtEnd::kSilence, {102, -102, 0, 0, 0, 0}},
      {"mono.wav", 48000, 1, AtEnd::kSilence, {102, 102, 0, 0, 0, 0}},
      {"short.wav", 16000, 2, AtEnd::kNoData, {102, -102}},
  };
  for (const auto& [name, rate_hz, channels, at_end, last_read] : cases) {
    SCOPED_TRACE(name);
    Use({Source::kWavFile, WriteWav(name, rate_hz, channels, 3), at_end});
    EXPECT_EQ(virtual_headset::SourceRateHz(), static_cast<uint32_t>(rate_hz));
    Start();
    EXPECT_EQ(Read(2).front(), 100);
    EXPECT_EQ(virtual_headset::FramesLeft(), 1U);
    EXPECT_EQ(Read(3), last_read);
    EXPECT_EQ(virtual_headset::FramesLeft(), 0U);
    EXPECT_EQ(Read(1).size(), at_end == AtEnd::kSilence ? 2U : 0U);
  }
}

TEST_F(VirtualHeadsetTest, AFileThatCannotBePlayedIsNamedAndChangesNothing) {
  const std::pair<std::string, const char*> cases[] = {
      {"/nowhere/at/all.wav", "/nowhere/at/all.wav: "},
      {WriteWav("six.wav", 48000, 6, 10), "6 channels"},
      {WriteWav("odd.wav", 22050, 2, 10), "22050 Hz"},
  };
  Start();
  for (const auto& [path, expected] : cases) {
    std::string error;
    EXPECT_FALSE(virtual_headset::Configure({Source::kWavFile, path}, &error));
    EXPECT_THAT(error, HasSubstr(expected));
  }
  EXPECT_EQ(Read(8).size(), 16U);
}

TEST_F(VirtualHeadsetTest, PcmComesInTheReportedLayout) {
  Settings settings{Source::kWavFile, WriteWav("a.wav", 48000, 2, 10)};
  // The bytes of frames 100, -100 and 101, -101.
  const std::tuple<ChannelMode, BitsPerSample, std::vector<uint8_t>> cases[] = {
      {ChannelMode::STEREO, BitsPerSample::BITS_16, {100, 0, 156, 255, 101, 0, 155, 255}},
      {ChannelMode::STEREO, BitsPerSample::BITS_24, {0, 100, 0, 0, 156, 255, 0, 101}},
      {ChannelMode::STEREO, BitsPerSample::BITS_32, {0, 0, 100, 0, 0, 0, 156, 255}},
      {ChannelMode::MONO, BitsPerSample::BITS_16, {0, 0, 0, 0, 0, 0, 0, 0}},
      {ChannelMode::UNKNOWN, BitsPerSample::BITS_UNKNOWN, {100, 0, 156, 255, 101, 0, 155, 255}},
  };
  for (const auto& [channels, bits, expected] : cases) {
    settings.parameters = PcmParameters{SampleRate::RATE_UNKNOWN, channels, bits};
    SCOPED_TRACE(toString(*settings.parameters));
    Use(settings);
    EXPECT_EQ(toString(Session()->GetAudioConfig()), toString(*settings.parameters));
    Start();
    // In reads that end within frames.
    std::vector<uint8_t> bytes(8, 0x55);
    EXPECT_EQ(Session()->InReadPcmData(bytes.data(), 3), 3U);
    EXPECT_EQ(Session()->InReadPcmData(bytes.data() + 3, 5), 5U);
    EXPECT_EQ(bytes, expected);
  }
}

TEST_F(VirtualHeadsetTest, ToneHasItsPitchesAndPeak) {
  Start();
  const std::vector<int16_t> pcm = Read(48000);
  int crossings[2] = {};
  for (size_t i = 2; i < pcm.size(); ++i) {
    crossings[i % 2] += pcm[i - 2] < 0 && pcm[i] >= 0;
  }
  EXPECT_NEAR(crossings[0], 1000, 1);
  EXPECT_NEAR(crossings[1], 1500, 1);
  EXPECT_EQ(*std::max_element(pcm.begin(), pcm.end()), 3277);
}

TEST_F(VirtualHeadsetTest, SceneCirclesTheHeadAtAHeadsetsLevel) {
  Settings settings{Source::kScene, ""};
  Use(settings);
  Start();
  const std::vector<int16_t> scene = Read(16 * 48000);  // once round
  // The same seed gives the same sound, another seed another.
  for (const uint32_t seed : {1U, 2U}) {
    settings.seed = seed;
    Use(settings);
    Start();
    EXPECT_EQ(std::equal(scene.begin(), scene.begin() + 960, Read(480).begin()), seed == 1);
  }

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

  // Loud passages near -28 dBFS, quiet ones the room's own noise, no sample near full scale.
  std::vector<double> levels;
  for (size_t i = 0; i + 1920 <= scene.size(); i += 1920) {
    const double power = std::inner_product(&scene[i], &scene[i] + 1920, &scene[i], 0.0) / 1920;
    levels.push_back(10 * std::log10(power / 32768.0 / 32768.0));
  }
  std::sort(levels.begin(), levels.end());
  EXPECT_NEAR(levels[levels.size() * 95 / 100], -28, 3);
  EXPECT_NEAR(levels[levels.size() * 5 / 100], -62, 4);
  EXPECT_LT(*std::max_element(scene.begin(), scene.end()), 16384);
}

TEST_F(VirtualHeadsetTest, AReadWaitsForItsSound) {
  Use({Source::kTone, ""}, Pacing::kStepped);
  Start();
  size_t samples = 0;
  std::thread reader([&] { samples = Read(960).size(); });
  ASSERT_TRUE(Wait([](const Activity& a) { return a.reads_waiting == 1; }));
  virtual_headset::Advance(19ms);
  EXPECT_EQ(virtual_headset::GetActivity().reads_waiting, 1U);
  virtual_headset::Advance(1ms);
  reader.join();
  EXPECT_EQ(samples, 1920U);

  // A late reader finds all that was captured meanwhile.
  virtual_headset::Advance(40ms);
  EXPECT_EQ(Read(960).size(), 1920U);
  EXPECT_EQ(Read(960).size(), 1920U);

  // Real time is not faster than the sound; the stream began before `begin` by what the wake-up took.
  Use({Source::kTone, ""}, Pacing::kRealTime);
  Start();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(Read(4800).size(), 9600U);
  EXPECT_GT(std::chrono::steady_clock::now() - begin, 50ms);
}

TEST_F(VirtualHeadsetTest, ABlockedReadEndsWithTheStream) {
  const std::pair<const char*, std::function<void()>> enders[] = {
      {"stop", [] { Session()->StopStream(); }},
      {"session change", [] { Do("session-change"); }},
      {"replacement", [] { Do("instance replaced"); }},
      {"reset", [] { virtual_headset::Reset(); }},
  };
  for (const bool paced : {false, true}) {
    for (const auto& [name, end] : enders) {
      SCOPED_TRACE(name);
      Use({Source::kTone, ""}, paced ? Pacing::kStepped : Pacing::kAsFastAsRead);
      Script(paced ? "" : "reads blocking");
      Start();
      size_t samples = 1;
      std::thread reader([&] { samples = Read(960).size(); });
      ASSERT_TRUE(Wait([](const Activity& a) { return a.reads_waiting == 1; }));
      end();
      reader.join();
      EXPECT_EQ(samples, 0U);
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
  EXPECT_EQ(bytes, 400U);
  EXPECT_EQ(delay_ns, 150000000U);
  const long nanoseconds = time.tv_nsec;
  Session()->StopStream();
  EXPECT_TRUE(Read(100).empty());
  ASSERT_TRUE(ask());
  EXPECT_EQ(bytes, 400U);
  EXPECT_EQ(time.tv_nsec, nanoseconds);
  Start();
  Do("reads over 24");
  Read(50);
  Do("position alternating");
  EXPECT_TRUE(ask());
  EXPECT_FALSE(ask());
  EXPECT_TRUE(ask());
  EXPECT_EQ(bytes, 600U);  // not what was claimed
}

TEST_F(VirtualHeadsetTest, AnswersComeAsScripted) {
  // What has been told when StartStream returns, and 1 s later.
  const std::tuple<const char*, std::vector<std::string>, std::vector<std::string>> cases[] = {
      {"answer FAILURE early twice", {"result 1 FAILURE", "result 1 FAILURE"}, {}},
      {"answer SINK_NOT_READY late 1s", {}, {"result 1 SINK_NOT_READY"}},
      {"answer 77 late 200ms cookie 513", {}, {"result 513 0x4d"}},
      {"answer SUCCESS late 0.3s cookie wrong", {}, {"result 23131 SUCCESS"}},
      {"answer never\ninside start result LW_ERROR", {"result 1 LW_ERROR"}, {}},
      {"answer never\nduring start session-change", {"changed 1"}, {}},
      {"answer never\nafter start 700ms session-params # later", {}, {"params 1 STEREO"}},
      {"answer SUCCESS late 2s", {}, {}},
  };
  for (const auto& [script, before, after] : cases) {
    SCOPED_TRACE(script);
    Use({Source::kTone, ""}, Pacing::kStepped);
    Script(script);
    ASSERT_EQ(Register(), 1);
    EXPECT_TRUE(Session()->StartStream());
    EXPECT_EQ(Notes(), before);
    virtual_headset::Advance(1s);
    EXPECT_EQ(Notes(), after);
  }
}

TEST_F(VirtualHeadsetTest, CallbacksComeOnTheHeadsetsThreadUnlessInside) {
  Register();
  Do("session-change");
  Do("result SUCCESS");
  Script("inside stop session-change");
  Session()->StopStream();
  ASSERT_EQ(threads_.size(), 3U);
  EXPECT_EQ(threads_[0], threads_[1]);
  EXPECT_NE(threads_[0], std::this_thread::get_id());
  EXPECT_EQ(threads_[2], std::this_thread::get_id());
}

TEST_F(VirtualHeadsetTest, ScriptTimesCountFromTheFirstStart) {
  Use({Source::kTone, ""}, Pacing::kStepped);
  Script("at 500ms session-params\n"
         "every 400ms session-change cookie 9\n"
         "at 900ms parameters RATE_48000 MONO BITS_16\n"
         "at 1s session-params\n");
  Register();
  virtual_headset::Advance(10s);
  EXPECT_THAT(Notes(), IsEmpty());
  Session()->StartStream();
  virtual_headset::Advance(1s);
  EXPECT_THAT(Notes(), ElementsAre("result 1 SUCCESS", "changed 9", "params 1 STEREO", "changed 9",
                                   "params 1 MONO"));
}

TEST_F(VirtualHeadsetTest, WhenReadFastTheSoundAskedForIsTheClock) {
  Script("at 100ms reads empty\nat 140ms reads short 8\nat 200ms session-change");
  Start();
  std::vector<size_t> samples(11);
  std::generate(samples.begin(), samples.end(), [] { return Read(960).size(); });
  EXPECT_THAT(samples, ElementsAre(1920, 1920, 1920, 1920, 1920, 0, 0, 4, 4, 4, 0));

  // Refusals count as 20 ms each: no fault keeps the script from going on. It is 220 ms by now.
  Script("start refused\nat 300ms start ok");
  int refused = 0, absent = 0;
  while (!Session()->StartStream()) {
    ++refused;
  }
  Script("instance absent\nat 400ms instance present");
  while (Session() == nullptr) {
    ++absent;
  }
  EXPECT_EQ(refused, 4);
  EXPECT_EQ(absent, 4);
}

TEST_F(VirtualHeadsetTest, AReplacedSessionServesNothingAndItsCookieIsUsedAgain) {
  const auto old = Session();
  EXPECT_EQ(Register(), 1);
  Start();
  Notes();
  Do("instance replaced");
  ASSERT_NE(Session(), old);
  uint8_t pcm[4];
  EXPECT_FALSE(old->IsSessionReady());
  EXPECT_FALSE(old->StartStream());
  EXPECT_EQ(old->InReadPcmData(pcm, 4), 0U);
  EXPECT_EQ(Register(), 1);
  Session()->UnregisterStatusCback(1);  // the new one; the old is out of reach
  Do("session-change");
  EXPECT_THAT(Notes(), ElementsAre("changed 1"));
}

TEST_F(VirtualHeadsetTest, UnregisteringWaitsForACallbackInProgress) {
  std::atomic<bool> inside{false}, leave{false}, left{false};
  const auto stay = [&](uint16_t) {
    for (inside = true; !leave;) {
      std::this_thread::yield();
    }
    left = true;
  };
  const uint16_t cookie = Session()->RegisterStatusCback({nullptr, stay, nullptr});
  std::thread caller([] { Do("session-change"); });
  while (!inside) {
    std::this_thread::yield();
  }
  std::thread remover([&] {
    Session()->UnregisterStatusCback(cookie);
    EXPECT_TRUE(left);
  });
  ASSERT_TRUE(Wait([](const Activity& a) { return a.unregistrations == 1; }));
  leave = true;
  remover.join();
  caller.join();
}

TEST_F(VirtualHeadsetTest, AScriptThatCannotBeReadNamesLineAndWhatWasExpected) {
  const std::pair<const char*, const char*> cases[] = {
      {"reads fll", "1: expected full, empty, blocking, short or over, found \"fll\""},
      {"\n\n# comment\nready maybe", "4: expected yes or no, found \"maybe\""},
      {"reads short", "1: expected a number from 0 to 1073741824, found the end of the line"},
      {"reads short -1", "1: expected a number from 0 to 1073741824, found \"-1\""},
      {"at 5 ready no", "1: expected a time such as 300ms or 1.5s, found \"5\""},
      {"at -1s ready no", "1: expected a time such as 300ms or 1.5s, found \"-1s\""},
      {"every 0s ready no", "1: expected a time of 1ms or more, found \"0s\""},
      {"during sleep ready no",
       "1: expected register, unregister, start, stop or read, found \"sleep\""},
      {"ready no please", "1: expected the end of the line, found \"please\""},
      {"result SUCCESS cookie 65536", "1: expected a number from 0 to 65535, found \"65536\""},
      {"at 1s", "1: expected instance, ready, register, start, answer, reads, position, "
                "parameters, result, session-change or session-params, found the end of the line"},
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

TEST_F(VirtualHeadsetTest, EveryScriptInTheDocumentationCanBeRead) {
  std::ifstream document(VIRTUAL_HEADSET_DOCUMENT);
  int scripts = 0;
  for (std::string line; std::getline(document, line);) {
    if (line == "```fault") {
      std::string script;
      while (std::getline(document, line) && line != "```") {
        script += line + "\n";
      }
      Script(script);
      ++scripts;
    }
  }
  EXPECT_GE(scripts, 5);
}

}  // namespace
