#include "tests/binaural_record/module_fixture.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "binaural_record/binaural_record_if.h"
#include "platform/host/binaural_host.h"
#include "tests/support/headset_control.h"

namespace {

void Put32(std::string* out, uint32_t value) {
  out->append(reinterpret_cast<const char*>(&value), 4);
}

// Canonical 16-bit stereo WAV; every machine this runs on is little-endian.
std::string Wav(const std::vector<int16_t>& samples) {
  const auto data_bytes = static_cast<uint32_t>(samples.size() * sizeof(int16_t));
  std::string out = "RIFF";
  Put32(&out, 36 + data_bytes);
  out += "WAVEfmt ";
  Put32(&out, 16);
  Put32(&out, 0x00020001);  // PCM, two channels
  Put32(&out, 48000);
  Put32(&out, 48000 * 4);
  Put32(&out, 0x00100004);  // 4 bytes a frame, 16 bits
  out += "data";
  Put32(&out, data_bytes);
  out.append(reinterpret_cast<const char*>(samples.data()), data_bytes);
  return out;
}

}  // namespace

ModuleFixture::ModuleFixture() {
  std::string name = testing::TempDir() + "binaural-XXXXXX";
  folder = mkdtemp(name.data());
  std::filesystem::create_directory(folder + "/etc");
  host_redirect("/odm", folder.c_str());
  virtual_headset::Settings settings;
  settings.source = virtual_headset::Source::kTone;
  settings.pacing = virtual_headset::Pacing::kAsFastAsRead;
  UseHeadset(settings);
  gAlgoVersion = 0;
  runtime() = {};
}

ModuleFixture::~ModuleFixture() {
  CloseStream();
  CloseDevice();
  host_redirect("/odm/lib64/hw/libbinaural_record_bcap-2.0.so", nullptr);
  host_redirect("/odm", nullptr);
  std::filesystem::remove_all(folder);
}

void ModuleFixture::UseHeadset(const virtual_headset::Settings& settings) {
  ConfigureHeadset(settings);
}

void ModuleFixture::UsePcm(const std::vector<int16_t>& samples) {
  std::ofstream(folder + "/pcm.wav", std::ios::binary) << Wav(samples);
  virtual_headset::Settings settings;
  settings.source = virtual_headset::Source::kWavFile;
  settings.wav_path = folder + "/pcm.wav";
  settings.at_end = virtual_headset::AtEnd::kNoData;
  settings.pacing = virtual_headset::Pacing::kAsFastAsRead;
  UseHeadset(settings);
}

void ModuleFixture::UseParameters(const virtual_headset::PcmParameters& parameters) {
  virtual_headset::Settings settings;
  settings.source = virtual_headset::Source::kTone;
  settings.pacing = virtual_headset::Pacing::kAsFastAsRead;
  settings.parameters = parameters;
  UseHeadset(settings);
}

void ModuleFixture::Headset(const std::string& action) {
  Do(action);
}

void ModuleFixture::WriteCoefficients(const std::string& xml) {
  std::ofstream(folder + "/etc/binaural_record_algo_coeffs.xml") << xml;
}

void ModuleFixture::UseLib20(const std::string& file) {
  host_redirect("/odm/lib64/hw/libbinaural_record_bcap-2.0.so", file.c_str());
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

int ModuleFixture::SetParameters(const std::string& text) {
  return device->set_parameters(device, text.c_str());
}

int ModuleFixture::SetStreamParameters(const std::string& text) {
  return stream->common.set_parameters(&stream->common, text.c_str());
}

std::string ModuleFixture::GetStreamParameters(const std::string& keys) {
  char* text = stream->common.get_parameters(&stream->common, keys.c_str());
  const std::string copy = text;
  free(text);
  return copy;
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
