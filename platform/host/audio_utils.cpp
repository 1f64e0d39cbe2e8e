// The audio utilities function that the module links, as the platform defines it.
#include <audio_utils/primitives.h>

void downmix_to_mono_i16_from_stereo_i16(int16_t* dst, const int16_t* src, size_t count) {
  for (size_t frame = 0; frame < count; ++frame) {
    const int32_t sum = int32_t{src[2 * frame]} + int32_t{src[2 * frame + 1]};
    dst[frame] = static_cast<int16_t>(sum >> 1);  // arithmetic: rounds towards minus infinity
  }
}
