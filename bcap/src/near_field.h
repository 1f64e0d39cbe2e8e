// nfm: holds the wearer's own voice toward the level of the scene, so that the one who records does not
// drown what is recorded. Own method:
//  - a block is the wearer's own voice as far as it is central (the in-phase part of the cross spectrum
//    makes up most of the energy: the mouth is as far from one ear as from the other) and near (louder than the
//    headset's band energies, summed over the bands that have one, as it arrived at the microphones, and not
//    far softer than the own voice was lately);
//  - the level of the scene is what blocks that are not the own voice reach, tracked slowly;
//  - the own voice comes down by most of its distance to the scene; bands where it does not stand out, and
//    bands at the floor of the tuning, stay as they are. One gain per band for both ears.
// Someone else who talks straight ahead from nearer than the tuning allows is taken for the wearer.
// On the spectrum of both ears, once per block; hears the frame after the one it acts on.
#pragma once

#include <array>

#include "band_layout.h"
#include "parameters.h"

namespace bcap {

class NearField {
 public:
  void Prepare(uint32_t sample_rate_hz);  // then Reset()
  void Reset();
  void Configure(const Parameters& parameters);
  // Amount 0, or every band at the floor: all gains stay 1.
  bool idle() const { return amount_ == 0.0f || threshold_sum_ == 0.0f; }
  // bands: of the newest frame, as it arrived, times the power factor `scale` (of the gain before); gains: of the frame
  // before, one factor per band, multiplied into. Real time.
  void Process(const BandSpectra& bands, float scale, float* gains);
  // Attenuation of the own voice in the last block, dB, 0 or more.
  float attenuation_db() const { return attenuation_db_; }

 private:
  const BandLayout* layout_ = nullptr;
  float block_seconds_ = 0.0f;
  // Of the distance, per block.
  float own_rise_ = 0.0f;
  float own_fall_ = 0.0f;
  float scene_rise_ = 0.0f;
  float scene_fall_ = 0.0f;
  float attack_ = 0.0f;
  float release_ = 0.0f;
  float move_share_ = 0.0f;

  // Groups of neighbouring bands: single harmonics must not be bent.
  static constexpr size_t kGroupBands = 4;
  static constexpr size_t kGroups = (kMaxBands + kGroupBands - 1) / kGroupBands;

  float amount_ = 0.0f;
  std::array<float, kMaxBands> threshold_{};  // energies; 0 leaves the band alone
  float threshold_sum_ = 0.0f;                // of the bands that decide
  float threshold_sum_db_ = 0.0f;
  std::array<float, kGroups> group_threshold_db_{};

  // Levels are relative to the tuning's energies.
  float own_level_db_ = 0.0f;      // of what is heard now, as if it were the own voice
  float own_reference_db_ = 0.0f;  // of the own voice lately
  float scene_level_db_ = 0.0f;
  float attenuation_db_ = 0.0f;
  // How far the attenuation holds, 0 to 1, by groups of bands.
  std::array<float, kGroups> share_{};
};

}  // namespace bcap
