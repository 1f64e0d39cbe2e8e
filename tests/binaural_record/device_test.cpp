// The parameters of the built-in device operations, which steer the recording.
#include <cstring>
#include <tuple>

#include <gmock/gmock.h>

#include "tests/binaural_record/module_fixture.h"

namespace {

using testing::ElementsAre;
using Log = std::vector<std::string>;

constexpr char kTag[] = "BinauralRecordAudioHw";

class Device : public ModuleFixture {
 protected:
  Device() { OpenDevice(); }
  Log Lines() { return ModuleFixture::Lines(kTag); }
};

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

// The re-creation is part of composing an INFO line: with INFO off, the instance stays released.
TEST_F(Device, NewModeRebuildsTheInstanceUnlessInfoIsOff) {
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
  log.SetMinimumPriority(ANDROID_LOG_WARN);
  EXPECT_EQ(SetParameters("binaural_recording_algorithmMode=0"), 0);
  EXPECT_FALSE(runtime().algInited);
  log.Take();
  EXPECT_EQ(Read(3840), 0);
  EXPECT_THAT(log.TakeErrors("BinauralRecordHalStream"),
              ElementsAre("in_read, RingBuffer_write failed--"));
  EXPECT_EQ(stream->stop(stream), 0);
  CloseStream();
  ASSERT_EQ(OpenStream(), 0);
  EXPECT_EQ(runtime().bcapInfo_.mode, 0u);  // the stored mode is taken up
  EXPECT_EQ(Read(3840), 3840);
}

}  // namespace
