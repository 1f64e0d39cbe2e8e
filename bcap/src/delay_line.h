// A block on its way through the library, and a plain delay of it.
#pragma once

#include <array>
#include <cstddef>

#include "transform.h"

namespace bcap {

// One block of both ears, float, scale [-1, 1), in somebody's memory.
struct StereoBlock {
  float* left;
  float* right;
  float* ear(size_t index) const { return index == 0 ? left : right; }
};

// The memory of one block.
struct StereoSamples {
  std::array<float, kBlockFrames> left;
  std::array<float, kBlockFrames> right;
  StereoBlock block() { return {left.data(), right.data()}; }
};

// Delays both ears by a fixed number of samples, bit for bit. Latency: as prepared.
template <size_t kMaxDelay>
class DelayLine {
 public:
  // delay_samples: 1 to kMaxDelay.
  void Prepare(size_t delay_samples) {
    delay_ = delay_samples;
    Reset();
  }
  void Reset() {
    position_ = 0;
    history_ = {};
  }
  // In place; real time.
  void Process(StereoBlock block) {
    for (size_t ear = 0; ear < kEars; ++ear) {
      float* samples = block.ear(ear);
      size_t at = position_;
      for (size_t n = 0; n < kBlockFrames; ++n) {
        const float delayed = history_[ear][at];
        history_[ear][at] = samples[n];
        samples[n] = delayed;
        at = at + 1 == delay_ ? 0 : at + 1;
      }
    }
    position_ = (position_ + kBlockFrames) % delay_;
  }

 private:
  size_t delay_ = kMaxDelay;
  size_t position_ = 0;
  std::array<std::array<float, kMaxDelay>, kEars> history_{};
};

}  // namespace bcap
