// The trained numbers of the noise-reduction network; noise_network_weights.cpp is written by
// training/export.py and is not edited by hand.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "noise_network.h"

namespace bcap {

// Rows of weights, padded with zeros to whole vectors. Output = scale * (weights . input) + bias.
template <size_t kRows, size_t kColumns>
struct QuantizedLayer {
  static constexpr size_t kPaddedColumns = (kColumns + 15) / 16 * 16;
  alignas(16) std::array<std::array<int8_t, kPaddedColumns>, kRows> weights;
  std::array<float, kRows> scale;  // of weight and input together
  std::array<float, kRows> bias;
};

// Rows: reset gates, update gates, candidates.
template <size_t kInputs, size_t kUnits>
struct QuantizedGru {
  QuantizedLayer<3 * kUnits, kInputs> input;
  QuantizedLayer<3 * kUnits, kUnits> recurrent;
};

struct NoiseNetworkWeights {
  QuantizedLayer<kDenseUnits, kNetworkFeatures> dense;
  QuantizedGru<kDenseUnits, kRecurrentUnits> first;
  QuantizedGru<kRecurrentUnits, kRecurrentUnits> second;
  QuantizedLayer<kNetworkBands, 2 * kRecurrentUnits + kDenseUnits> output;
};

// Scales of the 16-bit inputs that the exported row scales undo.
constexpr float kFeatureSteps = 2048.0f;      // features reach +-16
constexpr float kActivationSteps = 16384.0f;  // activations reach +-1

extern const NoiseNetworkWeights kNoiseNetworkWeights;

}  // namespace bcap
