// Features of both ears; see noise_features.h. Real time: no allocation, lock, log, wait or file.
#include "noise_features.h"

#include <algorithm>
#include <cmath>

#include "vector_math.h"

namespace bcap {
namespace {

// One tenth of a 16-bit step over the whole spectrum: digital silence is not infinitely quiet.
constexpr float kSilence = 1e-12f;
constexpr float kHeardAbove = -39.0f;  // log2 of energy, 3 dB above that
// A recording that breaks off drops that far below the floor, on the mean of all bands. What the high-pass filter
// makes of it rings for some blocks before it is digital silence; a room that stays so much quieter longer is heard.
constexpr float kFarBelow = -4.0f;  // log2 of energy: 12 dB
constexpr uint8_t kGapBlocks = 10;

// Per block of 512 frames. The floor falls within a few blocks and rises within about three seconds:
// slower follows noise that swells too late, faster takes a held vowel for noise.
constexpr float kLevelSmoothing = 0.7f;
constexpr float kFloorFall = 0.3f;
constexpr float kFloorRise = 0.004f;
// The peak of a group is there within a few blocks and holds for some seconds, longer than a speaker pauses.
constexpr float kPeakRise = 0.3f;
constexpr float kPeakFall = 0.0015f;
// Of the ears' spectra: slower gives a surer coherence, faster a fresher one.
constexpr float kSpatialSmoothing = 0.65f;
// The usual phases and levels: those of the last two seconds, of what is well above the floor. Slower loses a head
// that turns, faster takes every sound for the usual one.
constexpr float kUsualRate = 0.006f;
constexpr float kFullWeightAbove = 2.0f;  // log2 of energy: 6 dB
// Of the energy of now: less than that points nowhere, as while nothing but rounding stood above the floor yet.
constexpr float kHardlyUsual = 1e-4f;

constexpr float kLevelScale = 0.25f;  // brings the features to a common spread of about one
constexpr float kLevelDifferenceScale = 0.5f;
constexpr float kCoherenceScale = 2.0f;

void smooth(float& state, float value) {
  state = kSpatialSmoothing * state + (1.0f - kSpatialSmoothing) * value;
}

float group_mean(const std::array<float, kNetworkBands>& levels, size_t group) {
  float sum = 0.0f;
  for (size_t band = 0; band < kBandsPerGroup; ++band) {
    sum += levels[kFirstGroupedBand + group * kBandsPerGroup + band];
  }
  return sum / static_cast<float>(kBandsPerGroup);
}

}  // namespace

void NoiseFeatures::Reset() {
  *this = NoiseFeatures{};
}

bool NoiseFeatures::Process(const BandSpectra& bands, NetworkFeatures& features) {
  std::array<float, kNetworkBands> level;
  float above_floor = 0.0f;
  for (size_t band = 0; band < kNetworkBands; ++band) {
    level[band] = vector_log2(0.5f * (bands.energy[0][band] + bands.energy[1][band]) + kSilence);
  }
  for (size_t band = 0; band < kNetworkBands; ++band) {
    above_floor += level[band] - floor_level_[band];
  }
  // Digital silence, as before a headset sends or the first samples come through the stages before, the block after
  // it, which may hold only the beginning of a sound, and the edge of a gap say nothing about the room: the floor
  // would lie far too low for seconds.
  const bool sound = *std::max_element(level.begin(), level.end()) > kHeardAbove;
  const bool settled = sound && sound_before_;
  sound_before_ = sound;
  if (started_) {
    const bool far_below = above_floor < kFarBelow * static_cast<float>(kNetworkBands);
    blocks_below_ =
        far_below ? static_cast<uint8_t>(std::min(blocks_below_ + 1, kGapBlocks + 1)) : 0;
    if (!settled || (far_below && blocks_below_ <= kGapBlocks)) {
      return false;
    }
  } else {
    started_ = settled;
    smooth_level_ = level;
    floor_level_ = level;
    for (size_t group = 0; group < kNetworkGroups; ++group) {
      peak_level_[group] = group_mean(level, group);
    }
  }
  float scene_floor = 0.0f;
  for (size_t band = 0; band < kNetworkBands; ++band) {
    smooth_level_[band] =
        kLevelSmoothing * smooth_level_[band] + (1.0f - kLevelSmoothing) * level[band];
    const float rise = smooth_level_[band] - floor_level_[band];
    floor_level_[band] += (rise < 0.0f ? kFloorFall : kFloorRise) * rise;
    scene_floor += floor_level_[band];
  }
  scene_floor /= static_cast<float>(kNetworkBands);

  float* own = features.data() + kAboveOwnFloor;
  float* scene = features.data() + kAboveSceneFloor;
  std::array<float, kNetworkBands> weight;
  for (size_t band = 0; band < kNetworkBands; ++band) {
    own[band] = kLevelScale * (level[band] - floor_level_[band]);
    scene[band] = kLevelScale * (level[band] - scene_floor);
    smooth(smooth_energy_[0][band], bands.energy[0][band]);
    smooth(smooth_energy_[1][band], bands.energy[1][band]);
    smooth(smooth_cross_re_[band], bands.cross_re[band]);
    smooth(smooth_cross_im_[band], bands.cross_im[band]);
    weight[band] = std::clamp((level[band] - floor_level_[band]) / kFullWeightAbove, 0.0f, 1.0f);
    usual_cross_re_[band] +=
        kUsualRate * (weight[band] * bands.cross_re[band] - usual_cross_re_[band]);
    usual_cross_im_[band] +=
        kUsualRate * (weight[band] * bands.cross_im[band] - usual_cross_im_[band]);
  }

  float* coherence = features.data() + kCoherence;
  float* in_phase = features.data() + kInPhase;
  float* level_difference = features.data() + kLevelDifference;
  float* peak = features.data() + kPeak;
  float* against_peak = features.data() + kAgainstPeak;
  float* usual_phase = features.data() + kUsualPhase;
  float* against_usual = features.data() + kAgainstUsual;
  // Bands first and pairs of them later, so that bands fill vectors.
  std::array<float, kNetworkBands + 1> energy{};
  std::array<float, kNetworkBands + 1> cross{};
  std::array<float, kNetworkBands + 1> cross_usual{};
  for (size_t band = 0; band < kNetworkBands; ++band) {
    const float re = smooth_cross_re_[band];
    const float im = smooth_cross_im_[band];
    const float usual_re = usual_cross_re_[band];
    const float usual_im = usual_cross_im_[band];
    energy[band] = std::sqrt(smooth_energy_[0][band] * smooth_energy_[1][band]);
    cross[band] = std::sqrt(re * re + im * im);
    cross_usual[band] =
        (re * usual_re + im * usual_im) / (std::sqrt(usual_re * usual_re + usual_im * usual_im) +
                                           kHardlyUsual * (energy[band] + kSilence));
  }
  std::array<std::array<float, kNetworkBandPairs>, kEars> energy_of_pair;
  for (size_t pair = 0; pair < kNetworkBandPairs; ++pair) {
    const size_t low = 2 * pair;
    const size_t high = low + 1;  // past the last band there is nothing
    const auto sum = [low, high](const std::array<float, kNetworkBands>& of) {
      return of[low] + (high < kNetworkBands ? of[high] : 0.0f);
    };
    const float both = energy[low] + energy[high] + kSilence;
    energy_of_pair[0][pair] = sum(smooth_energy_[0]) + kSilence;
    energy_of_pair[1][pair] = sum(smooth_energy_[1]) + kSilence;
    // Magnitudes are added, not spectra: the phase of a delayed sound turns from band to band.
    coherence[pair] = kCoherenceScale * (cross[low] + cross[high]) / both;
    in_phase[pair] = kCoherenceScale * sum(smooth_cross_re_) / both;
    usual_phase[pair] = kCoherenceScale * (cross_usual[low] + cross_usual[high]) / both;
  }
  for (size_t pair = 0; pair < kNetworkBandPairs; ++pair) {
    const float difference =
        vector_log2(energy_of_pair[0][pair]) - vector_log2(energy_of_pair[1][pair]);
    level_difference[pair] = kLevelDifferenceScale * std::abs(difference);
  }

  for (size_t group = 0; group < kNetworkGroups; ++group) {
    const float level_now = group_mean(smooth_level_, group);
    const float rise = level_now - peak_level_[group];
    peak_level_[group] += (rise > 0.0f ? kPeakRise : kPeakFall) * rise;
    peak[group] = kLevelScale * (peak_level_[group] - group_mean(floor_level_, group));
    against_peak[group] = kLevelScale * (level_now - peak_level_[group]);

    std::array<float, kEars> now{};
    for (size_t ear = 0; ear < kEars; ++ear) {
      float usual = 0.0f;
      const size_t first = kFirstGroupedBand + group * kBandsPerGroup;
      for (size_t band = first; band < first + kBandsPerGroup; ++band) {
        now[ear] += smooth_energy_[ear][band];
        usual += weight[band] * bands.energy[ear][band];
      }
      usual_energy_[ear][group] += kUsualRate * (usual - usual_energy_[ear][group]);
    }
    // Two products rather than four logarithms: exchanged ears exchange them, and their difference keeps its
    // size, bit for bit, in whatever order sums are taken.
    const auto product = [&](size_t ear, size_t other) {
      return std::log2(now[ear] * usual_energy_[other][group] + kSilence * kSilence);
    };
    against_usual[group] = kLevelDifferenceScale * std::abs(product(0, 1) - product(1, 0));
  }
  return true;
}

}  // namespace bcap
