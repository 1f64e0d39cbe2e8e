// Parameter strings through the device's and the stream's set and get, in any order, with and without a
// stream. One line of the input is one call: its first character says which.
#include <cstring>

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_runtime.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/surroundings.h"

void FuzzOne(Input& input) {
  const fuzz::Surroundings surroundings;
  audio_hw_device* device = OpenDevice();
  audio_stream_in* stream = nullptr;
  const BinauralStreamInRuntimeParam& runtime = *record_get_runtime_parameters_1_0();
  while (!input.empty()) {
    const std::string line = input.Line();
    const char* text = line.empty() ? "" : line.c_str() + 1;
    switch (line.empty() ? 0 : line[0]) {
      case 'o':
        if (stream == nullptr) {
          OpenStream(device, &stream);
        }
        break;
      case 'c':
        device->close_input_stream(device, stream);
        stream = nullptr;
        break;
      case 'g':
        free(device->get_parameters(device, text));
        break;
      case 'S':
        if (stream != nullptr) {
          FUZZ_CHECK(stream->common.set_parameters(&stream->common, text) == 0);
        }
        break;
      case 'G':
        if (stream != nullptr) {
          char* reply = stream->common.get_parameters(&stream->common, text);
          FUZZ_CHECK(reply != nullptr);
          FUZZ_CHECK(reply[0] == '\0' || reply[strlen(reply) - 1] == ';');
          free(reply);
        }
        break;
      default:
        FUZZ_CHECK(device->set_parameters(device, line.c_str()) == 0);
        FUZZ_CHECK(runtime.algMode <= 3);
        FUZZ_CHECK(runtime.algScene <= 1);
        FUZZ_CHECK(memchr(runtime.btHeadsetName, 0, sizeof(runtime.btHeadsetName)) != nullptr);
        break;
    }
  }
  if (stream != nullptr) {
    device->close_input_stream(device, stream);
  }
  device->common.close(&device->common);
}
