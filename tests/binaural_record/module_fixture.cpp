#include "tests/binaural_record/module_fixture.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <sndfile.h>

#include "binaural_record/binaural_record_if.h"
#include "platform/host/binaural_host.h"

namespace {

void Use(virtual_headset::Source source, virtual_headset::Settings settings = {}) {
  settings.source = source;
  settings.pacing = virtual_headset::Pacing::kAsFastAsRead;
  ConfigureHeadset(settings);
}

}  // namespace

ModuleFixture::ModuleFixture() {
  std::string name = testing::TempDir() + "binaural-XXXXXX";
  folder = mkdtemp(name.data());
  std::filesystem::create_directory(folder + "/etc");
  host_redirect("/odm", folder.c_str());
  Use(virtual_headset::Source::kTone);
  gAlgoVersion = 0;
  runtime() = {};
}

ModuleFixture::~ModuleFixture() {
  CloseStream();
  CloseDevice();
  host_redirect("/odm", nullptr);
  std::filesystem::remove_all(folder);
}

void ModuleFixture::UsePcm(const std::vector<int16_t>& samples) {
  virtual_headset::Settings settings;
  settings.wav_path = folder + "/pcm.wav";
  settings.at_end = virtual_headset::AtEnd::kNoData;
  SF_INFO info{0, 48000, 2, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 0, 0};
  SNDFILE* const file = sf_open(settings.wav_path.c_str(), SFM_WRITE, &info);
  sf_write_short(file, samples.data(), static_cast<sf_count_t>(samples.size()));
  sf_close(file);
  Use(virtual_headset::Source::kWavFile, settings);
}

void ModuleFixture::WriteCoefficients(const std::string& xml) {
  std::ofstream(folder + "/etc/binaural_record_algo_coeffs.xml") << xml;
}

void ModuleFixture::OpenDevice() {
  hw_device_t* opened = nullptr;
  ASSERT_EQ(HMI.methods->open(&HMI, AUDIO_HARDWARE_INTERFACE, &opened), 0);
  device = reinterpret_cast<audio_hw_device*>(opened);
}

void ModuleFixture::CloseDevice() {
  if (device != nullptr) {
    EXPECT_EQ(device->common.close(&device->common), 0);
    device = nullptr;
  }
}

int ModuleFixture::OpenStream(audio_devices_t devices) {
  if (device == nullptr) {
    OpenDevice();
  }
  config = {};
  return device->open_input_stream(device, 13, devices, &config, &stream, AUDIO_INPUT_FLAG_NONE, "",
                                   AUDIO_SOURCE_CAMCORDER);
}

void ModuleFixture::CloseStream() {
  if (stream != nullptr) {
    device->close_input_stream(device, stream);
    stream = nullptr;
  }
}

ssize_t ModuleFixture::Read(size_t bytes) {
  read_bytes.assign(bytes, 0);
  return stream->read(stream, read_bytes.data(), bytes);
}

std::string AllOffCoefficients() {
  const std::string profile =
      R"(<include module_name="off"/><peq_band_gain_tuning mode="0" value="0"/></profile>)";
  return R"(<?xml version="1.0"?><tuning bnc_verson="1.1.0"><module name="off"><mode value="0"/>)"
         R"(<mode value="1"/></module><btheadset name="Buds"><nfm_band_energy_tuning value="0"/>)"
         R"(<profile name="normal">)" +
         profile + R"(<profile name="selfie">)" + profile + R"(<profile name="mirror">)" + profile +
         "</btheadset></tuning>";
}
