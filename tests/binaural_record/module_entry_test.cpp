// Device open and close, the choice of generation, and what the wrappers do with it.
#include "binaural_record/binaural_record_if.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <tuple>

#include <sys/stat.h>

#include <gmock/gmock.h>

#include "platform/host/binaural_host.h"
#include "platform/virtual_headset/factory_client.h"
#include "tests/binaural_record/module_fixture.h"

namespace {

using testing::ElementsAre;
using Log = std::vector<std::string>;

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

  // What each operation answers, get_parameters last and as a number, -1 for null.
  std::vector<int> CallEveryOperation() {
    bool flag = false;
    audio_config forwarded{};
    forwarded.sample_rate = 44100;
    audio_stream_out* out = nullptr;
    audio_stream_in* in = nullptr;
    std::vector<int> answers = {
        device->init_check(device),
        device->set_voice_volume(device, 0.25F),
        device->set_master_volume(device, 0.75F),
        device->get_master_volume(device, &volume),
        device->set_mode(device, AUDIO_MODE_IN_CALL),
        device->set_mic_mute(device, true),
        device->get_mic_mute(device, &flag),
        device->set_parameters(device, "a=1"),
        static_cast<int>(device->get_input_buffer_size(device, &forwarded)),
        device->open_output_stream(device, 1, 2, AUDIO_OUTPUT_FLAG_NONE, &forwarded, &out, "o"),
        device->open_input_stream(device, 3, 4, &forwarded, &in, AUDIO_INPUT_FLAG_RAW, "i",
                                  AUDIO_SOURCE_MIC),
        device->dump(device, -1),
        device->set_master_mute(device, true),
        device->get_master_mute(device, &flag)};
    char* text = device->get_parameters(device, "a");
    answers.push_back(text == nullptr ? -1 : atoi(text));
    free(text);
    device->close_output_stream(device, nullptr);
    device->close_input_stream(device, nullptr);
    return answers;
  }

  ~ModuleEntry() override { host_redirect(kLibrary, nullptr); }

  float volume = 0;
};

TEST_F(ModuleEntry, OtherInterfaceNamesAreRefused) {
  for (const char* name : {"audio", "", "audio_hw_if2", static_cast<const char*>(nullptr)}) {
    auto* untouched = reinterpret_cast<hw_device_t*>(&name);
    hw_device_t* opened = untouched;
    EXPECT_EQ(HMI.methods->open(&HMI, name, &opened), -EINVAL);
    EXPECT_EQ(opened, untouched);
  }
  EXPECT_EQ(HMI.methods->open(&HMI, "audio_hw_if", nullptr), -EINVAL);
}

