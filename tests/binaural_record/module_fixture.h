// The module in this process with a virtual headset behind it and a folder of the test's own in place
// of /odm. Every test begins with the module's globals as they are at load.
#ifndef TESTS_BINAURAL_RECORD_MODULE_FIXTURE_H_
#define TESTS_BINAURAL_RECORD_MODULE_FIXTURE_H_

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <hardware/audio.h>

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_runtime.h"
#include "tests/support/headset_control.h"
#include "tests/support/log_capture.h"

class ModuleFixture : public testing::Test {
 public:
  ModuleFixture();
  ~ModuleFixture() override;

  // --- Surroundings ---
  // Plays `samples` (interleaved stereo, 48 kHz), then nothing.
  void UsePcm(const std::vector<int16_t>& samples);
  // One action of the fault script language, now.
  static void Headset(const std::string& action) { Do(action); }
  void WriteCoefficients(const std::string& xml);

  // --- The module ---
  void OpenDevice();
  void CloseDevice();
  int OpenStream(audio_devices_t devices = AUDIO_DEVICE_IN_PROXY);
  void CloseStream();
  ssize_t Read(size_t bytes);  // into `read_bytes`
  int SetParameters(const std::string& text) {
    return device->set_parameters(device, text.c_str());
  }

  // The lines of one tag since the last call, as "I text".
  std::vector<std::string> Lines(const std::string& tag) { return log.TakeTexts(tag); }

  BinauralStreamInRuntimeParam& runtime() { return *record_get_runtime_parameters_1_0(); }

  std::string folder;  // stands for /odm
  audio_hw_device* device = nullptr;
  audio_stream_in* stream = nullptr;
  audio_config config{};
  std::vector<uint8_t> read_bytes;
  LogCapture log{ANDROID_LOG_INFO};
};

// A coefficient file of one headset, "Buds", with all stages off, so that the library only delays.
std::string AllOffCoefficients();

#endif  // TESTS_BINAURAL_RECORD_MODULE_FIXTURE_H_
