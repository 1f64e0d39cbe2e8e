// Opening, closing, configuration and control of the capture stream.
#include <time.h>

#include <cerrno>

#include <gmock/gmock.h>

#include "binaural_record/binaural_record_device.h"
#include "binaural_record/hidl/2ch-record/1.0/binaural_stream_apis.h"
#include "binaural_record/hidl/2ch-record/1.0/binaural_stream_ops.h"
#include "binaural_record/hidl/binaural_defaults.h"
#include "tests/binaural_record/module_fixture.h"

namespace {

using namespace vendor::corva::bluetooth_audio_extend;
using testing::ElementsAre;

constexpr char kTag[] = "BinauralRecordHalStream";

LoggedLine Line(int priority, const std::string& text) {
  return {priority, kTag, text};
}

class Stream : public ModuleFixture {
 protected:
  BinauralStreamIn& in() { return *reinterpret_cast<BinauralStreamIn*>(stream); }
  audio_stream_in* device_stream() {
    return reinterpret_cast<BinauralRecordDevice*>(device)->input_stream;
  }
};

TEST(StreamDefaults, AreExportedWithTheirValues) {
  EXPECT_EQ(kBinauralInDefaultStateTimeoutMs, 20u);
  EXPECT_EQ(kBinauralInDefaultBufferMs, 20u);
  EXPECT_EQ(kBinauralInDefaultSampleRate, 48000u);
  EXPECT_EQ(kBinauralInDefaultAudioFormatBitsPerSample, 1u);
  EXPECT_EQ(kBinauralInDefaultChannelModeMask, 12u);
}

TEST_F(Stream, BufferSizeQueryCountsWhatThePlatformCounts) {
  const struct {
    uint32_t rate;
    uint32_t mask;
    uint32_t format;
    size_t bytes;
  } kCases[] = {
      {48000, 0xC, AUDIO_FORMAT_PCM_16_BIT, 3840},
      {44100, 0xC, AUDIO_FORMAT_PCM_16_BIT, 3528},
      {48000, 0x10, AUDIO_FORMAT_PCM_16_BIT, 1920},
      {48000, 0xC, AUDIO_FORMAT_PCM_24_BIT_PACKED, 5760},
      {48000, 0xC, AUDIO_FORMAT_PCM_FLOAT, 7680},
      {48000, 0xC, AUDIO_FORMAT_PCM_8_BIT, 1920},
      {48000, 0xC, AUDIO_FORMAT_IEC61937, 3840},
      {48000, 0xC, AUDIO_FORMAT_MP3, 0},
      {48000, 0x80000003, AUDIO_FORMAT_PCM_16_BIT, 3840},  // index mask
      {48000, 0x4000000C, AUDIO_FORMAT_PCM_16_BIT, 0},     // neither
      {48000, 0x3, AUDIO_FORMAT_PCM_16_BIT, 0},            // no input positions
      {49, 0xC, AUDIO_FORMAT_PCM_16_BIT, 0},
      {250000000, 0xC, AUDIO_FORMAT_PCM_16_BIT, 2820128},  // 20 * rate wraps at 32 bits
  };
  OpenDevice();
  for (const auto& c : kCases) {
    audio_config asked{};
    asked.sample_rate = c.rate;
    asked.channel_mask = c.mask;
    asked.format = static_cast<audio_format_t>(c.format);
    EXPECT_EQ(device->get_input_buffer_size(device, &asked), c.bytes)
        << c.rate << " " << c.mask << " " << c.format;
  }
  log.Take();
  EXPECT_EQ(device->get_input_buffer_size(device, nullptr), 0u);
  EXPECT_THAT(log.TakeErrors(kTag),
              ElementsAre("binaural_stream_input_buffer_size enter: param error---"));
}

TEST_F(Stream, OpensInTheSessionsConfiguration) {
  constexpr ChannelMode kStereo = ChannelMode::STEREO;
  const struct {
    PcmParameters session;
    uint32_t rate;
    uint32_t mask;
    uint32_t format;
    size_t buffer_bytes;
    int result;
  } kCases[] = {
      {{SampleRate::RATE_48000, kStereo, BitsPerSample::BITS_16}, 48000, 12, 1, 3840, 0},
      {{SampleRate::RATE_44100, kStereo, BitsPerSample::BITS_16}, 44100, 12, 1, 3528, 0},
      {{SampleRate::RATE_48000, ChannelMode::MONO, BitsPerSample::BITS_16}, 48000, 16, 1, 1920, 0},
      // The library takes no other rate than 44.1 and 48 kHz.
      {{SampleRate::RATE_16000, kStereo, BitsPerSample::BITS_24}, 16000, 12, 6, 1280, -1},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.rate);
    UseParameters(c.session);
    log.Take();
    EXPECT_EQ(OpenStream(), c.result);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(config.sample_rate, c.rate);
    EXPECT_EQ(stream->common.get_sample_rate(&stream->common), c.rate);
    EXPECT_EQ(stream->common.get_channels(&stream->common), c.mask);
    EXPECT_EQ(stream->common.get_format(&stream->common), c.format);
    EXPECT_EQ(stream->common.get_buffer_size(&stream->common), c.buffer_bytes);
    EXPECT_EQ(runtime().frameCount, c.buffer_bytes / 4);
    EXPECT_EQ(device_stream(), stream);
    EXPECT_EQ(gStreamIn, &in());
    CloseStream();
    EXPECT_EQ(device_stream(), nullptr);
    EXPECT_EQ(gStreamIn, nullptr);
  }
}