TEST_F(ModuleEntry, RecordsAreWhatTheFrameworkExpects) {
  EXPECT_EQ(std::tuple(HMI.tag, HMI.module_api_version, HMI.hal_api_version),
            std::tuple(0x48574D54u, 0x0001, 0x0100));
  EXPECT_STREQ(HMI.id, "audio");
  EXPECT_STREQ(HMI.name, "Binaural Record HAL");
  const uint64_t factory_calls = virtual_headset::FactoryCreateCalls();
  OpenDevice();
  EXPECT_EQ(virtual_headset::FactoryCreateCalls(), factory_calls + 1);
  EXPECT_EQ(std::tuple(device->common.tag, device->common.version, device->common.module),
            std::tuple(0x48574454u, 0x0200u, &HMI));
  // Null is the only sign of absence that a client has.
  EXPECT_TRUE(!device->get_supported_devices && !device->get_microphones);
  EXPECT_TRUE(!device->create_audio_patch && !device->release_audio_patch);
  EXPECT_TRUE(!device->get_audio_port && !device->set_audio_port_config);
  EXPECT_TRUE(!device->add_device_effect && !device->remove_device_effect);
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

TEST_F(ModuleEntry, BuiltInThereIsNoOutputVolumeOrMute) {
  OpenDevice();
  log.SetMinimumPriority(ANDROID_LOG_VERBOSE);
  log.Take();
  volume = 7;
  EXPECT_THAT(CallEveryOperation(), ElementsAre(0, -ENOSYS, -ENOSYS, -ENOSYS, 0, -ENOSYS, -ENOSYS,
                                                0, 0, -EINVAL, -EINVAL, 0, -ENOSYS, -ENOSYS, -1));
  EXPECT_EQ(volume, 7);
  EXPECT_THAT(Lines("BinauralRecordAudioHw"),
              testing::IsSupersetOf(
                  {"V adev_set_voice_volume_1_0: volume=0.25",
                   "V adev_set_master_volume_1_0: volume=0.75", "V adev_set_mode_1_0: mode=2",
                   "V adev_set_mic_mute_1_0: state=1", "V adev_open_output_stream_1_0 enter.",
                   "V adev_set_master_mute_1_0: mute=1", "V adev_close_output_stream_1_0 enter."}));
}

TEST_F(ModuleEntry, Generation2ForwardsEveryOperationWithItsArguments) {
  OpenWithLibrary(kComplete);
  EXPECT_EQ(Lib20Calls(), "parse_algo_config_coeff() ");
  EXPECT_THAT(CallEveryOperation(), ElementsAre(105, 106, 108, 107, 112, 113, 114, 103, 115, 116,
                                                118, 120, 110, 111, 104));
  EXPECT_EQ(volume, 0.5F);
  EXPECT_EQ(Lib20Calls(),
            "init_check() set_voice_volume(0.25) set_master_volume(0.75) get_master_volume() "
            "set_mode(2) set_mic_mute(1) get_mic_mute() set_parameters(a=1) "
            "get_input_buffer_size(44100) open_output_stream(1,2,0,44100,o) "
            "open_input_stream(3,4,44100,4,i,1) dump(-1) set_master_mute(1) get_master_mute() "
            "get_parameters(a) close_output_stream(1) close_input_stream(1) ");
}

// The table is empty, as after a close.
TEST_F(ModuleEntry, AbsentEntryPointsAreNamed) {
  ASSERT_EQ(OpenStream(), 0);
  gAlgoVersion = 2;
  log.Take();
  // Only get_parameters has the built-in operation's answer, the empty text of the open stream.
  EXPECT_THAT(CallEveryOperation(),
              ElementsAre(-1, -1, -1, -1, -1, -1, -1, -1, 0, -1, -1, -1, -1, -1, 0));
  Log expected;
  for (const std::string name :
       {"init_check", "set_voice_volume", "set_master_volume", "get_master_volume", "set_mode",
        "set_mic_mute", "get_mic_mute", "set_parameters", "get_input_buffer_size",
        "open_output_stream", "open_input_stream", "dump", "set_master_mute", "get_master_mute",
        "get_parameters", "close_output_stream", "close_input_stream"}) {
    const bool no_get = name == "get_input_buffer_size" || name == "close_input_stream";
    expected.push_back("E adev_" + name + "_hidl " + (no_get ? "" : "get ") + "lib_2_0_wrapper." +
                       name + " fail.");
  }
  EXPECT_EQ(Lines(kTag), expected);
  gAlgoVersion = 0;  // for the stream's close
}

TEST_F(ModuleEntry, LibraryThatDoesNotLoadOrLacksAnEntryPointIsUnloadedWhole) {
  const std::string loader = "E load_binaural_2_0_lib: ";
  const std::pair<std::string, Log> kCases[] = {
      {folder + "/etc/binaural_record_algo_coeffs.xml", {loader + "dlopen failed for " + kLibrary}},
      {LIB_2_0_FOLDER "/incomplete.so",
       {loader + "dlsym lib_2_0_wrapper.set_mode failed.",
        "I load_binaural_2_0_lib symErr out---"}}};
  for (auto [file, lines] : kCases) {
    OpenWithLibrary(file);
    EXPECT_EQ(lib_2_0_handle, nullptr);
    EXPECT_EQ(lib_2_0_wrapper.set_parameters.load(), nullptr);
    lines.insert(lines.begin(), "I load_binaural_2_0_lib enter.");
    lines.emplace_back("E adev_binaural_record_open: access or load_bcap_2_0_lib failed.");
    const Log logged = Lines(kTag);  // the first four: how the file was read
    EXPECT_EQ(Log(logged.begin() + 4, logged.end()), lines);
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
  EXPECT_EQ(Lib20Calls(), "parse_algo_config_coeff() parse_algo_config_coeff() ");
  CloseDevice();
  // Loaded throughout: streams of the first device may hold addresses of its code.
  void* kept = dlopen(kComplete.c_str(), RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(kept, nullptr);
  dlclose(kept);
  dlclose(kept);
  log.Take();
  EXPECT_EQ(gAlgoVersion, 2);
  EXPECT_EQ(adev_get_parameters_hidl(nullptr, "a"), nullptr);  // built in: no stream
  EXPECT_EQ(adev_set_parameters_hidl(nullptr, "a=1"), -1);
  device = first;
}

TEST_F(ModuleEntry, AClosedDeviceIsIgnoredAndItsStreamSurvives) {
  ASSERT_EQ(OpenStream(), 0);
  audio_hw_device* closed = device;
  CloseDevice();
  log.Take();
  EXPECT_EQ(adev_binaural_close(&closed->common), 0);
  EXPECT_THAT(log.TakeErrors(kTag),
              ElementsAre(testing::EndsWith(" is not an open device, ignored")));
  EXPECT_EQ(Read(3840), 3840);
  adev_close_input_stream_hidl(closed, stream);  // must not follow the freed record
  stream = nullptr;
  EXPECT_EQ(adev_set_parameters_hidl(closed, "routing=1"), 0);
}

}  // namespace
