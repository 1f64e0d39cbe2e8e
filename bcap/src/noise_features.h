// What the noise-reduction network hears in one block:
// - for each band, how far its energy stands above the band's own slow floor and above the floor of the scene;
// - for each pair of bands, from slightly smoothed spectra of both ears, how coherent the ears are, how much of
//   that is in phase, how far their levels differ, and how well their phases agree with the usual ones: those of
//   what stood above the floor during the last seconds, so of the place of whoever speaks;
// - for each group of ten bands, how far the loudest of the last seconds stands above the floor, how far the sound
//   of now stays behind it, and how far the ears' level difference is from the usual one.
// A near voice is coherent, diffuse noise is not; a voice among voices is the loudest of them and keeps its place.
//
// All features are differences or ratios of levels, so the level of the recording does not matter; none
// knows left from right, so exchanged ears give the same gains. They are defined on the bands of 48 kHz;
// NoiseReduction brings the bands of 44.1 kHz there.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "band_layout.h"

namespace bcap {

constexpr size_t kNetworkBands = 73;  // the layout at 48 kHz
constexpr size_t kNetworkBandPairs = (kNetworkBands + 1) / 2;
// Groups of bands from 94 Hz to 22 kHz.
constexpr size_t kNetworkGroups = 7;
constexpr size_t kFirstGroupedBand = 2;
constexpr size_t kBandsPerGroup = 10;

// Where each kind of feature begins.
constexpr size_t kAboveOwnFloor = 0;                                 // per band
constexpr size_t kAboveSceneFloor = kAboveOwnFloor + kNetworkBands;  // per band
constexpr size_t kCoherence = kAboveSceneFloor + kNetworkBands;      // per pair
constexpr size_t kInPhase = kCoherence + kNetworkBandPairs;          // per pair
constexpr size_t kLevelDifference = kInPhase + kNetworkBandPairs;    // per pair
constexpr size_t kPeak = kLevelDifference + kNetworkBandPairs;       // per group, above the floor
constexpr size_t kAgainstPeak = kPeak + kNetworkGroups;              // per group
constexpr size_t kUsualPhase = kAgainstPeak + kNetworkGroups;        // per pair
constexpr size_t kAgainstUsual =
    kUsualPhase + kNetworkBandPairs;  // per group, of the level difference
constexpr size_t kNetworkFeatures = kAgainstUsual + kNetworkGroups;

using NetworkFeatures = std::array<float, kNetworkFeatures>;

class NoiseFeatures {
 public:
  void Reset();
  // The first kNetworkBands entries of `bands` count. False in a gap of a recording that has begun: then `features`
  // and all that is known of the room stay as they were.
  bool Process(const BandSpectra& bands, NetworkFeatures& features);

 private:
  bool started_ = false;
  bool sound_before_ = false;                        // the last block was not digital silence
  uint8_t blocks_below_ = 0;                         // so far in a row, far below the floor
  std::array<float, kNetworkBands> smooth_level_{};  // log2 of energy
  std::array<float, kNetworkBands> floor_level_{};
  std::array<std::array<float, kNetworkBands>, kEars> smooth_energy_{};
  std::array<float, kNetworkBands> smooth_cross_re_{};
  std::array<float, kNetworkBands> smooth_cross_im_{};
  std::array<float, kNetworkGroups> peak_level_{};  // log2 of energy, mean of a group's bands
  // Of what stood above the floor during the last seconds.
  std::array<float, kNetworkBands> usual_cross_re_{};
  std::array<float, kNetworkBands> usual_cross_im_{};
  std::array<std::array<float, kNetworkGroups>, kEars> usual_energy_{};
};

}  // namespace bcap