TEST_F(Stream, OpenAndCloseLogTheirSteps) {
  OpenDevice();
  log.SetMinimumPriority(ANDROID_LOG_VERBOSE);
  log.Take();
  ASSERT_EQ(OpenStream(), 0);
  EXPECT_THAT(
      log.Take(kTag),
      ElementsAre(Line(ANDROID_LOG_INFO, "binaural_open_input_stream enter-"),
                  Line(ANDROID_LOG_VERBOSE, "binaural_open_input_stream: device=0x81000000"),
                  Line(ANDROID_LOG_INFO,
                       "binaural_open_input_stream: state=STANDBY, sample_rate=48000, "
                       "channels=c, format=1, frames=960")));
  CloseStream();
  EXPECT_THAT(
      log.Take(kTag),
      ElementsAre(Line(ANDROID_LOG_VERBOSE, "binaural_close_input_stream: state=STANDBY, stopping"),
                  Line(ANDROID_LOG_VERBOSE, "binaural_close_input_stream: state=DISABLED, stopped"),
                  Line(ANDROID_LOG_INFO, "binaural_close_input_stream out")));
}

TEST_F(Stream, RefusedSetUpPublishesNothing) {
  OpenDevice();
  EXPECT_EQ(OpenStream(AUDIO_DEVICE_IN_BUILTIN_MIC), -EINVAL);
  EXPECT_EQ(stream, nullptr);
  EXPECT_EQ(device_stream(), nullptr);
  EXPECT_EQ(gStreamIn, nullptr);
  EXPECT_THAT(log.TakeErrors(kTag), ElementsAre("binaural_open_input_stream enter: SetUp fail---"));
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
  UseParameters({SampleRate::RATE_96000, ChannelMode::STEREO, BitsPerSample::BITS_16});
  EXPECT_EQ(OpenStream(), -1);
  ASSERT_NE(stream, nullptr);
  EXPECT_THAT(log.TakeErrors(kTag),
              ElementsAre("binaural_open_input_stream enter: binaural_algorithm_init_1_0 fail---"));
  audio_stream_in* abandoned = stream;
  EXPECT_EQ(OpenStream(), -1);
  EXPECT_EQ(virtual_headset::GetActivity().unregistrations, 1u);
  log.Take();
  device->close_input_stream(device, abandoned);
  EXPECT_THAT(log.TakeErrors(kTag), testing::SizeIs(1));  // no longer known, ignored
  CloseStream();
  EXPECT_EQ(virtual_headset::GetActivity().unregistrations, 2u);
}

TEST_F(Stream, ForeignAndClosedPointersAreIgnored) {
  ASSERT_EQ(OpenStream(), 0);
  audio_stream_in foreign{};
  audio_stream_in* closed = stream;
  log.Take();
  device->close_input_stream(device, nullptr);
  device->close_input_stream(device, &foreign);
  EXPECT_EQ(log.Take(kTag).size(), 4u);  // an ERROR and the final line each
  EXPECT_EQ(Read(3840), 3840);
  CloseStream();
  device->close_input_stream(device, closed);
  // The memory is still there for a framework that loads a slot once more; the operation refuses.
  EXPECT_EQ(closed->read(closed, read_bytes.data(), 3840), 0);
  EXPECT_EQ(closed->common.get_buffer_size(&closed->common), 0u);
  EXPECT_EQ(closed->common.standby(&closed->common), 0);
}

