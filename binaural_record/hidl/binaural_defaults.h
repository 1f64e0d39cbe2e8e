// Exported default constants, shared by the stream (which defines them) and the port.
#ifndef BINAURAL_RECORD_HIDL_BINAURAL_DEFAULTS_H_
#define BINAURAL_RECORD_HIDL_BINAURAL_DEFAULTS_H_

#include <stdint.h>

extern "C" {
// Deliberate: exported for others, not what the port's start waits for.
extern const uint32_t kBinauralInDefaultStateTimeoutMs;
// Period of both buffer size formulas.
extern const uint32_t kBinauralInDefaultBufferMs;
// What LoadAudioConfig reports for a port that is not in use: 48000 Hz, 16-bit PCM (a format code,
// despite the name), stereo.
extern const uint32_t kBinauralInDefaultSampleRate;
extern const uint32_t kBinauralInDefaultAudioFormatBitsPerSample;
extern const uint32_t kBinauralInDefaultChannelModeMask;
}

#endif  // BINAURAL_RECORD_HIDL_BINAURAL_DEFAULTS_H_
