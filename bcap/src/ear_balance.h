// lrc: corrects a constant level mismatch of the two microphones, slowly and by at most 3 dB. Own method:
// only the background is listened to, which reaches both ears alike (blocks near the running minimum of the
// level), and only between 100 and 500 Hz, where the head casts next to no shadow; of the level differences
// found there the correction approaches the median, by small steps of constant size, so that no single sound
// can pull it. Half goes to each ear.
// A background that really comes from one side within those bounds is taken for a mismatch.
// Scale [-1, 1) float; latency 0 samples. At rest at 0 dB it leaves every bit alone.
#pragma once

#include <array>
#include <cstdint>

#include "block_filter.h"
#include "delay_line.h"
#include "ramp.h"

namespace bcap {

class EarBalance {
 public:
  void Prepare(uint32_t sample_rate_hz);  // then Reset()
  void Reset();
  // In place; real time. `snap`: the first block after a reset, which starts at the target.
  void Process(StereoBlock block, bool enabled, bool snap);
  // What is added to the left ear and taken from the right, dB.
  float correction_db() const { return correction_db_; }

 private:
  void Listen(StereoBlock block);

  float block_seconds_ = 0.0f;
  BlockFilter<2> band_pass_;
  std::array<BlockFilter<2>::State, kEars> state_{};
  std::array<float, kEars> energy_{};  // of the background band, averaged over some 0.05 s
  float heard_seconds_ = 0.0f;
  float floor_db_ = 0.0f;
  float correction_db_ = 0.0f;
  std::array<Ramp, kEars> gains_{};
};

}  // namespace bcap
