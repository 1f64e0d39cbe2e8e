/*
 * The one function that the module takes from the platform's audio utilities library.
 */
#ifndef AUDIO_UTILS_PRIMITIVES_H
#define AUDIO_UTILS_PRIMITIVES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Mixes `count` stereo frames of 16-bit samples to mono: per frame, in ascending order, the sum of
 * left and right halved and rounded towards minus infinity. The result always fits; ascending order
 * makes dst == src work.
 */
void downmix_to_mono_i16_from_stereo_i16(int16_t* dst, const int16_t* src, size_t count);

#ifdef __cplusplus
}
#endif

#endif /* AUDIO_UTILS_PRIMITIVES_H */
