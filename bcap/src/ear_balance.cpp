// lrc; see ear_balance.h. Real time: no allocation, lock, log, wait or file.
#include "ear_balance.h"

#include <algorithm>
#include <cmath>

#include "constexpr_math.h"
#include "decibels.h"

namespace bcap {
namespace {

constexpr float kMostDb = 1.5f;            // per ear, in opposite directions: 3 dB between the ears
constexpr float kStepDbPerSecond = 0.05f;  // per ear; faster would begin to follow long sounds
constexpr float kMismatchDb = 6.0f;        // more than that is a source on one side
constexpr float kBackgroundDb = 4.0f;      // above the floor
constexpr float kFloorRiseDbPerSecond = 1.0f;
constexpr float kSilenceDb = -85.0f;      // a digital zero on one side is no mismatch either
constexpr float kAverageSeconds = 0.05f;  // longer would hear the end of a sound as background
constexpr double kLowestHz = 100.0;
constexpr double kHighestHz = 500.0;

double one_pole(double corner_hz, uint32_t sample_rate_hz) {
  return 1.0 - std::exp(-2.0 * kPi * corner_hz / sample_rate_hz);
}

}  // namespace

void EarBalance::Prepare(uint32_t sample_rate_hz) {
  block_seconds_ = static_cast<float>(kBlockFrames) / static_cast<float>(sample_rate_hz);
  const double low_pass = one_pole(kHighestHz, sample_rate_hz);
  const double high_pass = one_pole(kLowestHz, sample_rate_hz);
  band_pass_.Prepare([low_pass, high_pass](double x, std::array<double, 2>& state) {
    auto& [low, rumble] = state;
    low += low_pass * (x - low);
    rumble += high_pass * (low - rumble);
    return low - rumble;
  });
  Reset();
}

void EarBalance::Reset() {
  state_ = {};
  energy_ = {};
  heard_seconds_ = 0.0f;
  floor_db_ = 0.0f;
  correction_db_ = 0.0f;
}

void EarBalance::Listen(StereoBlock block) {
  // A plain mean at first, so that the floor does not start at a level that is still building up.
  heard_seconds_ = std::min(heard_seconds_ + block_seconds_, kAverageSeconds);
  StereoSamples band;
  band_pass_.Process(block, band.block(), state_);
  for (size_t ear = 0; ear < kEars; ++ear) {
    const float mean_square = sum_of_squares(band.block().ear(ear)) * (1.0f / kBlockFrames);
    energy_[ear] += (block_seconds_ / heard_seconds_) * (mean_square - energy_[ear]);
  }
  const float left_db = power_to_db(energy_[0]);
  const float right_db = power_to_db(energy_[1]);
  const float level_db = 0.5f * (left_db + right_db);
  if (level_db < kSilenceDb) {
    heard_seconds_ = 0.0f;
    return;
  }
  floor_db_ = std::min(level_db, floor_db_ + kFloorRiseDbPerSecond * block_seconds_);
  const float mismatch_db = left_db - right_db;
  if (level_db > floor_db_ + kBackgroundDb || std::fabs(mismatch_db) > kMismatchDb) {
    return;
  }
  // Half of the difference that is left over; smaller than a step, it is taken whole.
  const float error_db = -0.5f * mismatch_db - correction_db_;
  const float step_db = kStepDbPerSecond * block_seconds_;
  correction_db_ =
      std::clamp(correction_db_ + std::clamp(error_db, -step_db, step_db), -kMostDb, kMostDb);
}

void EarBalance::Process(StereoBlock block, bool enabled, bool snap) {
  if (enabled) {
    Listen(block);
  }
  const float db = enabled ? correction_db_ : 0.0f;
  const std::array<float, kEars> targets{db == 0.0f ? 1.0f : db_to_gain(db),
                                         db == 0.0f ? 1.0f : db_to_gain(-db)};
  for (size_t ear = 0; ear < kEars; ++ear) {
    if (snap) {
      gains_[ear].Snap(targets[ear]);
    } else {
      gains_[ear].Aim(targets[ear]);
    }
    apply_ramp(gains_[ear], block.ear(ear));
  }
}

}  // namespace bcap
