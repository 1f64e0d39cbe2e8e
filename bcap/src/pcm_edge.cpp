// 16-bit to float and back; see pcm_edge.h. Real time: no allocation, lock, log, wait or file.
#include "pcm_edge.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace bcap {

void load_pcm(const bcap_buffer_desc_t& in, StereoBlock block) {
  for (size_t ear = 0; ear < kEars; ++ear) {
    // Copied byte by byte: nothing says that the caller's addresses are aligned.
    const auto* from = reinterpret_cast<const char*>(in.channels[ear]);
    float* samples = block.ear(ear);
    for (size_t n = 0; n < kBlockFrames; ++n) {
      int16_t sample = 0;
      std::memcpy(&sample, from + n * in.sample_stride_bytes, sizeof(sample));
      samples[n] = static_cast<float>(sample) * (1.0f / 32768.0f);
    }
  }
}

bool store_pcm(StereoBlock block, const bcap_buffer_desc_t& out) {
  bool finite = true;
  for (size_t ear = 0; ear < std::min<size_t>(kEars, out.channel_count); ++ear) {
    const float* samples = block.ear(ear);
    std::array<int16_t, kBlockFrames> pcm;
    uint32_t not_finite = 0;
    for (size_t n = 0; n < kBlockFrames; ++n) {
      // All ones in the exponent: infinity or not a number.
      uint32_t bits = 0;
      std::memcpy(&bits, &samples[n], sizeof(bits));
      not_finite |= (bits & 0x7F800000u) == 0x7F800000u ? 1u : 0u;
      const float scaled = samples[n] * 32768.0f;
      // In this order of operands the comparisons turn what is not a number into the lower bound.
      const float bounded = std::min(std::max(-32768.0f, scaled), 32767.0f);
      pcm[n] = static_cast<int16_t>(static_cast<int32_t>(bounded + std::copysign(0.5f, bounded)));
    }
    if (not_finite != 0) {
      pcm.fill(0);
      finite = false;
    }
    auto* to = reinterpret_cast<char*>(out.channels[ear]);
    for (size_t n = 0; n < kBlockFrames; ++n) {
      std::memcpy(to + n * out.sample_stride_bytes, &pcm[n], sizeof(int16_t));
    }
  }
  return finite;
}

}  // namespace bcap
