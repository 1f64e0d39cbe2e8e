// The trained numbers of the noise-reduction network; noise_network_weights.cpp is written by
// training/export.py and is not edited by hand.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "noise_network.h"

namespace bcap {

// Rows of weights, padded to whole vectors. Output = scale * ((weights - kWeightOffset) . input): a compiler widens
// numbers without a sign in fewer steps.
constexpr int32_t kWeightOffset = 128;

template <size_t kRows, size_t kColumns>
struct QuantizedRows {
  static constexpr size_t kPaddedColumns = (kColumns + 15) / 16 * 16;
  alignas(16) std::array<std::array<uint8_t, kPaddedColumns>, kRows> weights;
  std::array<float, kRows> scale;  // of weight and input together
};

template <size_t kRows, size_t kColumns>
struct QuantizedLayer {
  QuantizedRows<kRows, kColumns> rows;
  std::array<float, kRows> bias;
};

// Rows: reset gates, update gates, candidates.
template <size_t kInputs, size_t kUnits>
struct QuantizedGru {
  QuantizedLayer<3 * kUnits, kInputs> input;
  QuantizedLayer<3 * kUnits, kUnits> recurrent;
};

// What a band sees of itself and around it.
constexpr size_t kSeenNeighbours = 3;  // on either side, their levels above their own floors
constexpr size_t kSharedInputs = 2 * kSeenNeighbours + 1 + 6 + 3;
constexpr size_t kCorrectingBands = 3;

// The layer that the lower bands share. Its inputs are what the band sees, its own last units, the context, and the
// band's place, of which only the products are left. Rows: gates, candidates.
struct SharedLayer {
  // By columns of what is seen, then of units. Sums are made of the upper halves of 16-bit products: weights are of 8
  // bits times one whole number for each row, the largest that keeps every sum within 16 bits. Output = scale * sum.
  std::array<std::array<int16_t, kSharedInputs + kSharedUnits>, 2 * kSharedUnits> weights;
  std::array<float, 2 * kSharedUnits> scale;
  QuantizedRows<2 * kSharedUnits, kContextUnits> context;
  std::array<std::array<float, kSharedBands>, 2 * kSharedUnits> place;  // with the biases
  // By the units of the band below, the band itself, the band above.
  std::array<std::array<float, kSharedUnits>, kCorrectingBands> correction;
  float correction_bias;
};

struct NoiseNetworkWeights {
  QuantizedLayer<kDenseUnits, kNetworkFeatures> dense;
  QuantizedGru<kDenseUnits, kRecurrentUnits> first;
  QuantizedGru<kRecurrentUnits, kRecurrentUnits> second;
  QuantizedLayer<kNetworkBands, 2 * kRecurrentUnits + kDenseUnits> output;
  QuantizedLayer<kContextUnits, 2 * kRecurrentUnits + kDenseUnits> context;
  SharedLayer shared;
};

// Scales of the 16-bit inputs that the exported row scales undo.
constexpr float kFeatureSteps = 1024.0f;      // features reach +-16
constexpr float kActivationSteps = 16384.0f;  // activations reach +-1
constexpr float kSharedSteps = 4096.0f;       // what a band sees reaches +-8, its units +-1

extern const NoiseNetworkWeights kNoiseNetworkWeights;

}  // namespace bcap
