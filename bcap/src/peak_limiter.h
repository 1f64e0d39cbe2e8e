// Look-ahead peak limiter: no sample leaves above the peak, and the gain, one for both ears so that no
// sound changes its direction, moves along smooth curves, so that nothing clicks.
//
// Method: per group of 8 samples the gain that its largest sample needs; the minimum of those over the
// look-ahead, held back by a slow release; smoothed by a Hann-shaped average as long as the look-ahead;
// straight lines between groups. Every value that enters the average of a group already respects that
// group's own need, so the average does as well. (The minimum followed by an average is the common form of
// look-ahead limiting, as in U. Zoelzer, "DAFX", 2nd edition, section 4.2.2.)
// Scale [-1, 1) float, any level in; latency: kLookAheadSamples. A gain that rests at 1 leaves every bit alone.
#pragma once

#include <array>
#include <cstdint>

#include "delay_line.h"

namespace bcap {

template <size_t kLookAheadSamples>
class PeakLimiter {
 public:
  void Prepare(uint32_t sample_rate_hz);  // then Reset()
  void Reset();
  // In place; real time. peak: above 0, for the samples that enter now. true_peak: hold the curve between the
  // samples as well, as far as one value midway between each two tells.
  void Process(StereoBlock block, float peak, bool true_peak = false);
  // Gain at the end of the last block, 0 < gain <= 1.
  float gain() const { return gain_; }

 private:
  static constexpr size_t kGroupSamples = 8;
  static constexpr size_t kGroups = kLookAheadSamples / kGroupSamples;  // of look-ahead
  static_assert(kLookAheadSamples % kGroupSamples == 0 && kGroups >= 2 &&
                    kLookAheadSamples <= kBlockFrames,
                "the delay moves whole groups, and at most one block");
  static constexpr size_t kBlockGroups = kBlockFrames / kGroupSamples;

  void Delay(StereoBlock block);
  // Largest value between samples, per group: first of the last group of the block before, then of this block.
  void PeaksBetween(StereoBlock block, std::array<float, kBlockGroups + 1>& largest) const;

  float release_ = 0.0f;
  std::array<float, kGroups> window_{};  // the Hann-shaped average, sum 1

  std::array<std::array<float, kLookAheadSamples>, kEars> delayed_{};
  // Gains, oldest first: what the last kGroups groups need, and what the last kGroups - 1 entered into
  // the average.
  std::array<float, kGroups> needed_{};
  std::array<float, kGroups> released_{};
  float gain_ = 1.0f;  // smoothed, of the last group
};

extern template class PeakLimiter<256>;  // mode 0, before and after the spectrum
extern template class PeakLimiter<448>;  // mode 1

}  // namespace bcap
