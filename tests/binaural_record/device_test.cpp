// The built-in device operations: fixed answers and the parameters that steer the recording.
#include <cerrno>
#include <cstring>
#include <tuple>

#include <gmock/gmock.h>

#include "tests/binaural_record/module_fixture.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using Log = std::vector<std::string>;

constexpr char kTag[] = "BinauralRecordAudioHw";
constexpr char kStreamTag[] = "BinauralRecordHalStream";

class Device : public ModuleFixture {
 protected:
  Device() { OpenDevice(); }
  Log Lines() { return ModuleFixture::Lines(kTag); }
};

TEST_F(Device, HasNoOutputVolumeOrMute) {
  log.SetMinimumPriority(ANDROID_LOG_VERBOSE);
  float volume = 7;
  bool flag = true;
  audio_stream_out* out = nullptr;
  EXPECT_EQ(device->init_check(device), 0);
  const int answers[] = {
      device->set_voice_volume(device, 0.5F),     device->set_master_volume(device, 1),
      device->get_master_volume(device, &volume), device->set_master_mute(device, true),
      device->get_master_mute(device, &flag),     device->set_mic_mute(device, false),
      device->get_mic_mute(device, &flag)};
  EXPECT_THAT(answers, testing::Each(-ENOSYS));
  EXPECT_EQ(device->set_mode(device, static_cast<audio_mode_t>(-1)), 0);
  EXPECT_EQ(device->dump(device, -1), 0);
  EXPECT_EQ(device->open_output_stream(device, 0, 0, AUDIO_OUTPUT_FLAG_NONE, &config, &out, ""),
            -EINVAL);
  device->close_output_stream(device, out);
  EXPECT_EQ(volume, 7);
  EXPECT_TRUE(flag);
  EXPECT_EQ(Lines(),
            Log({"V adev_set_voice_volume_1_0: volume=0.5",
                 "V adev_set_master_volume_1_0: volume=1", "V adev_set_master_mute_1_0: mute=1",
                 "V adev_set_mic_mute_1_0: state=0", "V adev_set_mode_1_0: mode=-1",
                 "V adev_open_output_stream_1_0 enter.", "V adev_close_output_stream_1_0 enter."}));
}

// One string against the four settings; the record begins as scene 0, mirror off, mode 0, "old".
TEST_F(Device, ParametersAreStoredOrRefused) {
  const std::string of = "binaural_recording_";
  const std::string info = "I adev_set_parameters_1_0: ", error = "E adev_set_parameters_1_0: ";
  const std::string orientation = info + "found binaural_recording_orientation.";
  const std::string mirror = info + "found binaural_recording_mirror.";
  const std::string selfie = info + "scene_selfie.", selfie_set = info + "runtimePara->algScene=1";
  const std::string normal = info + "scene_normal", normal_set = info + "runtimePara->algScene=0";
  const std::string on = info + "mirror true.", off = info + "mirror false.";
  const std::string mode = info + "binaural_recording_algorithmMode ";
  const std::string bad_mode = error + "binaural_recording_algorithmMode params error with ";
  const auto bad = [&](const std::string& key) { return error + of + key + " set error."; };
  const std::tuple<std::string, uint32_t, bool, uint32_t, std::string, Log> kCases[] = {
      {of + "orientation=back", 0, false, 0, "old", {orientation, normal, normal_set}},
      {of + "orientation=Back", 0, false, 0, "old", {orientation, bad("orientation")}},
      {of + "mirror=false", 0, false, 0, "old", {mirror, off}},
      {of + "mirror=", 0, false, 0, "old", {mirror, bad("mirror")}},
      {of + "algorithmMode=3", 0, false, 3, "old", {mode + "3"}},
      {of + "algorithmMode=02", 0, false, 0, "old", {mode + "02", bad_mode + "02"}},
      {of + "bt_name=" + std::string(200, 'n'), 0, false, 0, std::string(127, 'n'), {}},
      // Fixed order, whatever the order in the string; a bad value does not stop the rest.
      {of + "bt_name=;" + of + "algorithmMode=4;" + of + "mirror=true;" + of + "orientation=front",
       1,
       true,
       0,
       "",
       {orientation, selfie, selfie_set, mirror, on, mode + "4", bad_mode + "4"}},
  };
  for (const auto& [text, scene, mirrored, mode_number, name, lines] : kCases) {
    SCOPED_TRACE(text);
    runtime() = {};
    strcpy(runtime().btHeadsetName, "old");
    log.Take();
    EXPECT_EQ(SetParameters(text), 0);
    EXPECT_EQ(runtime().algScene, scene);
    EXPECT_EQ(runtime().mirrorEnabled, mirrored);
    EXPECT_EQ(runtime().algMode, mode_number);
    EXPECT_EQ(runtime().btHeadsetName, name);
    EXPECT_EQ(Lines(), lines);
  }
  EXPECT_EQ(device->set_parameters(device, nullptr), 0);
}

