// hpf: takes direct current and handling rumble away and leaves the voice alone: third-order Butterworth at
// 60 Hz, -28.6 dB at 20 Hz, -0.07 dB at 120 Hz.
// Trapezoidal integrators, which keep their precision at low corner frequencies in single precision:
// V. Zavalishin, "The Art of VA Filter Design", 2012, section 3.10 (first order), and A. Simper, "Solving
// the continuous SVF equations using trapezoidal integration and equivalent currents", 2013 (second order).
// Scale [-1, 1) float; latency 0 samples.
#pragma once

#include <array>
#include <cstdint>

#include "block_filter.h"
#include "delay_line.h"
#include "ramp.h"

namespace bcap {

class HighPass {
 public:
  void Prepare(uint32_t sample_rate_hz);  // then Reset()
  void Reset();
  // In place; real time. wet: 0 off, 1 on, and between while the switch changes.
  void Process(StereoBlock block, const Ramp& wet);

 private:
  BlockFilter<3> filter_;
  std::array<BlockFilter<3>::State, kEars> state_{};
};

}  // namespace bcap
