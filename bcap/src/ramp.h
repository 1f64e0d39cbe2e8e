// A factor that moves to a new value along a straight line over one block, so that no change clicks.
#pragma once

#include <array>
#include <cstdint>

#include "delay_line.h"

namespace bcap {

constexpr int32_t kBlockLength = kBlockFrames;  // as the index type that vectorises with At()

// What is left of the way at each sample of a block, from just under 1 to 0: a table is read faster than a number of a
// sample is made a float.
inline constexpr auto kWayLeft = [] {
  std::array<float, kBlockFrames> left{};
  for (int32_t n = 0; n < kBlockLength; ++n) {
    left[static_cast<size_t>(n)] =
        static_cast<float>(kBlockLength - 1 - n) / static_cast<float>(kBlockLength);
  }
  return left;
}();

class Ramp {
 public:
  void Snap(float value) { from_ = to_ = value; }
  // Once per block, before At().
  void Aim(float value) {
    from_ = to_;
    to_ = value;
  }
  bool Is(float value) const { return from_ == value && to_ == value; }
  // n: 0 .. kBlockLength - 1; the last sample of the block has the new value, exactly.
  float At(int32_t n) const { return to_ + (from_ - to_) * kWayLeft[static_cast<size_t>(n)]; }
  float target() const { return to_; }

 private:
  float from_ = 0.0f;
  float to_ = 0.0f;
};

// Multiplies one ear; a factor that rests at 1 leaves every bit alone.
inline void apply_ramp(const Ramp& ramp, float* samples) {
  if (ramp.Is(1.0f)) {
    return;
  }
  for (int32_t n = 0; n < kBlockLength; ++n) {
    samples[n] *= ramp.At(n);
  }
}

}  // namespace bcap