TEST_F(Device, WithoutAStreamSetIsQuietAndGetAnswersNull) {
  log.SetMinimumPriority(ANDROID_LOG_VERBOSE);
  log.Take();
  EXPECT_EQ(SetParameters("binaural_recording_bt_name=a"), 0);
  EXPECT_EQ(device->get_parameters(device, "a"), nullptr);
  EXPECT_EQ(device->get_parameters(device, ""), nullptr);
  EXPECT_EQ(device->get_parameters(device, nullptr), nullptr);
  EXPECT_EQ(Lines(), Log({"V adev_set_parameters_1_0: "
                          "ParamsMap=[key: 'binaural_recording_bt_name' value: 'a'",
                          "V ]", "V adev_set_parameters_1_0: found binaural_recording_bt_name a",
                          "V adev_set_parameters_1_0: enter in nullptr.",
                          "V adev_get_parameters_1_0: ParamsMap=[key: 'a' value: ''", "V ]",
                          "E adev_get_parameters_1_0: enter in nullptr"}));
}

TEST_F(Device, NewModeRebuildsTheInstanceAndTheSameModeDoesNot) {
  ASSERT_EQ(OpenStream(), 0);
  for (const bool same : {false, true}) {
    log.Take();
    runtime().preBuff->end = 5;
    EXPECT_EQ(SetParameters("binaural_recording_algorithmMode=1"), 0);
    EXPECT_EQ(runtime().bcapInfo_.mode, 1u);
    EXPECT_EQ(runtime().preBuff->end, same ? 5 : 0);
    EXPECT_EQ(Lines().back(),
              same ? "I adev_set_parameters_1_0: binaural_recording_algorithmMode 1"
                   : "I adev_set_parameters_1_0: mode= 1, and algorithm_init_1_0 ret 0");
  }
}

// The re-creation is part of composing an INFO line: with INFO off, the instance stays released.
TEST_F(Device, WithInfoOffAModeChangeLeavesNoInstance) {
  ASSERT_EQ(OpenStream(), 0);
  ASSERT_EQ(Read(3840), 3840);
  log.SetMinimumPriority(ANDROID_LOG_WARN);
  EXPECT_EQ(SetParameters("binaural_recording_algorithmMode=1"), 0);
  EXPECT_FALSE(runtime().algInited);
  log.Take();
  EXPECT_EQ(Read(3840), 0);
  EXPECT_THAT(log.TakeErrors(kStreamTag), ElementsAre("in_read, RingBuffer_write failed--"));
  EXPECT_EQ(stream->stop(stream), 0);
  CloseStream();
  log.SetMinimumPriority(ANDROID_LOG_INFO);
  ASSERT_EQ(OpenStream(), 0);
  EXPECT_EQ(runtime().bcapInfo_.mode, 1u);  // the stored mode is taken up
  EXPECT_EQ(Read(3840), 3840);
}

TEST_F(Device, TheWholeStringGoesOnToItsOwnStream) {
  ASSERT_EQ(OpenStream(), 0);
  audio_hw_device* first = device;
  OpenDevice();
  CloseDevice();
  device = first;
  log.SetMinimumPriority(ANDROID_LOG_VERBOSE);
  // The stream belongs to the first record; the second one's close took nothing from it.
  EXPECT_EQ(SetParameters("binaural_recording_mirror=true;routing=5"), 0);
  EXPECT_THAT(ModuleFixture::Lines(kStreamTag),
              Contains("V in_set_parameters: state=STANDBY, "
                       "kvpairs=[binaural_recording_mirror=true;routing=5]"));
}

}  // namespace
