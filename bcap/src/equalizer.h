// peq: the band gains of the tuning times the amount, as one factor per band for both ears. It rides on the
// spectrum of the noise reduction: exact at each band's centre, straight between. A change is faded over one
// block by the overlap of the frames.
// It cannot part tones closer than about two bins of the transform (94 Hz), so steep steps between
// neighbouring bands below 1600 Hz come out rounded.
#pragma once

#include <array>

#include "band_layout.h"
#include "parameters.h"

namespace bcap {

class Equalizer {
 public:
  void Configure(const Parameters& parameters);
  // All gains are 1.
  bool flat() const { return flat_; }
  // Per band, linear.
  const std::array<float, kMaxBands>& gains() const { return gains_; }

 private:
  bool flat_ = true;
  std::array<float, kMaxBands> gains_{};
};

}  // namespace bcap
