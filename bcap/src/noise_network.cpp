// The network's inference; see noise_network.h. Real time: no allocation, lock, log, wait or file.
#include "noise_network.h"

#include <algorithm>
#include <cstdint>

#include "noise_network_weights.h"

namespace bcap {
namespace {

// Lambert's continued fraction of the hyperbolic tangent, cut after the seventh term; the error stays
// below 1e-4 and, unlike the library's function, it vectorises.
inline float tangent(float value) {
  const float x = std::clamp(value, -4.97f, 4.97f);
  const float x2 = x * x;
  return x * (135135.0f + x2 * (17325.0f + x2 * (378.0f + x2))) /
         (135135.0f + x2 * (62370.0f + x2 * (3150.0f + x2 * 28.0f)));
}

inline float sigmoid(float value) {
  return 0.5f + 0.5f * tangent(0.5f * value);
}

// Inputs of a layer, padded with zeros to whole vectors.
template <size_t kCount>
struct Quantized {
  alignas(16) std::array<int16_t, (kCount + 15) / 16 * 16> values{};
};

void quantize(const float* from, size_t count, float steps, int16_t* to) {
  for (size_t n = 0; n < count; ++n) {
    const float scaled = std::clamp(from[n] * steps, -32767.0f, 32767.0f);
    to[n] = static_cast<int16_t>(static_cast<int32_t>(scaled));
  }
}

template <size_t kRows, size_t kColumns>
void apply(const QuantizedLayer<kRows, kColumns>& layer, const Quantized<kColumns>& input,
           float* output) {
  constexpr size_t kPadded = QuantizedLayer<kRows, kColumns>::kPaddedColumns;
  static_assert(kPadded * 127 * 32767 <= INT32_MAX, "a row's sum must fit 32 bits");
  const int16_t* __restrict in = input.values.data();
  for (size_t row = 0; row < kRows; ++row) {
    const int8_t* __restrict weights = layer.weights[row].data();
    int32_t sum = 0;
    for (size_t n = 0; n < kPadded; ++n) {
      sum += static_cast<int32_t>(in[n]) * weights[n];
    }
    output[row] = layer.scale[row] * static_cast<float>(sum) + layer.bias[row];
  }
}

template <size_t kInputs, size_t kUnits>
void apply(const QuantizedGru<kInputs, kUnits>& layer, const Quantized<kInputs>& input,
           std::array<float, kUnits>& state) {
  Quantized<kUnits> last;
  quantize(state.data(), kUnits, kActivationSteps, last.values.data());
  std::array<float, 3 * kUnits> from_input;
  std::array<float, 3 * kUnits> from_state;
  apply(layer.input, input, from_input.data());
  apply(layer.recurrent, last, from_state.data());
  for (size_t n = 0; n < kUnits; ++n) {
    const float reset = sigmoid(from_input[n] + from_state[n]);
    const float update = sigmoid(from_input[kUnits + n] + from_state[kUnits + n]);
    const float candidate =
        tangent(from_input[2 * kUnits + n] + reset * from_state[2 * kUnits + n]);
    state[n] = candidate + update * (state[n] - candidate);
  }
}

}  // namespace

void NoiseNetwork::Reset() {
  *this = NoiseNetwork{};
}

void NoiseNetwork::Process(const NetworkFeatures& features, NetworkGains& gains) {
  const NoiseNetworkWeights& weights = kNoiseNetworkWeights;
  Quantized<kNetworkFeatures> input;
  quantize(features.data(), kNetworkFeatures, kFeatureSteps, input.values.data());
  std::array<float, kDenseUnits> dense;
  apply(weights.dense, input, dense.data());
  for (float& value : dense) {
    value = tangent(value);
  }
  Quantized<kDenseUnits> dense_steps;
  quantize(dense.data(), kDenseUnits, kActivationSteps, dense_steps.values.data());
  apply(weights.first, dense_steps, first_);
  Quantized<kRecurrentUnits> first_steps;
  quantize(first_.data(), kRecurrentUnits, kActivationSteps, first_steps.values.data());
  apply(weights.second, first_steps, second_);
  Quantized<2 * kRecurrentUnits + kDenseUnits> all;
  int16_t* const after_first =
      std::copy_n(first_steps.values.data(), kRecurrentUnits, all.values.data());
  quantize(second_.data(), kRecurrentUnits, kActivationSteps, after_first);
  std::copy_n(dense_steps.values.data(), kDenseUnits, after_first + kRecurrentUnits);
  apply(weights.output, all, gains.data());
  for (float& gain : gains) {
    gain = sigmoid(gain);
  }
}

}  // namespace bcap
