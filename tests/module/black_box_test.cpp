// The built module as the audio service meets it: found and checked by the loader, driven through its
// tables only, beside another library that exports the same names.
#include <dlfcn.h>

#include <filesystem>
#include <vector>

#include <gtest/gtest.h>
#include <hardware/audio.h>

#include "platform/host/binaural_host.h"
#include "platform/host/host_loader.h"
#include "platform/virtual_headset/virtual_headset.h"

namespace {

TEST(BlackBox, RecordsThroughItsTablesBesideADecoy) {
  ASSERT_NE(dlopen(DECOY_FILE, RTLD_NOW | RTLD_GLOBAL), nullptr) << dlerror();
  const std::string odm = testing::TempDir() + "black-box";
  const std::string folder = odm + (sizeof(void*) == 8 ? "/lib64/hw" : "/lib/hw");
  std::filesystem::create_directories(folder);
  std::filesystem::copy_file(MODULE_FILE, folder + "/audio.binaural_record.default.so",
                             std::filesystem::copy_options::overwrite_existing);
  host_redirect("/odm", odm.c_str());
  virtual_headset::Settings settings;
  settings.source = virtual_headset::Source::kTone;
  settings.pacing = virtual_headset::Pacing::kAsFastAsRead;
  std::string error;
  ASSERT_TRUE(virtual_headset::Configure(settings, &error)) << error;

  const hw_module_t* module = nullptr;
  ASSERT_EQ(hw_get_module_by_class("audio", "binaural_record", &module), 0) << host_loader_error();
  EXPECT_NE(module->dso, nullptr);
  hw_device_t* opened = nullptr;
  ASSERT_EQ(module->methods->open(module, AUDIO_HARDWARE_INTERFACE, &opened), 0);
  auto* device = reinterpret_cast<audio_hw_device*>(opened);
  EXPECT_EQ(device->init_check(device), 0);
  EXPECT_EQ(device->set_parameters(device, "binaural_recording_orientation=front"), 0);

  audio_config config{};
  audio_stream_in* stream = nullptr;
  ASSERT_EQ(device->open_input_stream(device, 1, AUDIO_DEVICE_IN_PROXY, &config, &stream,
                                      AUDIO_INPUT_FLAG_NONE, "", AUDIO_SOURCE_MIC),
            0);
  EXPECT_EQ(config.sample_rate, 48000u);
  const size_t period = stream->common.get_buffer_size(&stream->common);
  ASSERT_EQ(period, 3840u);
  std::vector<int16_t> pcm(period / 2);
  int loudest = 0;
  for (int k = 0; k < 50; ++k) {
    ASSERT_EQ(stream->read(stream, pcm.data(), period), 3840);
    for (const int16_t sample : pcm) {
      loudest = std::max(loudest, std::abs(int{sample}));
    }
  }
  EXPECT_GT(loudest, 500) << "the headset's tone has peaks of -20 dBFS";
  int64_t frames = 0;
  int64_t time = 0;
  EXPECT_EQ(stream->get_capture_position(stream, &frames, &time), 0);
  EXPECT_GT(frames, 0);
  EXPECT_EQ(stream->common.standby(&stream->common), 0);
  EXPECT_EQ(stream->read(stream, pcm.data(), period), 3840) << "starts again by itself";
  device->close_input_stream(device, stream);
  EXPECT_EQ(device->common.close(&device->common), 0);
  EXPECT_EQ(dlclose(module->dso), 0);
  host_redirect("/odm", nullptr);
  std::filesystem::remove_all(odm);
}

}  // namespace
