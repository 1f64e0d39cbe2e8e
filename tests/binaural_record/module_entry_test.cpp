// Device open and close, the choice of generation, and what the wrappers do with it.
#include "binaural_record/binaural_record_if.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <tuple>

#include <sys/stat.h>

#include <gmock/gmock.h>

#include "binaural_record/binaural_record_device.h"
#include "platform/host/binaural_host.h"
#include "platform/virtual_headset/factory_client.h"
#include "tests/binaural_record/module_fixture.h"

namespace {

using testing::ElementsAre;

constexpr char kTag[] = "BinauralRecordIf";
constexpr char kLibrary[] = "/odm/lib64/hw/libbinaural_record_bcap-2.0.so";
const std::string kComplete = LIB_2_0_FOLDER "/complete.so";

std::string Version(const std::string& version) {
  return "<?xml version=\"1.0\"?><tuning bnc_verson=\"" + version + "\"/>";
}

class ModuleEntry : public ModuleFixture {
 protected:
  // What the 2.0 library noted since the last call.
  std::string Lib20Calls() {
    auto* calls = static_cast<char*>(dlsym(lib_2_0_handle, "fake_lib_2_0_calls"));
    std::string text = calls;
    *calls = '\0';
    return text;
  }

  // Opens the device with a file of generation 2.0 and `library` in the place of its library.
  void OpenWithLibrary(const std::string& library) {
    WriteCoefficients(Version("1.4.0"));
    host_redirect(kLibrary, library.c_str());
    gAlgoVersion = 7;
    OpenDevice();
    EXPECT_EQ(gAlgoVersion, library == kComplete ? 2 : 0);
  }
  ~ModuleEntry() override { host_redirect(kLibrary, nullptr); }
};

TEST_F(ModuleEntry, RecordIsWhatTheLoaderExpects) {
  EXPECT_EQ(HMI.tag, 0x48574D54u);
  EXPECT_EQ(HMI.module_api_version, 0x0001);
  EXPECT_EQ(HMI.hal_api_version, 0x0100);
  EXPECT_STREQ(HMI.id, "audio");
  EXPECT_STREQ(HMI.name, "Binaural Record HAL");
  HMI.dso = &HMI;  // as the loader does: the record must be writable
  HMI.dso = nullptr;
}

TEST_F(ModuleEntry, OtherInterfaceNamesAreRefused) {
  for (const char* name : {"audio", "", "audio_hw_if2", static_cast<const char*>(nullptr)}) {
    auto* untouched = reinterpret_cast<hw_device_t*>(&name);
    hw_device_t* opened = untouched;
    EXPECT_EQ(HMI.methods->open(&HMI, name, &opened), -EINVAL);
    EXPECT_EQ(opened, untouched);
  }
  EXPECT_EQ(HMI.methods->open(&HMI, "audio_hw_if", nullptr), -EINVAL);
}

TEST_F(ModuleEntry, FirstOpenWithoutAFileGivesAUsableDevice) {
  const uint64_t factory_calls = virtual_headset::FactoryCreateCalls();
  OpenDevice();
  EXPECT_EQ(virtual_headset::FactoryCreateCalls(), factory_calls + 1);
  EXPECT_EQ(device->common.tag, 0x48574454u);
  EXPECT_EQ(device->common.version, 0x0200u);
  EXPECT_EQ(device->common.module, &HMI);
  // Null is the only sign of absence that a client has.
  EXPECT_TRUE(!device->get_supported_devices && !device->get_microphones);
  EXPECT_TRUE(!device->create_audio_patch && !device->release_audio_patch);
  EXPECT_TRUE(!device->get_audio_port && !device->set_audio_port_config);
  EXPECT_TRUE(!device->add_device_effect && !device->remove_device_effect);
  EXPECT_EQ(reinterpret_cast<BinauralRecordDevice*>(device)->input_stream, nullptr);
  EXPECT_THAT(Lines(kTag),
              ElementsAre("I adev_binaural_record_open: name=[audio_hw_if]",
                          "I adev_binaural_record_open get BINAURAL_ALGO_COEFF_CONFIG_FILE fail."));
}

// What each file makes of a generation that was 7 before; 7 means unchanged. The last line is given
// without the function's name.
TEST_F(ModuleEntry, FileDecidesTheGeneration) {
  const std::tuple<std::string, int32_t, std::string> kCases[] = {
      {"no xml", 7, "I get BINAURAL_ALGO_COEFF_CONFIG_FILE fail."},
      {"<tuning bnc_verson=\"1.1.0\"/>", 7,
       "E Load BINAURAL_ALGO_COEFF_CONFIG_FILE declaration NULL."},
      {"<?xml version=\"1.0\"?><tuned/>", 7, "E Load BinauralCoeff fail."},
      {"<?xml version=\"1.0\"?><tuning/>", 7, "E Load moduleName fail."},
      {Version("1.1.0"), 1, "E: adev_parse_algo_config_coeff failed, name=[audio_hw_if]"},
      {AllOffCoefficients(), 1, "I binaural get configVersion algo 1.0."},
      {Version("1.2.0"), 0, "I binaural algo bcn_version config error, please check.."},
      {Version(" 1.1.0"), 0, "I binaural algo bcn_version config error, please check.."},
      {Version("1.4.0"), 0, "E: access or load_bcap_2_0_lib failed."},
  };
  for (const auto& [file, generation, last_line] : kCases) {
    SCOPED_TRACE(file);
    WriteCoefficients(file);
    gAlgoVersion = 7;
    OpenDevice();
    EXPECT_EQ(gAlgoVersion, generation);
    std::string line = Lines(kTag).back();
    EXPECT_EQ(line.erase(1, strlen(" adev_binaural_record_open")), last_line);
    CloseDevice();
    EXPECT_EQ(gAlgoVersion, generation);  // close keeps it
  }
}

TEST_F(ModuleEntry, FolderOrPipeInPlaceOfTheFileIsRefusedAtOnce) {
  const std::string path = folder + "/etc/binaural_record_algo_coeffs.xml";
  for (const bool pipe : {false, true}) {
    ASSERT_EQ(pipe ? mkfifo(path.c_str(), 0600) : mkdir(path.c_str(), 0700), 0);
    OpenDevice();
    EXPECT_THAT(log.TakeErrors(kTag),
                ElementsAre("adev_binaural_record_open: /odm/etc/binaural_record_algo_coeffs.xml "
                            "is not a regular file"));
    CloseDevice();
    std::filesystem::remove(path);
  }
}

TEST_F(ModuleEntry, Generation2ForwardsEveryOperationWithItsArguments) {
  OpenWithLibrary(kComplete);
  EXPECT_EQ(Lib20Calls(), "parse_algo_config_coeff() ");
  float volume = 0;
  bool flag = false;
  audio_config forwarded{};
  forwarded.sample_rate = 44100;
  audio_stream_out* out = nullptr;
  audio_stream_in* in = nullptr;
  EXPECT_EQ(device->init_check(device), 105);
  EXPECT_EQ(device->set_voice_volume(device, 0.25F), 106);
  EXPECT_EQ(device->set_master_volume(device, 0.75F), 108);
  EXPECT_EQ(device->get_master_volume(device, &volume), 107);
  EXPECT_EQ(volume, 0.5F);
  EXPECT_EQ(device->set_mode(device, AUDIO_MODE_IN_CALL), 112);
  EXPECT_EQ(device->set_mic_mute(device, true), 113);
  EXPECT_EQ(device->get_mic_mute(device, &flag), 114);
  EXPECT_EQ(device->set_parameters(device, "a=1"), 103);
  char* text = device->get_parameters(device, "a");
  EXPECT_STREQ(text, "104");
  free(text);
  EXPECT_EQ(device->get_input_buffer_size(device, &forwarded), 115u);
  EXPECT_EQ(device->open_output_stream(device, 1, 2, AUDIO_OUTPUT_FLAG_NONE, &forwarded, &out, "o"),
            116);
  device->close_output_stream(device, nullptr);
  EXPECT_EQ(device->open_input_stream(device, 3, 4, &forwarded, &in, AUDIO_INPUT_FLAG_RAW, "i",
                                      AUDIO_SOURCE_MIC),
            118);
  device->close_input_stream(device, nullptr);
  EXPECT_EQ(device->dump(device, -1), 120);
  EXPECT_EQ(device->set_master_mute(device, true), 110);
  EXPECT_EQ(device->get_master_mute(device, &flag), 111);
  EXPECT_EQ(Lib20Calls(),
            "init_check() set_voice_volume(0.25) set_master_volume(0.75) get_master_volume() "
            "set_mode(2) set_mic_mute(1) get_mic_mute() set_parameters(a=1) get_parameters(a) "
            "get_input_buffer_size(44100) open_output_stream(1,2,0,44100,o) "
            "close_output_stream(1) open_input_stream(3,4,44100,4,i,1) close_input_stream(1) "
            "dump(-1) set_master_mute(1) get_master_mute() ");
}

TEST_F(ModuleEntry, LibraryThatDoesNotLoadOrLacksAnEntryPointIsUnloadedWhole) {
  // Byte 4 of a library is its word size: 1 for 32 bits, 2 for 64.
  const std::string other_word_size = folder + "/other.so";
  std::filesystem::copy_file(kComplete, other_word_size);
  std::fstream(other_word_size, std::ios::in | std::ios::out | std::ios::binary)
      .seekp(4)
      .put(sizeof(void*) == 8 ? 1 : 2);
  const std::string not_loaded = std::string("dlopen failed for ") + kLibrary;
  std::vector<std::pair<std::string, std::string>> cases = {
      // file, reason
      {folder + "/etc/binaural_record_algo_coeffs.xml", not_loaded},
      {other_word_size, not_loaded}};
  std::istringstream entry_points(
      "parse_algo_config_coeff release_algo_config_coeff set_parameters get_parameters init_check "
      "set_voice_volume get_master_volume set_master_volume set_master_mute get_master_mute "
      "set_mode set_mic_mute get_mic_mute get_input_buffer_size open_output_stream "
      "close_output_stream open_input_stream close_input_stream dump");
  for (std::string name; entry_points >> name;) {
    cases.emplace_back(LIB_2_0_FOLDER "/" + name + ".so",
                       "dlsym lib_2_0_wrapper." + name + " failed.");
  }
  ASSERT_EQ(cases.size(), 21u);
  for (const auto& [file, reason] : cases) {
    SCOPED_TRACE(file);
    OpenWithLibrary(file);
    EXPECT_EQ(lib_2_0_handle, nullptr);
    EXPECT_EQ(lib_2_0_wrapper.set_parameters.load(), nullptr);
    EXPECT_THAT(log.TakeErrors(kTag),
                ElementsAre("load_binaural_2_0_lib: " + reason,
                            "adev_binaural_record_open: access or load_bcap_2_0_lib failed."));
    CloseDevice();
  }
}

TEST_F(ModuleEntry, FailingParseOf2_0ReleasesAndKeepsTheGeneration) {
  OpenWithLibrary(kComplete);
  // A loader reference of the test's own keeps the library's data while the module reloads it.
  void* kept = dlopen(kComplete.c_str(), RTLD_NOW);
  *static_cast<int*>(dlsym(kept, "fake_lib_2_0_parse_result")) = -1;
  Lib20Calls();
  CloseDevice();
  OpenDevice();
  EXPECT_EQ(gAlgoVersion, 2);
  EXPECT_EQ(Lib20Calls(),
            "release_algo_config_coeff() parse_algo_config_coeff() release_algo_config_coeff() ");
  EXPECT_THAT(log.TakeErrors(kTag),
              ElementsAre("adev_binaural_record_open: lib_2_0_wrapper.parse_algo_config_coeff "
                          "failed."));
  *static_cast<int*>(dlsym(kept, "fake_lib_2_0_parse_result")) = 0;
  dlclose(kept);
}

TEST_F(ModuleEntry, AfterCloseInGeneration2OnlyGetParametersStillAnswers) {
  OpenWithLibrary(kComplete);
  audio_hw_device* first = device;
  OpenDevice();
  CloseDevice();
  // Not leaked by the second open: the first close of either device unloads it.
  EXPECT_EQ(dlopen(kComplete.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
  log.Take();
  EXPECT_EQ(gAlgoVersion, 2);
  EXPECT_EQ(adev_get_parameters_hidl(nullptr, "a"), nullptr);  // built in: no stream
  EXPECT_EQ(adev_set_parameters_hidl(nullptr, "a=1"), -1);
  EXPECT_EQ(adev_init_check_hidl(nullptr), -1);
  EXPECT_EQ(adev_get_input_buffer_size_hidl(nullptr, nullptr), 0u);
  adev_close_output_stream_hidl(nullptr, nullptr);
  adev_close_input_stream_hidl(nullptr, nullptr);
  EXPECT_EQ(adev_set_mode_hidl(nullptr, AUDIO_MODE_NORMAL), -1);
  EXPECT_THAT(
      log.TakeErrors(kTag),
      ElementsAre("adev_get_parameters_hidl get lib_2_0_wrapper.get_parameters fail.",
                  "adev_set_parameters_hidl get lib_2_0_wrapper.set_parameters fail.",
                  "adev_init_check_hidl get lib_2_0_wrapper.init_check fail.",
                  "adev_get_input_buffer_size_hidl lib_2_0_wrapper.get_input_buffer_size fail.",
                  "adev_close_output_stream_hidl get lib_2_0_wrapper.close_output_stream fail.",
                  "adev_close_input_stream_hidl lib_2_0_wrapper.close_input_stream fail.",
                  "adev_set_mode_hidl get lib_2_0_wrapper.set_mode fail."));
  device = first;
}

TEST_F(ModuleEntry, AClosedDeviceIsIgnoredAndItsStreamSurvives) {
  ASSERT_EQ(OpenStream(), 0);
  audio_hw_device* closed = device;
  CloseDevice();
  log.Take();
  EXPECT_EQ(adev_binaural_close(&closed->common), 0);
  EXPECT_THAT(log.TakeErrors(kTag), testing::SizeIs(1));
  EXPECT_EQ(Read(3840), 3840);
  adev_close_input_stream_hidl(closed, stream);  // must not follow the freed record
  stream = nullptr;
  EXPECT_EQ(adev_set_parameters_hidl(closed, "routing=1"), 0);
}

}  // namespace
