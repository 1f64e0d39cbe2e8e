// Orders of calls on one thread that leave one part of the module gone while another still refers to
// it. The sanitizers judge the memory, the results are those of the documents.
#include <gmock/gmock.h>

#include "binaural_record/hidl/2ch-record/1.0/binaural_stream_apis.h"
#include "tests/binaural_record/module_fixture.h"

namespace {

using Sequences = ModuleFixture;

TEST_F(Sequences, SecondOpenThatFailsLeavesTheFirstStreamSilent) {
  ASSERT_EQ(OpenStream(), 0);
  ASSERT_EQ(Read(3840), 3840);
  audio_stream_in* first = stream;
  Headset("parameters RATE_16000 STEREO BITS_16");
  EXPECT_EQ(OpenStream(), -1);
  audio_stream_in* second = stream;
  stream = first;
  EXPECT_EQ(Read(3840), 0);
  EXPECT_EQ(Read(3840), 0);
  CloseStream();
  stream = second;
  EXPECT_EQ(Read(3840), 0);
  CloseStream();
  Headset("parameters RATE_48000 STEREO BITS_16");
  ASSERT_EQ(OpenStream(), 0);
  EXPECT_EQ(Read(3840), 3840);
}

TEST_F(Sequences, ClosingTheFirstOfTwoStreamsLeavesTheDeviceWithoutOne) {
  ASSERT_EQ(OpenStream(), 0);
  audio_stream_in* first = stream;
  ASSERT_EQ(OpenStream(), 0);
  device->close_input_stream(device, first);
  log.Take();
  EXPECT_EQ(device->get_parameters(device, "sup_channels"), nullptr);
  EXPECT_THAT(log.TakeErrors("BinauralRecordAudioHw"),
              testing::ElementsAre("adev_get_parameters_1_0: enter in nullptr"));
  EXPECT_EQ(gStreamIn.load(), nullptr);
  EXPECT_EQ(Read(3840), 0);  // the algorithm went with the first
}

TEST_F(Sequences, FailedOpenKeepsNoBuffersBeyondTheDevice) {
  // With the session's parameters unknown the caller's count: 30 channels at an absurd rate.
  Headset("parameters RATE_UNKNOWN UNKNOWN BITS_UNKNOWN");
  OpenDevice();
  config.sample_rate = 4000000;
  config.channel_mask = 0x80000000u | 0x3FFFFFFFu;
  EXPECT_EQ(device->open_input_stream(device, 13, AUDIO_DEVICE_IN_PROXY, &config, &stream,
                                      AUDIO_INPUT_FLAG_NONE, "", AUDIO_SOURCE_CAMCORDER),
            -1);
  EXPECT_EQ(runtime().frameCount, 1200000u);
  EXPECT_EQ(runtime().preBuff, nullptr);
  EXPECT_EQ(Read(3840), 0);

  Headset("parameters RATE_16000 STEREO BITS_16");
  EXPECT_EQ(OpenStream(), -1);
  EXPECT_NE(runtime().preBuff, nullptr);  // left by the failed sizing
  stream = nullptr;                       // as a framework that forgets it
  CloseDevice();
  EXPECT_EQ(runtime().preBuff, nullptr);
  EXPECT_EQ(runtime().postBuff, nullptr);
}

}  // namespace
