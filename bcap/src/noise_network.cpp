// The network's inference; see noise_network.h. Real time: no allocation, lock, log, wait or file.
#include "noise_network.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "noise_network_weights.h"

namespace bcap {
namespace {

// std::clamp() in a form that becomes arithmetic of whole vectors; exact enough up to some thousand times the limit, and
// sums of bounded inputs stay far below that.
inline float within(float value, float limit) {
  return 0.5f * (std::abs(value + limit) - std::abs(value - limit));
}

// Lambert's continued fraction of the hyperbolic tangent, cut after the fifth term; the error stays below 1.4e-3 and,
// unlike the library's function, it vectorises.
inline float tangent(float value) {
  const float x = within(value, 3.646739f);  // where it comes to 1
  const float x2 = x * x;
  return x * (945.0f + x2 * (105.0f + x2)) / (945.0f + x2 * (420.0f + x2 * 15.0f));
}

inline float sigmoid(float value) {
  return 0.5f + 0.5f * tangent(0.5f * value);
}

// Times the largest weight, over the longest row, fits 32 bits.
constexpr int32_t kMostSteps = 16384;
constexpr int32_t kMostSharedSteps = 32767;

// Inputs of a layer, padded with zeros to whole vectors.
template <size_t kCount>
struct Quantized {
  alignas(16) std::array<int16_t, (kCount + 15) / 16 * 16> values{};
};

template <int32_t kMost = kMostSteps>
void quantize(const float* from, size_t count, float steps, int16_t* to) {
  for (size_t n = 0; n < count; ++n) {
    const float scaled = within(from[n] * steps, static_cast<float>(kMost));
    to[n] = static_cast<int16_t>(static_cast<int32_t>(scaled));
  }
}

// For the shared layer.
void quantize_shared(const float* from, size_t count, int16_t* to, float scale = 1.0f) {
  quantize<kMostSharedSteps>(from, count, scale * kSharedSteps, to);
}

template <size_t kRows, size_t kColumns>
void apply(const QuantizedRows<kRows, kColumns>& rows, const Quantized<kColumns>& input,
           float* output) {
  constexpr size_t kPadded = QuantizedRows<kRows, kColumns>::kPaddedColumns;
  static_assert(kPadded * 255 * kMostSteps <= INT32_MAX, "a row's sum must fit 32 bits");
  const int16_t* __restrict in = input.values.data();
  int32_t total = 0;
  for (size_t n = 0; n < kPadded; ++n) {
    total += in[n];
  }
  for (size_t row = 0; row < kRows; ++row) {
    const uint8_t* __restrict weights = rows.weights[row].data();
    int32_t sum = 0;
#pragma GCC unroll 5
    for (size_t n = 0; n < kPadded; ++n) {
      sum += static_cast<int32_t>(in[n]) * weights[n];
    }
    output[row] = rows.scale[row] * static_cast<float>(sum - kWeightOffset * total);
  }
}

template <size_t kRows, size_t kColumns>
void apply(const QuantizedLayer<kRows, kColumns>& layer, const Quantized<kColumns>& input,
           float* output) {
  apply(layer.rows, input, output);
  for (size_t row = 0; row < kRows; ++row) {
    output[row] += layer.bias[row];
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

// One number of each of the shared bands.
using BandSteps = std::array<int16_t, kSharedBands>;
using BandValues = std::array<float, kSharedBands>;

constexpr int16_t upper_half(int16_t a, int16_t b) {
  return static_cast<int16_t>(static_cast<int32_t>(a) * b >> 16);
}

// One row for all bands. Bands lie side by side, so that it takes no sums across a vector, and upper halves of
// products keep eight of them in one; eight columns at a time keep the sums in registers.
void sum_row(const std::array<int16_t, kSharedInputs + kSharedUnits>& row,
             const BandSteps* __restrict input, BandSteps& sum) {
  constexpr size_t kAtATime = 8;
  static_assert((kSharedInputs + kSharedUnits) % kAtATime == 0);
  for (size_t column = 0; column < row.size(); column += kAtATime) {
    const BandSteps* __restrict in = input + column;
    std::array<int16_t, kAtATime> weight;
    std::copy_n(row.begin() + column, kAtATime, weight.begin());
    for (size_t band = 0; band < kSharedBands; ++band) {
      int16_t part = column == 0 ? int16_t{0} : sum[band];
      for (size_t n = 0; n < kAtATime; ++n) {
        part = static_cast<int16_t>(part + upper_half(in[n][band], weight[n]));
      }
      sum[band] = part;
    }
  }
}

// A product loses half a step on the mean when its upper half is taken.
constexpr float kLost = 0.5f * static_cast<float>(kSharedInputs + kSharedUnits);

// What every band sees of itself and around it, as many rows as there are inputs.
void look_around(const NetworkFeatures& features, const NetworkGains& opinion, BandSteps* seen) {
  constexpr float kOpinionScale = 0.25f;
  // Nothing lies below the lowest band.
  std::array<int16_t, kSeenNeighbours + kSharedBands + kSeenNeighbours> levels{};
  quantize_shared(features.data() + kAboveOwnFloor, kSharedBands + kSeenNeighbours,
                  levels.data() + kSeenNeighbours);
  for (size_t n = 0; n < 2 * kSeenNeighbours + 1; ++n) {
    std::copy_n(levels.begin() + n, kSharedBands, (seen++)->begin());
  }
  quantize_shared(features.data() + kAboveSceneFloor, kSharedBands, (seen++)->data());
  for (const size_t first : {kCoherence, kInPhase, kLevelDifference, kUsualPhase}) {
    std::array<int16_t, kSharedBands / 2> pairs;
    quantize_shared(features.data() + first, pairs.size(), pairs.data());
    for (size_t band = 0; band < kSharedBands; ++band) {
      (*seen)[band] = pairs[band / 2];
    }
    ++seen;
  }
  std::array<int16_t, kNetworkGroups> groups;
  quantize_shared(features.data() + kAgainstPeak, groups.size(), groups.data());
  for (size_t band = 0; band < kSharedBands; ++band) {
    (*seen)[band] =
        groups[(std::max(band, kFirstGroupedBand) - kFirstGroupedBand) / kBandsPerGroup];
  }
  ++seen;
  std::array<int16_t, 1 + kSharedBands + 1> opinions{};
  quantize_shared(opinion.data(), kSharedBands + 1, opinions.data() + 1, kOpinionScale);
  for (size_t n = 0; n < 3; ++n) {
    std::copy_n(opinions.begin() + n, kSharedBands, (seen++)->begin());
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
  NetworkContext context;
  apply(weights.context, all, context.data());
  for (float& value : context) {
    value = tangent(value);
  }
  Correct(features, context, gains);
  for (float& gain : gains) {
    gain = sigmoid(gain);
  }
}

void NoiseNetwork::Correct(const NetworkFeatures& features, const NetworkContext& context,
                           NetworkGains& opinion) {
  const SharedLayer& shared = kNoiseNetworkWeights.shared;
  Quantized<kContextUnits> context_steps;
  quantize(context.data(), kContextUnits, kActivationSteps, context_steps.values.data());
  std::array<float, 2 * kSharedUnits> common;
  apply(shared.context, context_steps, common.data());

  alignas(16) std::array<BandSteps, kSharedInputs + kSharedUnits> seen;
  look_around(features, opinion, seen.data());
  for (size_t unit = 0; unit < kSharedUnits; ++unit) {
    quantize_shared(shared_[unit].data(), kSharedBands, seen[kSharedInputs + unit].data());
  }

  std::array<BandValues, kCorrectingBands> said{};
  for (size_t unit = 0; unit < kSharedUnits; ++unit) {
    const size_t other = kSharedUnits + unit;
    alignas(16) BandSteps gates, candidates;
    sum_row(shared.weights[unit], seen.data(), gates);
    sum_row(shared.weights[other], seen.data(), candidates);
    const float gate_bias = common[unit] + kLost * shared.scale[unit];
    const float candidate_bias = common[other] + kLost * shared.scale[other];
    BandValues& state = shared_[unit];
    for (size_t band = 0; band < kSharedBands; ++band) {
      const float kept = sigmoid(shared.scale[unit] * static_cast<float>(gates[band]) + gate_bias +
                                 shared.place[unit][band]);
      const float fresh = tangent(shared.scale[other] * static_cast<float>(candidates[band]) +
                                  candidate_bias + shared.place[other][band]);
      state[band] = fresh + kept * (state[band] - fresh);
    }
    for (size_t to = 0; to < kCorrectingBands; ++to) {
      for (size_t band = 0; band < kSharedBands; ++band) {
        said[to][band] += shared.correction[to][unit] * state[band];
      }
    }
  }
  const auto& [to_above, to_self, to_below] = said;
  for (size_t band = 0; band < kSharedBands; ++band) {
    opinion[band] += shared.correction_bias + to_self[band] +
                     (band > 0 ? to_above[band - 1] : 0.0f) +
                     (band + 1 < kSharedBands ? to_below[band + 1] : 0.0f);
  }
}

}  // namespace bcap
