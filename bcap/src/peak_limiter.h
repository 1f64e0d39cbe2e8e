// Look-ahead peak limiter: no sample leaves above the peak, and the gain, one for both ears so that no
// sound changes its direction, moves along smooth curves, so that nothing clicks.
//
// Method: per group of 8 samples the gain that its largest sample needs; the minimum of those over the
// look-ahead, held back by a slow release; smoothed by a Hann-shaped average as long as the look-ahead;
// straight lines between groups. Every value that enters the average of a group already respects that
// group's own need, so the average does as well. (The minimum followed by an average is the common form of
// look-ahead limiting, as in U. Zoelzer, "DAFX", 2nd edition, section 4.2.2.)
// Scale [-1, 1) float, any level in. A gain that rests at 1 leaves every bit alone.
#pragma once

#include <array>
#include <cstdint>

#include "delay_line.h"

namespace bcap {

// A limiter around stages that take kLatencySamples: hears what enters them and acts on what leaves them.
template <size_t kLookAheadSamples, size_t kLatencySamples = kLookAheadSamples>
class LimiterAround {
 public:
  void Prepare(uint32_t sample_rate_hz);  // then Reset()
  void Reset();
  // Real time; once per block, then Apply(). peak: above 0, for the samples that enter now. true_peak: hold the curve
  // between the samples as well, as far as one value midway between each two tells.
  void Hear(StereoBlock block, float peak, bool true_peak = false);
  // In place; real time.
  void Apply(StereoBlock block);
  // Gain at the end of the last block, 0 < gain <= 1.
  float gain() const { return gain_; }

 private:
  static constexpr size_t kGroupSamples = 8;
  static constexpr size_t kGroups = kLookAheadSamples / kGroupSamples;  // of look-ahead
  static constexpr size_t kBlockGroups = kBlockFrames / kGroupSamples;
  static constexpr size_t kWaiting = (kLatencySamples - kLookAheadSamples) / kGroupSamples;
  static_assert(kLookAheadSamples % kGroupSamples == 0 && kLatencySamples % kGroupSamples == 0 &&
                    kGroups >= 2 && kLookAheadSamples <= kBlockFrames &&
                    kLatencySamples >= kLookAheadSamples,
                "gains move by whole groups and look ahead by at most a block");
  static constexpr size_t kBefore = 7;  // what lies midway needs four samples on either side

  // Largest value between samples, per group: first of the last group of the block before, then of this block.
  void PeaksBetween(StereoBlock block, std::array<float, kBlockGroups + 1>& largest) const;

  float release_ = 0.0f;
  std::array<float, kGroups> window_{};  // the Hann-shaped average, sum 1

  std::array<std::array<float, kBefore>, kEars> last_samples_{};
  // Gains, oldest first: what the last kGroups groups need, and what the last kGroups - 1 entered into
  // the average.
  std::array<float, kGroups> needed_{};
  std::array<float, kGroups> released_{};
  // Smoothed: those whose samples are still on their way, then those of the last block heard.
  std::array<float, kWaiting + kBlockGroups> smooth_{};
  float gain_ = 1.0f;  // of the last group that left
};

// With the delay of the sound: latency kLookAheadSamples.
template <size_t kLookAheadSamples>
class PeakLimiter {
 public:
  void Prepare(uint32_t sample_rate_hz);  // then Reset()
  void Reset();
  // In place; real time. peak, true_peak: as LimiterAround has them.
  void Process(StereoBlock block, float peak, bool true_peak = false);
  float gain() const { return limiter_.gain(); }

 private:
  LimiterAround<kLookAheadSamples> limiter_;
  std::array<std::array<float, kLookAheadSamples>, kEars> delayed_{};
};

extern template class LimiterAround<448, 960>;  // mode 0, around the spectrum
extern template class PeakLimiter<64>;          // mode 0, at the end
extern template class PeakLimiter<448>;         // mode 1

}  // namespace bcap
