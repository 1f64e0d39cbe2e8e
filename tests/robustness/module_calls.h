// The two calls with which everything begins, for tests that load the module into their own program.
#pragma once

#include <hardware/audio.h>

#include "binaural_record/binaural_record_if.h"

// Null when the module refuses.
inline audio_hw_device* OpenDevice() {
  hw_device_t* opened = nullptr;
  const int result = HMI.methods->open(&HMI, AUDIO_HARDWARE_INTERFACE, &opened);
  return result == 0 ? reinterpret_cast<audio_hw_device*>(opened) : nullptr;
}

inline int OpenStream(audio_hw_device* device, audio_stream_in** stream) {
  audio_config config{};
  return device->open_input_stream(device, 13, AUDIO_DEVICE_IN_PROXY, &config, stream,
                                   AUDIO_INPUT_FLAG_NONE, "", AUDIO_SOURCE_CAMCORDER);
}
