// The recurrent network of the noise reduction: features of one block in, one gain per band out. A dense
// layer, two gated recurrent layers (K. Cho et al., "Learning phrase representations using RNN
// encoder-decoder", EMNLP 2014, with the reset gate behind the recurrent product) and a dense output that
// sees all three give each band a first opinion. In the lower bands a small recurrent layer with one gate
// (M. Ravanelli et al., "Light gated recurrent units for speech recognition", IEEE TETCI 2(2), 2018) then
// corrects it from what each band sees of itself and its neighbours. Its weights are the same for all of them,
// so that what one harmonic taught holds for all (weights shared by bands: X. Hao et al., "FullSubNet",
// ICASSP 2021). Weights are 8 bit with one scale per row, activations 16 bit, sums 32 bit, in the shared layer
// 16 bit.
// Trained by training/train.py; docs/noise-network.md tells how.
#pragma once

#include <array>
#include <cstddef>

#include "noise_features.h"

namespace bcap {

constexpr size_t kDenseUnits = 96;
constexpr size_t kRecurrentUnits = 80;
constexpr size_t kContextUnits = 12;
constexpr size_t kSharedBands = 40;  // the lowest ones, up to 2.3 kHz
constexpr size_t kSharedUnits = 16;  // of each of them

using NetworkGains = std::array<float, kNetworkBands>;
using NetworkContext = std::array<float, kContextUnits>;  // of the whole spectrum, for every band

class NoiseNetwork {
 public:
  void Reset();
  void Process(const NetworkFeatures& features, NetworkGains& gains);  // 0 <= gain <= 1

 private:
  void Correct(const NetworkFeatures& features, const NetworkContext& context,
               NetworkGains& opinion);

  std::array<float, kRecurrentUnits> first_{};
  std::array<float, kRecurrentUnits> second_{};
  std::array<std::array<float, kSharedBands>, kSharedUnits> shared_{};
};

}  // namespace bcap
