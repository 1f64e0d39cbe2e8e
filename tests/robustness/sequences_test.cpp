// Orders of calls on one thread that leave one part of the module gone while another still refers to
// it. The sanitizers judge the memory, the results are those of the documents.
#include <filesystem>
#include <string>

#include <gmock/gmock.h>

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_config.h"
#include "binaural_record/hidl/2ch-record/1.0/binaural_stream_apis.h"
#include "tests/binaural_record/module_fixture.h"

namespace {

using vendor::corva::bluetooth_audio_extend::BitsPerSample;
using vendor::corva::bluetooth_audio_extend::ChannelMode;
using vendor::corva::bluetooth_audio_extend::SampleRate;

using Sequences = ModuleFixture;

// Each way in which a device open can end before it reads the coefficients.
TEST_F(Sequences, StreamAfterTheCoefficientsAreGoneUsesTheBuiltInValues) {
  const struct {
    const char* name;
    const char* text;  // null: no file
  } kSecondFiles[] = {
      {"missing", nullptr},
      {"not XML", "<tuning"},
      {"no declaration", "<tuning bnc_verson=\"1.1.0\"/>"},
      {"no tuning", "<?xml version=\"1.0\"?><other/>"},
      {"no version", "<?xml version=\"1.0\"?><tuning/>"},
      {"another version", "<?xml version=\"1.0\"?><tuning bnc_verson=\"1.2.0\"/>"},
  };
  for (const auto& second_file : kSecondFiles) {
    SCOPED_TRACE(second_file.name);
    WriteCoefficients(AllOffCoefficients());
    OpenDevice();
    SetParameters("binaural_recording_bt_name=Buds");
    CloseDevice();
    const AlgoConfigCoeff& store = *get_bcap_algo_config_coeff_1_0();
    ASSERT_EQ(store.parseConfigSuccessFlag, 1u);  // released, and still says so
    ASSERT_EQ(store.btHeadsetNum, 1u);
    if (second_file.text == nullptr) {
      std::filesystem::remove(folder + "/etc/binaural_record_algo_coeffs.xml");
    } else {
      WriteCoefficients(second_file.text);
    }
    EXPECT_EQ(OpenStream(), 0);
    EXPECT_EQ(Read(3840), 3840);
    CloseStream();
    CloseDevice();
  }
}

TEST_F(Sequences, CoefficientsReleasedByAnotherDeviceAreNotUsed) {
  WriteCoefficients(AllOffCoefficients());
  ASSERT_EQ(OpenStream(), 0);
  audio_hw_device* first = device;
  OpenDevice();
  CloseDevice();
  device = first;
  EXPECT_EQ(SetParameters("binaural_recording_bt_name=Buds;binaural_recording_algorithmMode=1"), 0);
  EXPECT_EQ(SetParameters("binaural_recording_algorithmMode=0"), 0);
  EXPECT_EQ(Read(3840), 3840);
}

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

TEST_F(Sequences, RepeatedFailingOpensKeepNoMemory) {
  UseParameters({SampleRate::RATE_UNKNOWN, ChannelMode::UNKNOWN, BitsPerSample::BITS_UNKNOWN});
  OpenDevice();
  for (int n = 0; n < 3; ++n) {
    // With the session's parameters unknown, the caller's count: 30 channels at an absurd rate.
    audio_config absurd{};
    absurd.sample_rate = 4000000;
    absurd.channel_mask = 0x80000000u | 0x3FFFFFFFu;
    absurd.format = AUDIO_FORMAT_PCM_16_BIT;
    EXPECT_EQ(device->open_input_stream(device, 13, AUDIO_DEVICE_IN_PROXY, &absurd, &stream,
                                        AUDIO_INPUT_FLAG_NONE, "", AUDIO_SOURCE_CAMCORDER),
              -1);
    EXPECT_EQ(runtime().preBuff, nullptr);
    EXPECT_EQ(runtime().postBuff, nullptr);
  }
  EXPECT_EQ(Read(3840), 0);
}

TEST_F(Sequences, AbandonedFailedOpenKeepsNoBuffersBeyondTheDevice) {
  UseParameters({SampleRate::RATE_16000, ChannelMode::STEREO, BitsPerSample::BITS_16});
  EXPECT_EQ(OpenStream(), -1);
  EXPECT_NE(runtime().preBuff, nullptr);  // left by the failed sizing
  stream = nullptr;                       // as a framework that forgets it
  CloseDevice();
  EXPECT_EQ(runtime().preBuff, nullptr);
  EXPECT_EQ(runtime().postBuff, nullptr);
}

}  // namespace
