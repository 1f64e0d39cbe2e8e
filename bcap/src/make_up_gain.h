// postgain: brings the programme toward the out target, adding at most the boost, slowly and without pumping.
// Method: loudness of both ears as in ITU-R BS.1770-4 (its shelf toward high frequencies; mean square),
// over some seconds, gated absolutely and 10 LU under the running programme so that pauses do not count;
// the gain follows within a dead band, at a few dB per second. Unlike the recommendation, levels are of the mean
// of both ears, and a full-scale square wave is 0 dB.
// Scale [-1, 1) float; latency 0 samples. At rest at 0 dB it leaves every bit alone.
#pragma once

#include <array>
#include <cstdint>

#include "block_filter.h"
#include "delay_line.h"
#include "ramp.h"

namespace bcap {

class MakeUpGain {
 public:
  void Prepare(uint32_t sample_rate_hz);  // then Reset()
  void Reset();
  // In place; real time. boost_db: 0 or more; `snap`: the first block after a reset.
  void Process(StereoBlock block, bool enabled, float boost_db, float target_db, bool snap);
  float gain_db() const { return gain_db_; }

 private:
  float WeightedMeanSquare(StereoBlock block);

  float block_seconds_ = 0.0f;
  BlockFilter<2> shelf_;
  std::array<BlockFilter<2>::State, kEars> state_{};
  float momentary_ = 0.0f;  // mean square over some 0.2 s
  float programme_ = 0.0f;  // over some 3 s of what passes the gates
  float heard_seconds_ = 0.0f;
  float paused_seconds_ = 0.0f;  // since the programme was last above its gate
  bool moving_ = false;          // toward the target, once outside the dead band
  float gain_db_ = 0.0f;
  Ramp gain_{};
};

}  // namespace bcap
