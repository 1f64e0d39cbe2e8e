// nfm; see near_field.h. Real time: no allocation, lock, log, wait or file.
#include "near_field.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "decibels.h"
#include "vector_math.h"

namespace bcap {
namespace {

// The bands whose energy and phase decide: below, every sound is in phase at both ears; above, the phase
// turns within a few degrees of direction.
constexpr float kLowestHz = 250.0f;
constexpr float kHighestHz = 4500.0f;

// Share of in-phase energy from which a block begins to count as central, and from which it fully does.
// Higher mistakes reverberation of the own voice for the scene, lower takes talkers ahead for the own.
constexpr float kCentralFrom = 0.60f;
constexpr float kCentralFully = 0.85f;
// dB above the tuning's energies, likewise.
constexpr float kNearFrom = 0.0f;
constexpr float kNearFully = 4.0f;
constexpr float kGroupFrom = -8.0f;
constexpr float kGroupFully = 0.0f;
constexpr float kNeverReachedDb = 1000.0f;  // where every band is left alone
// How much softer than lately the own voice may become; a voice below that is somebody else's. Narrower takes
// a lowered voice for the scene, wider a loud neighbour for the wearer.
constexpr float kOwnRangeDb = 12.0f;
constexpr float kOwnReferenceFallsDbPerSecond = 0.5f;

constexpr float kRatio = 0.65f;         // of the distance to the scene that is taken away
constexpr float kMostDb = 14.0f;        // keeps the own voice natural
constexpr float kSceneBelowDb = 14.0f;  // the scene is taken to lie at most so far under the tuning
constexpr float kQuietDb = -40.0f;  // under the tuning: too quiet to say anything about the scene

constexpr float kOwnRiseSeconds = 0.02f;
constexpr float kOwnFallSeconds = 0.25f;
constexpr float kSceneSeconds = 3.0f;
constexpr float kAttackSeconds = 0.01f;
constexpr float kReleaseSeconds = 0.15f;
constexpr float kShareSeconds = 0.04f;

float smooth_step(float value, float from, float fully) {
  const float t = std::clamp((value - from) / (fully - from), 0.0f, 1.0f);
  return t * t * (3.0f - 2.0f * t);
}

}  // namespace

void NearField::Prepare(uint32_t sample_rate_hz) {
  layout_ = &band_layout(sample_rate_hz);
  block_seconds_ = static_cast<float>(kBlockFrames) / static_cast<float>(sample_rate_hz);
  const auto share = [this](float seconds) { return 1.0f - std::exp(-block_seconds_ / seconds); };
  own_rise_ = share(kOwnRiseSeconds);
  own_fall_ = share(kOwnFallSeconds);
  scene_rise_ = share(kSceneSeconds);
  // Pauses between words say little about how loud the scene is, so it falls ten times as slowly.
  scene_fall_ = share(10.0f * kSceneSeconds);
  attack_ = share(kAttackSeconds);
  release_ = share(kReleaseSeconds);
  move_share_ = share(kShareSeconds);
  Reset();
}

void NearField::Reset() {
  own_level_db_ = 0.0f;
  own_reference_db_ = 0.0f;
  scene_level_db_ = -0.5f * kSceneBelowDb;
  attenuation_db_ = 0.0f;
  share_ = {};
}

void NearField::Configure(const Parameters& parameters) {
  amount_ = static_cast<float>(parameters.nfm_amount) * (1.0f / 16.0f);
  threshold_sum_ = 0.0f;
  for (size_t band = 0; band < layout_->count; ++band) {
    const int32_t energy = parameters.nfm_band_energy.values[band];
    const float hz = layout_->centre_hz[band];
    threshold_[band] =
        energy == kNfmBandEnergy.preset ? 0.0f : db_to_power(sixteenths_to_db(energy));
    threshold_sum_ += hz >= kLowestHz && hz <= kHighestHz ? threshold_[band] : 0.0f;
  }
  threshold_sum_db_ = power_to_db(threshold_sum_);
  for (size_t group = 0; group < kGroups; ++group) {
    const auto first = threshold_.begin() + static_cast<ptrdiff_t>(group * kGroupBands);
    const size_t bands = std::min(kGroupBands, kMaxBands - group * kGroupBands);
    const float sum = std::accumulate(first, first + static_cast<ptrdiff_t>(bands), 0.0f);
    group_threshold_db_[group] = sum > 0.0f ? power_to_db(sum) : kNeverReachedDb;
  }
}

void NearField::Process(const BandSpectra& bands, float scale, float* gains) {
  std::array<float, kMaxBands> energy;
  float sum = 0.0f;
  float in_phase = 0.0f;
  for (size_t band = 0; band < layout_->count; ++band) {
    const float power = gains[band] * gains[band] / scale;
    energy[band] = 0.5f * power * (bands.energy[0][band] + bands.energy[1][band]);
    const float hz = layout_->centre_hz[band];
    if (threshold_[band] > 0.0f && hz >= kLowestHz && hz <= kHighestHz) {
      sum += energy[band];
      in_phase += power * bands.cross_re[band];
    }
  }
  const float level_db = power_to_db(sum) - threshold_sum_db_;
  const float central = smooth_step(in_phase / (sum + 1e-20f), kCentralFrom, kCentralFully);
  const float nearest_db = std::max(own_reference_db_ - kOwnRangeDb, 0.0f);
  const float own = central * smooth_step(level_db - nearest_db, kNearFrom, kNearFully);
  own_reference_db_ =
      std::max(own_reference_db_ - kOwnReferenceFallsDbPerSecond * block_seconds_, 0.0f);

  own_level_db_ += (level_db - own_level_db_) * (level_db > own_level_db_ ? own_rise_ : own_fall_);
  if (own == 1.0f) {
    own_reference_db_ = std::max(own_reference_db_, own_level_db_);
  }
  if (own == 0.0f && level_db > kQuietDb) {
    const float heard = std::clamp(level_db, -kSceneBelowDb, nearest_db);
    scene_level_db_ +=
        (heard - scene_level_db_) * (heard > scene_level_db_ ? scene_rise_ : scene_fall_);
  }
  const float distance_db = std::max(own_level_db_ - scene_level_db_, 0.0f);
  const float wanted_db = own * std::min(kRatio * distance_db, kMostDb);
  attenuation_db_ +=
      (wanted_db - attenuation_db_) * (wanted_db > attenuation_db_ ? attack_ : release_);

  // Where the voice stands out, and the factor there.
  const size_t groups = (layout_->count + kGroupBands - 1) / kGroupBands;
  std::array<float, kGroups> heard{};
  for (size_t band = 0; band < layout_->count; ++band) {
    heard[band / kGroupBands] += threshold_[band] > 0.0f ? energy[band] : 0.0f;
  }
  std::array<float, kGroups + 1> factor;
  for (size_t group = 0; group < kGroups; ++group) {
    const float over_db =
        kDbPerOctaveOfPower * vector_log2(heard[group] + kSilentPower) - group_threshold_db_[group];
    share_[group] += (smooth_step(over_db, kGroupFrom, kGroupFully) - share_[group]) * move_share_;
    factor[group] = vector_exp2(-amount_ * attenuation_db_ * share_[group] * kOctavesPerDb);
  }
  factor[groups] = factor[groups - 1];
  // Straight lines between the centres of the groups.
  for (size_t band = 0; band < layout_->count; ++band) {
    if (threshold_[band] > 0.0f) {
      const float at = std::max(
          (static_cast<float>(static_cast<int32_t>(band)) + 0.5f) / kGroupBands - 0.5f, 0.0f);
      const auto group = static_cast<size_t>(static_cast<int32_t>(at));
      const float share = at - static_cast<float>(static_cast<int32_t>(group));
      gains[band] *= factor[group] + share * (factor[group + 1] - factor[group]);
    }
  }
}

}  // namespace bcap
