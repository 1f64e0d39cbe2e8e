// hpf; see high_pass.h. Real time: no allocation, lock, log, wait or file.
#include "high_pass.h"

#include <algorithm>
#include <cmath>

#include "constexpr_math.h"

namespace bcap {
namespace {

// Lower leaves more rumble (at 46 Hz 20 Hz would be down 21.7 dB only), higher thins out deep voices.
constexpr double kCornerHz = 60.0;

}  // namespace

void HighPass::Prepare(uint32_t sample_rate_hz) {
  const double g = std::tan(kPi * kCornerHz / sample_rate_hz);
  constexpr double kDamping = 1.0;  // of the second-order half of a third-order Butterworth
  const double a1 = 1.0 / (1.0 + g * (g + kDamping));
  filter_.Prepare([g, a1](double x, std::array<double, 3>& state) {
    auto& [first, band_state, low_state] = state;
    const double step = (x - first) * g / (1.0 + g);
    const double first_low = first + step;
    first = first_low + step;
    const double first_high = x - first_low;

    const double into = first_high - low_state;
    const double band = a1 * band_state + g * a1 * into;
    const double low = low_state + g * a1 * band_state + g * g * a1 * into;
    band_state = 2.0 * band - band_state;
    low_state = 2.0 * low - low_state;
    return first_high - kDamping * band - low;
  });
  Reset();
}

void HighPass::Reset() {
  state_ = {};
}

void HighPass::Process(StereoBlock block, const Ramp& wet) {
  if (wet.Is(0.0f)) {
    Reset();
    return;
  }
  StereoSamples high;
  filter_.Process(block, high.block(), state_);
  for (size_t ear = 0; ear < kEars; ++ear) {
    float* samples = block.ear(ear);
    const float* filtered = high.block().ear(ear);
    if (wet.Is(1.0f)) {
      std::copy_n(filtered, kBlockFrames, samples);
    } else {
      for (int32_t n = 0; n < kBlockLength; ++n) {
        samples[n] += wet.At(n) * (filtered[n] - samples[n]);
      }
    }
  }
}

}  // namespace bcap
