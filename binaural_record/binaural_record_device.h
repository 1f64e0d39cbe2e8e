// The device record that the module's `open` hands to the audio service.
#ifndef BINAURAL_RECORD_BINAURAL_RECORD_DEVICE_H_
#define BINAURAL_RECORD_BINAURAL_RECORD_DEVICE_H_

#include <stddef.h>

#include <atomic>
#include <type_traits>

#include <hardware/audio.h>

struct BinauralRecordDevice {
  audio_hw_device device;  // first: the framework's pointer is the record's pointer
  // The open input stream or null. Set by stream open, cleared by stream close, read by the device's
  // parameter operations; only through the registry (live_objects.h).
  std::atomic<audio_stream_in*> input_stream;
};

static_assert(std::is_standard_layout<BinauralRecordDevice>::value,
              "the platform's pointer is cast to the record");
static_assert(offsetof(BinauralRecordDevice, device) == 0,
              "the platform's pointer is cast to the record");
static_assert(offsetof(BinauralRecordDevice, input_stream) == sizeof(audio_hw_device),
              "input_stream follows the platform record directly");
#if !defined(__LP64__)
static_assert(offsetof(BinauralRecordDevice, input_stream) == 164 &&
                  sizeof(BinauralRecordDevice) == 168,
              "layout of the record on 32-bit devices");
#else
static_assert(offsetof(BinauralRecordDevice, input_stream) == 320 &&
                  sizeof(BinauralRecordDevice) == 328,
              "layout of the record on 64-bit hosts");
#endif

#endif  // BINAURAL_RECORD_BINAURAL_RECORD_DEVICE_H_
