// The recurrent network of the noise reduction: features of one block in, one gain per band out. A dense
// layer, two gated recurrent layers (K. Cho et al., "Learning phrase representations using RNN
// encoder-decoder", EMNLP 2014, with the reset gate behind the recurrent product) and a dense output that
// sees all three: the first layer shows it the harmonics of this block, the others what has been. Weights
// are 8 bit with one scale per row, activations 16 bit, sums 32 bit.
// Trained by training/train.py; docs/noise-network.md tells how.
#pragma once

#include <array>
#include <cstddef>

#include "noise_features.h"

namespace bcap {

constexpr size_t kDenseUnits = 96;
constexpr size_t kRecurrentUnits = 80;

using NetworkGains = std::array<float, kNetworkBands>;

class NoiseNetwork {
 public:
  void Reset();
  void Process(const NetworkFeatures& features, NetworkGains& gains);  // 0 <= gain <= 1

 private:
  std::array<float, kRecurrentUnits> first_{};
  std::array<float, kRecurrentUnits> second_{};
};

}  // namespace bcap