TEST_F(Stream, GettersReportTheSessionAsItIsNow) {
  ASSERT_EQ(OpenStream(), 0);
  log.SetMinimumPriority(ANDROID_LOG_VERBOSE);
  Headset("parameters RATE_44100 MONO BITS_24");
  log.Take();
  EXPECT_EQ(stream->common.get_sample_rate(&stream->common), 44100u);
  EXPECT_EQ(stream->common.get_channels(&stream->common), 16u);
  EXPECT_EQ(stream->common.get_format(&stream->common), 6u);
  const std::string printed = "audio_config[sample_rate=44100, channels=0x10, format=6]";
  EXPECT_THAT(log.Take(kTag),
              ElementsAre(Line(ANDROID_LOG_VERBOSE, "in_get_sample_rate enter, " + printed),
                          Line(ANDROID_LOG_INFO, "in_get_channels enter,  " + printed),
                          Line(ANDROID_LOG_INFO, "in_get_format enter, " + printed)));
  // Only the configuration at open counts for the setters, until a parameter call reloads it.
  EXPECT_EQ(stream->common.set_sample_rate(&stream->common, 48000), 0);
  EXPECT_EQ(stream->common.set_sample_rate(&stream->common, 44100), -1);
  EXPECT_EQ(stream->common.set_format(&stream->common, AUDIO_FORMAT_PCM_16_BIT), 0);
  EXPECT_EQ(stream->common.set_format(&stream->common, AUDIO_FORMAT_PCM_24_BIT_PACKED), -1);
  EXPECT_EQ(SetStreamParameters("sup_formats"), 0);
  EXPECT_EQ(stream->common.set_sample_rate(&stream->common, 44100), 0);
  EXPECT_EQ(stream->common.get_buffer_size(&stream->common), 3840u);

  Headset("parameters RATE_UNKNOWN STEREO BITS_16");
  log.Take();
  EXPECT_EQ(stream->common.get_sample_rate(&stream->common), 44100u);
  EXPECT_EQ(stream->common.get_channels(&stream->common), 16u);
  EXPECT_EQ(stream->common.get_format(&stream->common), 6u);
  EXPECT_THAT(
      log.Take(kTag),
      ElementsAre(
          Line(ANDROID_LOG_VERBOSE, "in_get_sample_rate: state=STANDBY, sample_rate=44100 failed"),
          Line(ANDROID_LOG_WARN, "in_get_channels: state=STANDBY, channels=0x10 failure"),
          Line(ANDROID_LOG_WARN, "in_get_format: state=STANDBY, format=6 failure")));
}

