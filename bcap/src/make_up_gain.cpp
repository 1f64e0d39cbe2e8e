// postgain; see make_up_gain.h. Real time: no allocation, lock, log, wait or file.
#include "make_up_gain.h"

#include <algorithm>
#include <cmath>

#include "constexpr_math.h"
#include "decibels.h"

namespace bcap {
namespace {

constexpr float kAbsoluteGateDb = -60.0f;  // quieter than that is a pause, not a programme
constexpr float kRelativeGateDb = -10.0f;
constexpr float kMomentarySeconds = 0.2f;  // longer would let the end of a sound count as programme
constexpr float kProgrammeSeconds = 3.0f;
// After so long below the gate a quieter scene has come, and the programme level falls.
constexpr float kPauseSeconds = 4.0f;
constexpr float kProgrammeFallsDbPerSecond = 2.0f;
constexpr float kDeadBandDb = 1.5f;  // wider leaves the level further off, narrower begins to pump
constexpr float kArrivedDb = 0.1f;
constexpr float kUpDbPerSecond = 3.0f;
constexpr float kDownDbPerSecond = 6.0f;

// High shelf of BS.1770-4, as an analogue prototype: gain, corner and quality that give the coefficients
// printed there at 48 kHz (state variable filter of A. Simper, 2013, as in high_pass.h).
constexpr double kShelfGainDb = 3.99984385;
constexpr double kShelfHz = 1681.97445;
constexpr double kShelfQuality = 0.70717524;

}  // namespace

void MakeUpGain::Prepare(uint32_t sample_rate_hz) {
  block_seconds_ = static_cast<float>(kBlockFrames) / static_cast<float>(sample_rate_hz);
  const double a = std::pow(10.0, kShelfGainDb / 40.0);
  const double g = std::tan(kPi * kShelfHz / sample_rate_hz) * std::sqrt(a);
  const double k = 1.0 / kShelfQuality;
  const double a1 = 1.0 / (1.0 + g * (g + k));
  shelf_.Prepare([a, g, k, a1](double x, std::array<double, 2>& state) {
    auto& [band_state, low_state] = state;
    const double into = x - low_state;
    const double band = a1 * band_state + g * a1 * into;
    const double low = low_state + g * a1 * band_state + g * g * a1 * into;
    band_state = 2.0 * band - band_state;
    low_state = 2.0 * low - low_state;
    return a * a * x + k * (1.0 - a) * a * band + (1.0 - a * a) * low;
  });
  Reset();
}

void MakeUpGain::Reset() {
  state_ = {};
  momentary_ = 0.0f;
  programme_ = 0.0f;
  heard_seconds_ = 0.0f;
  paused_seconds_ = 0.0f;
  moving_ = false;
  gain_db_ = 0.0f;
}

float MakeUpGain::WeightedMeanSquare(StereoBlock block) {
  StereoSamples weighted;
  shelf_.Process(block, weighted.block(), state_);
  return (sum_of_squares(weighted.left.data()) + sum_of_squares(weighted.right.data())) *
         (1.0f / (kEars * kBlockFrames));
}

void MakeUpGain::Process(StereoBlock block, bool enabled, float boost_db, float target_db,
                         bool snap) {
  if (enabled) {
    // Plain means at first, so that the first seconds already find the level.
    heard_seconds_ = std::min(heard_seconds_ + block_seconds_, kProgrammeSeconds);
    momentary_ += (WeightedMeanSquare(block) - momentary_) *
                  (block_seconds_ / std::min(heard_seconds_, kMomentarySeconds));
    const float momentary_db = power_to_db(momentary_);
    if (momentary_db < kAbsoluteGateDb && programme_ == 0.0f) {
      heard_seconds_ = 0.0f;  // nothing yet
    } else if (momentary_db > kAbsoluteGateDb) {
      if (momentary_db > power_to_db(programme_) + kRelativeGateDb) {
        programme_ += (momentary_ - programme_) * (block_seconds_ / heard_seconds_);
        paused_seconds_ = 0.0f;
      } else {
        paused_seconds_ += block_seconds_;
      }
      if (paused_seconds_ > kPauseSeconds) {
        programme_ *= db_to_power(-kProgrammeFallsDbPerSecond * block_seconds_);
      }
      const float wanted_db = std::clamp(target_db - power_to_db(programme_), 0.0f, boost_db);
      const float error_db = wanted_db - gain_db_;
      moving_ = std::fabs(error_db) > (moving_ ? kArrivedDb : kDeadBandDb);
      if (moving_) {
        gain_db_ += std::clamp(error_db, -kDownDbPerSecond * block_seconds_,
                               kUpDbPerSecond * block_seconds_);
      }
    }
    gain_db_ = std::min(gain_db_, boost_db);
  } else {
    Reset();
  }
  const float target = gain_db_ == 0.0f ? 1.0f : db_to_gain(gain_db_);
  if (snap) {
    gain_.Snap(target);
  } else {
    gain_.Aim(target);
  }
  apply_ramp(gain_, block.left);
  apply_ramp(gain_, block.right);
}

}  // namespace bcap
