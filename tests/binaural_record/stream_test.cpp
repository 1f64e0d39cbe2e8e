// Opening, closing, configuration and control of the capture stream.
#include <time.h>

#include <cerrno>
#include <memory>
#include <tuple>

#include <gmock/gmock.h>

#include "binaural_record/binaural_record_device.h"
#include "binaural_record/hidl/2ch-record/1.0/binaural_stream_apis.h"
#include "binaural_record/hidl/2ch-record/1.0/binaural_stream_ops.h"
#include "binaural_record/utils/utils.h"
#include "tests/binaural_record/module_fixture.h"

namespace {

using namespace vendor::corva::bluetooth_audio_extend;
using testing::ElementsAre;
using vendor::corva::binaural_record::utils::AudioParamMap;
using vendor::corva::binaural_record::utils::ParseAudioParams;
using Log = std::vector<std::string>;

constexpr char kTag[] = "BinauralRecordHalStream";

class Stream : public ModuleFixture {
 protected:
  BinauralStreamIn& in() { return *reinterpret_cast<BinauralStreamIn*>(stream); }
  audio_stream& common() { return stream->common; }
  audio_stream_in* device_stream() {
    return reinterpret_cast<BinauralRecordDevice*>(device)->input_stream;
  }
  Log Lines() { return ModuleFixture::Lines(kTag); }
  int SetStreamParameters(const char* text) { return common().set_parameters(&common(), text); }
  std::string GetStreamParameters(const char* keys) {
    char* text = common().get_parameters(&common(), keys);
    return std::unique_ptr<char, decltype(&free)>(text, free).get();
  }
  // Frames and time of the capture position.
  std::pair<int64_t, int64_t> Position() {
    int64_t frames = 0, time = 0;
    EXPECT_EQ(stream->get_capture_position(stream, &frames, &time), 0);
    return {frames, time};
  }
};

class OpenedStream : public Stream {
  void SetUp() override { ASSERT_EQ(OpenStream(), 0); }
};

TEST_F(Stream, BufferSizeQueryCountsWhatThePlatformCounts) {
  OpenDevice();
  const auto size = [this](uint32_t rate, uint32_t mask, uint32_t format) {
    config.sample_rate = rate;
    config.channel_mask = mask;
    config.format = static_cast<audio_format_t>(format);
    return device->get_input_buffer_size(device, &config);
  };
  EXPECT_EQ(size(44100, 0x10, AUDIO_FORMAT_PCM_24_BIT_PACKED), 2646u);
  EXPECT_EQ(size(49, 0xC, AUDIO_FORMAT_PCM_16_BIT), 0u);
  EXPECT_EQ(size(250000000, 0xC, AUDIO_FORMAT_PCM_16_BIT), 2820128u);  // 20 * rate wraps at 32 bits
  log.Take();
  EXPECT_EQ(device->get_input_buffer_size(device, nullptr), 0u);
  EXPECT_EQ(Lines(), Log({"E binaural_stream_input_buffer_size enter: param error---"}));
}

TEST_F(Stream, OpensInTheSessionsConfiguration) {
  // Rate, mask, format and size of the buffer.
  const std::tuple<const char*, std::vector<size_t>, int> kCases[] = {
      {"RATE_44100 STEREO BITS_16", {44100, 12, 1, 3528}, 0},
      {"RATE_48000 MONO BITS_16", {48000, 16, 1, 1920}, 0},
      // The library takes no other rate than 44.1 and 48 kHz.
      {"RATE_16000 STEREO BITS_24", {16000, 12, 6, 1280}, -1},
  };
  for (const auto& [session, expected, result] : kCases) {
    SCOPED_TRACE(session);
    Headset(std::string("parameters ") + session);
    EXPECT_EQ(OpenStream(), result);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ((std::vector<size_t>{config.sample_rate, config.channel_mask, config.format,
                                   common().get_buffer_size(&common())}),
              expected);
    EXPECT_EQ(runtime().frameCount, expected[3] / 4);
    EXPECT_EQ(device_stream(), stream);
    EXPECT_EQ(gStreamIn, &in());
    CloseStream();
    EXPECT_EQ(device_stream(), nullptr);
    EXPECT_EQ(gStreamIn, nullptr);
  }
}

TEST_F(Stream, OpenCloseAndRefusalLogTheirSteps) {
  OpenDevice();
  log.SetMinimumPriority(ANDROID_LOG_VERBOSE);
  log.Take();
  ASSERT_EQ(OpenStream(), 0);
  CloseStream();
  EXPECT_EQ(Lines(), Log({"I binaural_open_input_stream enter-",
                          "V binaural_open_input_stream: device=0x81000000",
                          "I binaural_open_input_stream: state=STANDBY, sample_rate=48000, "
                          "channels=c, format=1, frames=960",
                          "V binaural_close_input_stream: state=STANDBY, stopping",
                          "V binaural_close_input_stream: state=DISABLED, stopped",
                          "I binaural_close_input_stream out"}));

  // A refused set-up publishes nothing.
  EXPECT_EQ(OpenStream(AUDIO_DEVICE_IN_BUILTIN_MIC), -EINVAL);
  EXPECT_EQ(stream, nullptr);
  EXPECT_EQ(device_stream(), nullptr);
  EXPECT_EQ(gStreamIn, nullptr);
  EXPECT_THAT(log.TakeErrors(kTag), ElementsAre("binaural_open_input_stream enter: SetUp fail---"));

  // A session that tells no rate leaves the caller's, here none.
  Headset("parameters RATE_UNKNOWN STEREO BITS_16");
  EXPECT_EQ(OpenStream(), -1);
  EXPECT_THAT(log.TakeErrors(kTag),
              ElementsAre("binaural_open_input_stream: state=STANDBY failed to get audio config",
                          "binaural_open_input_stream enter: binaural_algorithm_init_1_0 fail---"));
}

TEST_F(Stream, CloseKeepsTheFourSettingsOnly) {
  OpenDevice();
  SetParameters("binaural_recording_orientation=front;binaural_recording_mirror=true;"
                "binaural_recording_algorithmMode=1;binaural_recording_bt_name=Buds");
  ASSERT_EQ(OpenStream(), 0);
  ASSERT_EQ(Read(3840), 3840);
  CloseStream();
  BinauralStreamInRuntimeParam expected{};
  expected.algScene = 1;
  expected.mirrorEnabled = true;
  expected.algMode = 1;
  strcpy(expected.btHeadsetName, "Buds");
  EXPECT_EQ(memcmp(&runtime(), &expected, sizeof(expected)), 0);
}

// A failed algorithm leaves the stream published; one that is never closed goes at the next open.
TEST_F(Stream, FailedOpenIsClosedByTheCallerOrReaped) {
  Headset("parameters RATE_96000 STEREO BITS_16");
  EXPECT_EQ(OpenStream(), -1);
  ASSERT_NE(stream, nullptr);
  EXPECT_THAT(log.TakeErrors(kTag),
              ElementsAre("binaural_open_input_stream enter: binaural_algorithm_init_1_0 fail---"));
  audio_stream_in* abandoned = stream;
  audio_hw_device* first = device;
  OpenDevice();
  CloseDevice();
  device = first;
  EXPECT_EQ(virtual_headset::GetActivity().unregistrations, 0u);  // still that of the first device
  runtime().saved[0] = {960, 20000000, true};
  EXPECT_EQ(OpenStream(), -1);
  EXPECT_EQ(virtual_headset::GetActivity().unregistrations, 1u);
  EXPECT_FALSE(runtime().saved[0].used);  // not the new stream's position
  device->close_input_stream(device, abandoned);
  EXPECT_EQ(virtual_headset::GetActivity().unregistrations, 1u);  // no longer known, ignored
  CloseStream();
  EXPECT_EQ(virtual_headset::GetActivity().unregistrations, 2u);
}

TEST_F(OpenedStream, GettersReportTheSessionAsItIsNow) {
  log.SetMinimumPriority(ANDROID_LOG_VERBOSE);
  const auto get = [this] {
    log.Take();
    return std::vector<uint32_t>{common().get_sample_rate(&common()),
                                 common().get_channels(&common()), common().get_format(&common())};
  };
  // What the setters answer to 44.1 and 48 kHz and 16 bits.
  const auto set = [this] {
    log.Take();
    return std::vector{common().set_sample_rate(&common(), 44100),
                       common().set_sample_rate(&common(), 48000),
                       common().set_format(&common(), AUDIO_FORMAT_PCM_16_BIT)};
  };
  Headset("parameters RATE_44100 MONO BITS_24");
  const std::string printed = "audio_config[sample_rate=44100, channels=0x10, format=6]";
  EXPECT_THAT(get(), ElementsAre(44100, 16, 6));
  EXPECT_EQ(Lines(),
            Log({"V in_get_sample_rate enter, " + printed, "I in_get_channels enter,  " + printed,
                 "I in_get_format enter, " + printed}));
  // Only the configuration at open counts for the setters, until a parameter call reloads it.
  EXPECT_THAT(set(), ElementsAre(-1, 0, 0));
  const std::string set_rate = "V in_set_sample_rate: state=STANDBY, sample_rate=48000";
  EXPECT_EQ(Lines(), Log({set_rate, set_rate, "I in_set_format: state=STANDBY, format=1"}));
  EXPECT_EQ(SetStreamParameters("sup_formats"), 0);
  EXPECT_EQ(Lines(), Log({"V in_set_parameters: state=STANDBY, kvpairs=[sup_formats]",
                          "V in_set_parameters: ParamsMap=[key: 'sup_formats' value: ''", "V ]",
                          "V state=STANDBY, sample_rate=44100, channels=0x10, format=6",
                          "V in_set_parameters: state=STANDBY, kvpairs=[sup_formats], retval=0"}));
  EXPECT_THAT(set(), ElementsAre(0, -1, -1));
  EXPECT_EQ(common().get_buffer_size(&common()), 3840u);

  Headset("parameters RATE_UNKNOWN STEREO BITS_16");
  EXPECT_THAT(get(), ElementsAre(44100, 16, 6));
  EXPECT_EQ(Lines(), Log({"V in_get_sample_rate: state=STANDBY, sample_rate=44100 failed",
                          "W in_get_channels: state=STANDBY, channels=0x10 failure",
                          "W in_get_format: state=STANDBY, format=6 failure"}));
  log.SetMinimumPriority(ANDROID_LOG_WARN);
  for (const char* key : {"sup_sampling_rates", "sup_channels", "sup_formats"}) {
    EXPECT_EQ(SetStreamParameters(key), 0);
    EXPECT_EQ(Lines(), Log({"W in_set_parameters: state=STANDBY failed to get audio config"}));
  }
}

TEST_F(OpenedStream, ParameterQueriesAnswerFromTheTable) {
  const auto expect = [this](const std::string& session, const char* keys,
                             const AudioParamMap& reply) {
    Headset("parameters " + session);
    EXPECT_EQ(ParseAudioParams(GetStreamParameters(keys)), reply) << session;
  };
  expect("RATE_48000 STEREO BITS_16", "sup_sampling_rates;sup_channels",
         {{"sup_sampling_rates", "48000"}, {"sup_channels", "AUDIO_CHANNEL_IN_STEREO"}});
  expect("RATE_192000 MONO BITS_32", "sup_sampling_rates;sup_channels;other",
         {{"sup_sampling_rates", "192000"}, {"sup_channels", "AUDIO_CHANNEL_IN_MONO"}});
  expect("RATE_24000 STEREO BITS_24", "sup_sampling_rates=1;sup_formats",
         {{"sup_sampling_rates", "24000"}, {"sup_formats", "AUDIO_FORMAT_PCM_24_BIT_PACKED"}});
  log.SetMinimumPriority(ANDROID_LOG_VERBOSE);
  log.Take();
  expect("RATE_44100 STEREO BITS_32", "sup_formats", {{"sup_formats", "AUDIO_FORMAT_PCM_32_BIT"}});
  EXPECT_EQ(Lines(), Log({"I in_get_parameters: state=STANDBY, keys=[sup_formats]",
                          "V in_get_parameters: state=STANDBY audio_cfg=audio_config["
                          "sample_rate=44100, channels=0xc, format=3]",
                          "I in_get_parameters: state=STANDBY, "
                          "result=[sup_formats=AUDIO_FORMAT_PCM_32_BIT;]"}));
  // Nothing loaded: the values are outside the table.
  expect("RATE_UNKNOWN STEREO BITS_16", "sup_sampling_rates", {{"sup_sampling_rates", ""}});
  expect("RATE_48000 STEREO BITS_16", "other", {});
  EXPECT_EQ(GetStreamParameters(""), "");
  EXPECT_THAT(log.TakeErrors(kTag),
              ElementsAre("in_get_parameters: state=STANDBY failed to get audio config",
                          "in_get_parameters: ParseAudioParams fail------"));
}

TEST_F(OpenedStream, SuspendingDisablesAndAnyOtherValueGoesBackToStandby) {
  ASSERT_EQ(Read(3840), 3840);
  log.Take();
  for (int repeat = 0; repeat < 2; ++repeat) {
    EXPECT_EQ(SetStreamParameters("RecordSuspended=true"), 0);
    EXPECT_EQ(in().bluetooth_input_.GetState(), BinauralStreamState::DISABLED);
    EXPECT_EQ(virtual_headset::GetActivity().stops, 1u);
  }
  EXPECT_EQ(SetStreamParameters("RecordSuspended=TRUE"), 0);
  EXPECT_EQ(in().bluetooth_input_.GetState(), BinauralStreamState::STANDBY);
  // The device hands the whole string on.
  EXPECT_EQ(SetParameters("binaural_recording_mirror=true;RecordSuspended;routing=7"), 0);
  EXPECT_EQ(Lines(), Log({"W in_set_parameters: state=STARTED stream param stopped",
                          "W in_set_parameters: state=DISABLED stream param stopped",
                          "W in_set_parameters: state=DISABLED stream param standby",
                          "I in_set_parameters: state=STANDBY, stream param 'routing=7'",
                          "W in_set_parameters: state=STANDBY stream param standby"}));
}

TEST_F(OpenedStream, StartStopAndStandbyFollowThePortsState) {
  const auto queued = [this] {
    return std::pair(RingBuffer_available_data(runtime().preBuff),
                     RingBuffer_available_data(runtime().postBuff));
  };
  ASSERT_EQ(Read(3840), 3840);
  common().standby(&common());
  EXPECT_EQ(queued(), std::pair(3584, 256));
  log.SetMinimumPriority(ANDROID_LOG_VERBOSE);
  log.Take();
  audio_stream_in other{};  // only the global stream counts
  EXPECT_EQ(stream->start(&other), 0);
  EXPECT_EQ(stream->start(stream), 0);
  EXPECT_EQ(common().standby(&common()), 0);
  EXPECT_EQ(common().standby(&common()), 0);
  in().bluetooth_input_.SetState(BinauralStreamState::STARTING);
  EXPECT_EQ(common().standby(&common()), -EBUSY);
  in().bluetooth_input_.SetState(BinauralStreamState::STANDBY);
  EXPECT_EQ(stream->stop(&other), 0);
  EXPECT_EQ(queued(), std::pair(0, 0));
  EXPECT_EQ(stream->stop(stream), 0);
  EXPECT_EQ(Lines(), Log({"I in_start: state=STARTED, in_start (start) ret=0",
                          "I in_start: state=STARTED already in_start",
                          "I in_standby: state=STARTED being standby (suspend)",
                          "V in_standby: state=DISABLED standby (stop) retval=0",
                          "I in_standby: state=DISABLED being standby (suspend)",
                          "D in_standby: state=DISABLED standby already",
                          "V in_standby: state=DISABLED standby (stop) retval=0",
                          "I in_standby: state=STARTING being standby (suspend)",
                          "W in_standby: state=STARTING NOT ready to be standby",
                          "V in_standby: state=STARTING standby (stop) retval=-16",
                          "I in_stop: state=DISABLED already in_stop"}));
  EXPECT_EQ(virtual_headset::GetActivity().stops, 2u);  // none from STANDBY
}

TEST_F(Stream, StartAndStopWithoutAStreamOnlyLog) {
  EXPECT_EQ(in_start(nullptr), 0);
  EXPECT_EQ(in_stop(nullptr), 0);
  EXPECT_EQ(in_set_parameters(nullptr, "RecordSuspended=true"), 0);
  EXPECT_EQ(Lines(), Log({"E in_startgStreamIn == nullptr error---",
                          "E in_stopgStreamIn == nullptr error---",
                          "W in_set_parameters: input has closed, return"}));
}

TEST_F(OpenedStream, SavedPositionsComeOldestFirstThenTheCount) {
  runtime().saved[0] = {10, 100, true};
  runtime().saved[1] = {20, 200, true};
  Headset("position failing");
  log.Take();
  EXPECT_EQ(Position(), std::pair(int64_t{10}, int64_t{100}));
  EXPECT_EQ(Position(), std::pair(int64_t{20}, int64_t{200}));
  const auto [frames, time] = Position();
  EXPECT_EQ(frames, 960);  // one period, although nothing was read
  const std::string saved = "I in_get_capture_position enter,  runtimeParams->saved[0].used-----";
  EXPECT_EQ(Lines(), Log({saved, saved,
                          "I obtain_bluetooth_capture_position enter, get fail, using HIDL "
                          "timestamp-----"}));
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  EXPECT_NEAR(static_cast<double>(time) / 1e9, static_cast<double>(now.tv_sec), 60);
  EXPECT_EQ(stream->get_capture_position(stream, nullptr, nullptr), 0);
  in().frames_read_ = 4294967290;
  ASSERT_EQ(Read(3840), 3840);
  runtime().saved[0] = {};
  EXPECT_EQ(Position().first, 4294969210);  // one period read, and the one to come
}

// Bytes are counted as 16-bit stereo, and the delay is divided down to milliseconds before it is taken
// from nanoseconds: 250 ms count as 250 ns.
TEST_F(OpenedStream, PortPositionIsConvertedAsRequired) {
  const std::tuple<const char*, int64_t, int64_t> kCases[] = {
      // Bytes, time in ns, delay in ns.
      {"3843 5000000400 250000000", 960, 5000000150},
      // These overflow where a count or a time is kept in 32 bits.
      {"17179869188 5000000400 0", 4294967297, 5000000400},
      {"4 400000000000000 0", 1, 400000000000000},
  };
  for (const auto& [given, frames, time] : kCases) {
    Headset(std::string("position given ") + given);
    EXPECT_EQ(Position(), std::pair(frames, time)) << given;
  }
}

// What else is done to a closed stream is shown where closing meets a read.
TEST_F(OpenedStream, ForeignPointersAreNotClosed) {
  audio_stream_in foreign{};
  log.Take();
  device->close_input_stream(device, nullptr);
  device->close_input_stream(device, &foreign);
  EXPECT_EQ(log.TakeTexts(kTag).size(), 4u);  // an ERROR and the final line each
  EXPECT_EQ(Read(3840), 3840);
}

TEST_F(OpenedStream, EffectsAndMicrophoneControlsAreAcceptedAndIgnored) {
  log.SetMinimumPriority(ANDROID_LOG_VERBOSE);
  log.Take();
  size_t count = 9;
  const auto effect = reinterpret_cast<effect_handle_t>(0x40);
  const int answers[] = {common().add_audio_effect(&common(), effect),
                         common().remove_audio_effect(&common(), effect),
                         common().dump(&common(), -1),
                         stream->set_gain(stream, 2.0F),
                         static_cast<int>(stream->get_input_frames_lost(stream)),
                         stream->get_active_microphones(stream, nullptr, &count),
                         stream->set_microphone_direction(stream, MIC_DIRECTION_BACK),
                         stream->set_microphone_field_dimension(stream, 1)};
  EXPECT_THAT(answers, testing::Each(0));
  stream->update_sink_metadata(stream, nullptr);
  EXPECT_EQ(Lines(), Log({"V in_add_audio_effect: state=STANDBY, effect=0x40",
                          "V in_remove_audio_effect: state=STANDBY, effect=0x40",
                          "V in_dump: state=STANDBY"}));
  EXPECT_TRUE(!common().get_device && !common().set_device);
  EXPECT_TRUE(!stream->create_mmap_buffer && !stream->get_mmap_position);
}

}  // namespace