TEST_F(Stream, ParameterQueriesAnswerFromTheTable) {
  ASSERT_EQ(OpenStream(), 0);
  const struct {
    const char* session;
    const char* keys;
    std::vector<std::string> pairs;  // in any order
  } kCases[] = {
      {"parameters RATE_48000 STEREO BITS_16",
       "sup_sampling_rates;sup_channels",
       {"sup_sampling_rates=48000", "sup_channels=AUDIO_CHANNEL_IN_STEREO"}},
      {"parameters RATE_192000 MONO BITS_32",
       "sup_sampling_rates;sup_channels;sup_formats;other",
       {"sup_sampling_rates=192000", "sup_channels=AUDIO_CHANNEL_IN_MONO",
        "sup_formats=AUDIO_FORMAT_PCM_32_BIT"}},
      {"parameters RATE_24000 STEREO BITS_24",
       "sup_sampling_rates=1;sup_formats",
       {"sup_sampling_rates=24000", "sup_formats=AUDIO_FORMAT_PCM_24_BIT_PACKED"}},
      // Nothing loaded: the values are outside the table.
      {"parameters RATE_UNKNOWN STEREO BITS_16", "sup_sampling_rates", {"sup_sampling_rates="}},
      {"parameters RATE_48000 STEREO BITS_16", "other", {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.session);
    Headset(c.session);
    const std::string reply = GetStreamParameters(c.keys);
    size_t length = 0;
    for (const std::string& pair : c.pairs) {
      EXPECT_NE(reply.find(pair + ";"), std::string::npos) << reply;
      length += pair.size() + 1;
    }
    EXPECT_EQ(reply.size(), length);
  }
  log.Take();
  EXPECT_EQ(GetStreamParameters(""), "");
  EXPECT_THAT(log.TakeErrors(kTag), ElementsAre("in_get_parameters: ParseAudioParams fail------"));
}

// RecordSuspended and standby, by port state.
TEST_F(Stream, SuspendingDisablesAndAnyOtherValueGoesBackToStandby) {
  ASSERT_EQ(OpenStream(), 0);
  ASSERT_EQ(Read(3840), 3840);
  log.Take();
  EXPECT_EQ(SetStreamParameters("RecordSuspended=true"), 0);
  EXPECT_EQ(in().bluetooth_input_.GetState(), BinauralStreamState::DISABLED);
  EXPECT_EQ(virtual_headset::GetActivity().stops, 1u);
  EXPECT_EQ(SetStreamParameters("RecordSuspended=true"), 0);
  EXPECT_EQ(virtual_headset::GetActivity().stops, 1u);
  EXPECT_EQ(SetStreamParameters("RecordSuspended=TRUE"), 0);
  EXPECT_EQ(in().bluetooth_input_.GetState(), BinauralStreamState::STANDBY);
  EXPECT_EQ(SetStreamParameters("RecordSuspended;routing=7"), 0);
  EXPECT_THAT(
      log.Take(kTag),
      ElementsAre(
          Line(ANDROID_LOG_WARN, "in_set_parameters: state=STARTED stream param stopped"),
          Line(ANDROID_LOG_WARN, "in_set_parameters: state=DISABLED stream param stopped"),
          Line(ANDROID_LOG_WARN, "in_set_parameters: state=DISABLED stream param standby"),
          Line(ANDROID_LOG_INFO, "in_set_parameters: state=STANDBY, stream param 'routing=7'"),
          Line(ANDROID_LOG_WARN, "in_set_parameters: state=STANDBY stream param standby")));
}

TEST_F(Stream, StartStopAndStandbyFollowThePortsState) {
  ASSERT_EQ(OpenStream(), 0);
  log.SetMinimumPriority(ANDROID_LOG_VERBOSE);
  log.Take();
  EXPECT_EQ(stream->start(stream), 0);
  EXPECT_EQ(stream->start(stream), 0);
  EXPECT_EQ(stream->common.standby(&stream->common), 0);
  EXPECT_EQ(stream->common.standby(&stream->common), 0);
  in().bluetooth_input_.SetState(BinauralStreamState::STARTING);
  EXPECT_EQ(stream->common.standby(&stream->common), -EBUSY);
  in().bluetooth_input_.SetState(BinauralStreamState::STANDBY);
  EXPECT_EQ(stream->stop(stream), 0);
  EXPECT_EQ(stream->stop(stream), 0);
  EXPECT_THAT(
      log.Take(kTag),
      ElementsAre(Line(ANDROID_LOG_INFO, "in_start: state=STARTED, in_start (start) ret=0"),
                  Line(ANDROID_LOG_INFO, "in_start: state=STARTED already in_start"),
                  Line(ANDROID_LOG_INFO, "in_standby: state=STARTED being standby (suspend)"),
                  Line(ANDROID_LOG_VERBOSE, "in_standby: state=DISABLED standby (stop) retval=0"),
                  Line(ANDROID_LOG_INFO, "in_standby: state=DISABLED being standby (suspend)"),
                  Line(ANDROID_LOG_DEBUG, "in_standby: state=DISABLED standby already"),
                  Line(ANDROID_LOG_VERBOSE, "in_standby: state=DISABLED standby (stop) retval=0"),
                  Line(ANDROID_LOG_INFO, "in_standby: state=STARTING being standby (suspend)"),
                  Line(ANDROID_LOG_WARN, "in_standby: state=STARTING NOT ready to be standby"),
                  Line(ANDROID_LOG_VERBOSE, "in_standby: state=STARTING standby (stop) retval=-16"),
                  Line(ANDROID_LOG_INFO, "in_stop: state=DISABLED already in_stop")));
  EXPECT_EQ(virtual_headset::GetActivity().stops, 1u);  // none from STANDBY
}

TEST_F(Stream, StopEmptiesTheBuffersAndStandbyKeepsThem) {
  ASSERT_EQ(OpenStream(), 0);
  ASSERT_EQ(Read(3840), 3840);
  stream->common.standby(&stream->common);
  EXPECT_EQ(RingBuffer_available_data(runtime().preBuff), 3584);
  EXPECT_EQ(RingBuffer_available_data(runtime().postBuff), 256);
  stream->start(stream);
  stream->stop(stream);
  EXPECT_EQ(RingBuffer_available_data(runtime().preBuff), 0);
  EXPECT_EQ(RingBuffer_available_data(runtime().postBuff), 0);
}

TEST_F(Stream, StartAndStopWithoutAStreamOnlyLog) {
  EXPECT_EQ(in_start(nullptr), 0);
  EXPECT_EQ(in_stop(nullptr), 0);
  EXPECT_EQ(in_set_parameters(nullptr, "RecordSuspended=true"), 0);
  EXPECT_THAT(log.Take(kTag),
              ElementsAre(Line(ANDROID_LOG_ERROR, "in_startgStreamIn == nullptr error---"),
                          Line(ANDROID_LOG_ERROR, "in_stopgStreamIn == nullptr error---"),
                          Line(ANDROID_LOG_WARN, "in_set_parameters: input has closed, return")));
}

TEST_F(Stream, SavedPositionsComeOldestFirstThenThePortAnswers) {
  ASSERT_EQ(OpenStream(), 0);
  runtime().saved[0] = {10, 100, true};
  runtime().saved[1] = {20, 200, true};
  Headset("position failing");
  int64_t frames = 0;
  int64_t time = 0;
  EXPECT_EQ(stream->get_capture_position(stream, &frames, &time), 0);
  EXPECT_EQ(frames, 10);
  EXPECT_EQ(time, 100);
  EXPECT_FALSE(runtime().saved[1].used);
  EXPECT_EQ(stream->get_capture_position(stream, &frames, &time), 0);
  EXPECT_EQ(frames, 20);
  EXPECT_EQ(time, 200);
  EXPECT_FALSE(runtime().saved[0].used);
  EXPECT_EQ(stream->get_capture_position(stream, &frames, &time), 0);
  EXPECT_EQ(frames, 960);  // one period, although nothing was read
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  const int64_t now_ns = int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
  EXPECT_LE(time, now_ns);
  EXPECT_GT(time, now_ns - 60000000000);
  EXPECT_EQ(stream->get_capture_position(stream, nullptr, nullptr), 0);
}

// Bytes are counted as 16-bit stereo, and the delay is divided down to milliseconds before it is taken
// from nanoseconds: 250 ms count as 250 ns.
TEST_F(Stream, PortPositionIsConvertedAsRequired) {
  // The later rows overflow where a count or a time is kept in 32 bits.
  const struct {
    const char* given;  // bytes, time in ns, delay in ns
    int64_t frames;
    int64_t time;
  } kCases[] = {
      {"position given 3843 5000000400 250000000", 960, 5000000150},
      {"position given 17179869188 5000000400 0", 4294967297, 5000000400},
      {"position given 4 400000000000000 0", 1, 400000000000000},
  };
  ASSERT_EQ(OpenStream(), 0);
  for (const auto& c : kCases) {
    Headset(c.given);
    int64_t frames = 0;
    int64_t time = 0;
    EXPECT_EQ(stream->get_capture_position(stream, &frames, &time), 0);
    EXPECT_EQ(frames, c.frames);
    EXPECT_EQ(time, c.time);
  }
}

TEST_F(Stream, CountedPositionGoesPast32Bits) {
  ASSERT_EQ(OpenStream(), 0);
  in().frames_read_ = 4294967290;
  ASSERT_EQ(Read(3840), 3840);
  Headset("position failing");
  runtime().saved[0] = {};
  int64_t frames = 0;
  int64_t time = 0;
  EXPECT_EQ(stream->get_capture_position(stream, &frames, &time), 0);
  EXPECT_EQ(frames, 4294969210);  // one period read, and the one to come
}

TEST_F(Stream, EffectsAndMicrophoneControlsAreAcceptedAndIgnored) {
  ASSERT_EQ(OpenStream(), 0);
  EXPECT_EQ(stream->common.add_audio_effect(&stream->common, nullptr), 0);
  EXPECT_EQ(stream->common.remove_audio_effect(&stream->common, nullptr), 0);
  EXPECT_EQ(stream->set_gain(stream, 2.0F), 0);
  EXPECT_EQ(stream->get_input_frames_lost(stream), 0u);
  size_t count = 9;
  EXPECT_EQ(stream->get_active_microphones(stream, nullptr, &count), 0);
  EXPECT_EQ(count, 9u);
  EXPECT_EQ(stream->set_microphone_direction(stream, MIC_DIRECTION_BACK), 0);
  EXPECT_EQ(stream->set_microphone_field_dimension(stream, 1), 0);
  stream->update_sink_metadata(stream, nullptr);
  EXPECT_EQ(stream->common.dump(&stream->common, -1), 0);
  EXPECT_EQ(stream->common.get_device, nullptr);
  EXPECT_EQ(stream->common.set_device, nullptr);
  EXPECT_EQ(stream->create_mmap_buffer, nullptr);
  EXPECT_EQ(stream->get_mmap_position, nullptr);
}

}  // namespace
