// Any file in place of the coefficient file: read with and without a listener, then taken up by a
// device and a stream for the first headset that it names, in both scenes.
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include <tinyxml2.h>

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_config.h"
#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_runtime.h"
#include "platform/host/binaural_host.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/surroundings.h"

namespace {

// Makes `text` the coefficient file of the next device open.
void SetCoefficientFile(const std::string& text) {
  static const int file = memfd_create("coefficients", 0);
  host_redirect(BINAURAL_ALGO_COEFF_CONFIG_FILE, ("/proc/self/fd/" + std::to_string(file)).c_str());
  FUZZ_CHECK(ftruncate(file, 0) == 0);
  FUZZ_CHECK(pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
}

void CheckStore(const AlgoConfigCoeff& store) {
  for (uint32_t h = 0; h < store.btHeadsetNum; ++h) {
    const BtHeadsetConfig& headset = store.btConfig[h];
    FUZZ_CHECK(headset.nfmNum <= 96 && headset.profileNum <= 5);
    for (uint32_t p = 0; p < headset.profileNum; ++p) {
      const ProfileConfig& profile = headset.profiles[p];
      FUZZ_CHECK(profile.moduleConfigFound == 1 && profile.module >= store.moduleConfig &&
                 profile.module < store.moduleConfig + store.moduleNum);
      for (const uint32_t count : profile.peqBandGainNum) {
        FUZZ_CHECK(count <= 96);
      }
    }
  }
}

}  // namespace

void FuzzOne(Input& input) {
  const fuzz::Surroundings surroundings;
  std::string text;
  while (!input.empty()) {
    text += static_cast<char>(input.Byte());
  }
  SetCoefficientFile(text);

  std::string headset_name;
  for (const bool listening : {false, true}) {
    tinyxml2::XMLDocument document;
    AlgoConfigCoeff store{};
    size_t faults = 0;
    const auto listener = [&faults](const CoefficientFault&) { return ++faults < 1000; };
    const int verdict =
        listening ? ParseCoefficients(BINAURAL_ALGO_COEFF_CONFIG_FILE, &document, &store, listener)
                  : ParseCoefficients(BINAURAL_ALGO_COEFF_CONFIG_FILE, &document, &store);
    FUZZ_CHECK((verdict == 0) == (store.parseConfigSuccessFlag == 1));
    FUZZ_CHECK(!listening || (faults == 0) == (verdict == 0));
    if (verdict == 0) {
      CheckStore(store);
      headset_name = store.btConfig[0].btHeadsetName;
    }
    ReleaseCoefficients(&store);
  }
  audio_hw_device* device = OpenDevice();
  if (headset_name.find_first_of(";=") == std::string::npos) {
    device->set_parameters(device, ("binaural_recording_bt_name=" + headset_name).c_str());
  }
  for (const char* scene : {"back", "front"}) {
    device->set_parameters(device,
                           (std::string("binaural_recording_orientation=") + scene).c_str());
    audio_stream_in* stream = nullptr;
    FUZZ_CHECK(OpenStream(device, &stream) == 0);
    char pcm[256];  // one block with the values of the file
    FUZZ_CHECK(stream->read(stream, pcm, sizeof(pcm)) == sizeof(pcm));
    device->close_input_stream(device, stream);
  }
  device->common.close(&device->common);
}
