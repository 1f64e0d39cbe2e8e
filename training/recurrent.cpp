// The recurrent layers of the network, forward and backward through time, for train.py: torch takes such layers one step
// and one operation at a time, which takes longer than everything else in the training together.
// Called by recurrent.py, which says what is what. Built with relaxed arithmetic.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "noise_network_weights.h"

namespace {

constexpr size_t kHidden = bcap::kRecurrentUnits;
constexpr size_t kShared = bcap::kSharedUnits;
constexpr size_t kBands = bcap::kSharedBands;
constexpr size_t kLocal = bcap::kSharedInputs;

float sigmoid(float x) {
  return 1.0f / (1.0f + std::exp(-x));
}

float tanh_of(float x) {
  return 2.0f * sigmoid(2.0f * x) - 1.0f;
}

// sums[kRows][kColumns] += a[kRows][kInner] * b[kInner][kColumns]
template <size_t kInner, size_t kColumns, size_t kRows>
void add_product_of(const float* a, const float* b, float* sums) {
  constexpr size_t kWide = 16;
  static_assert(kColumns % kWide == 0);
  for (size_t column = 0; column < kColumns; column += kWide) {
    float sum[kRows][kWide];
    for (size_t row = 0; row < kRows; ++row) {
      std::copy_n(sums + row * kColumns + column, kWide, sum[row]);
    }
    for (size_t k = 0; k < kInner; ++k) {
      for (size_t row = 0; row < kRows; ++row) {
        for (size_t c = 0; c < kWide; ++c) {
          sum[row][c] += a[row * kInner + k] * b[k * kColumns + column + c];
        }
      }
    }
    for (size_t row = 0; row < kRows; ++row) {
      std::copy_n(sum[row], kWide, sums + row * kColumns + column);
    }
  }
}

// The same of any number of rows.
template <size_t kInner, size_t kColumns>
void add_product(const float* a, const float* b, float* sums, size_t rows) {
  size_t row = 0;
  for (; row + 4 <= rows; row += 4) {
    add_product_of<kInner, kColumns, 4>(a + row * kInner, b, sums + row * kColumns);
  }
  for (; row < rows; ++row) {
    add_product_of<kInner, kColumns, 1>(a + row * kInner, b, sums + row * kColumns);
  }
}

// product[kInner][kColumns] = a[rows][kInner] transposed * b[rows][kColumns]
template <size_t kInner, size_t kColumns>
void product_over_rows(const float* a, const float* b, float* product, size_t rows) {
  constexpr size_t kAtOnce = 8;
  static_assert(kInner % kAtOnce == 0);
  for (size_t k = 0; k < kInner; k += kAtOnce) {
    float sum[kAtOnce][kColumns] = {};
    for (size_t row = 0; row < rows; ++row) {
      for (size_t i = 0; i < kAtOnce; ++i) {
        for (size_t c = 0; c < kColumns; ++c) {
          sum[i][c] += a[row * kInner + k + i] * b[row * kColumns + c];
        }
      }
    }
    std::copy_n(&sum[0][0], kAtOnce * kColumns, product + k * kColumns);
  }
}

}  // namespace

extern "C" {

// As torch.nn.GRU has it. gates[blocks][rows][3][kHidden] come as the products of the inputs, with their bias, and become
// the activations (reset, update, candidate); from_state[blocks][rows][kHidden] becomes what the candidate's reset gate
// multiplies. units[blocks + 1][rows][kHidden] begin with the state before. weights[kHidden][3][kHidden], bias[3][kHidden].
void gated_forward(float* gates, const float* weights, const float* bias, float* from_state,
                   float* units, size_t blocks, size_t rows) {
  std::vector<float> products(rows * 3 * kHidden);
  for (size_t block = 0; block < blocks; ++block, units += rows * kHidden) {
    for (size_t row = 0; row < rows; ++row) {
      std::copy_n(bias, 3 * kHidden, &products[row * 3 * kHidden]);
    }
    add_product<kHidden, 3 * kHidden>(units, weights, products.data(), rows);
    const float* now = products.data();
    const float* last = units;
    float* next = units + rows * kHidden;
    for (size_t row = 0; row < rows; ++row) {
      for (size_t j = 0; j < 2 * kHidden; ++j) {
        gates[j] = sigmoid(gates[j] + now[j]);
      }
      const float* update = gates + kHidden;
      float* candidate = gates + 2 * kHidden;
      for (size_t j = 0; j < kHidden; ++j) {
        from_state[j] = now[2 * kHidden + j];
        candidate[j] = tanh_of(candidate[j] + gates[j] * from_state[j]);
        next[j] = candidate[j] + update[j] * (last[j] - candidate[j]);
      }
      gates += 3 * kHidden, now += 3 * kHidden, from_state += kHidden;
      last += kHidden, next += kHidden;
    }
  }
}

// gates as gated_forward leaves them become the gradients of what it got in their place; from_state becomes that of the
// state's part of the candidate. weights[3][kHidden][kHidden], given[blocks][rows][kHidden]: gradient of the units.
void gated_backward(float* gates, const float* weights, float* from_state, const float* units,
                    const float* given, size_t blocks, size_t rows) {
  std::vector<float> carried(rows * kHidden);
  std::vector<float> of_state(rows * 3 * kHidden);
  for (size_t block = blocks; block-- > 0;) {
    for (size_t row = 0; row < rows; ++row) {
      const size_t at = (block * rows + row) * kHidden;
      float* reset = gates + 3 * at;
      float* update = reset + kHidden;
      float* candidate = update + kHidden;
      float* gradients = &of_state[row * 3 * kHidden];
      for (size_t j = 0; j < kHidden; ++j) {
        const float r = reset[j];
        const float z = update[j];
        const float c = candidate[j];
        const float unit = carried[row * kHidden + j] + given[at + j];
        carried[row * kHidden + j] = unit * z;
        candidate[j] = unit * (1.0f - z) * (1.0f - c * c);
        update[j] = gradients[kHidden + j] = unit * (units[at + j] - c) * z * (1.0f - z);
        reset[j] = gradients[j] = candidate[j] * from_state[at + j] * r * (1.0f - r);
        from_state[at + j] = gradients[2 * kHidden + j] = candidate[j] * r;
      }
    }
    add_product<3 * kHidden, kHidden>(of_state.data(), weights, carried.data(), rows);
  }
}

// The same small layer for kBands bands, see SharedLayer of train.py. local[blocks][rows][kBands][kLocal],
// context[blocks][rows][2][kShared], place[kBands][2][kShared] -> gates[blocks][rows][kBands][2][kShared] (gate, candidate),
// units[blocks + 1][rows][kBands][kShared], which begin with the state before. Weights [kLocal or kShared][2][kShared].
void shared_forward(const float* local, const float* context, const float* place,
                    const float* local_weights, const float* weights, float* gates, float* units,
                    size_t blocks, size_t rows) {
  const size_t all = rows * kBands;
  for (size_t block = 0; block < blocks; ++block, units += all * kShared, local += all * kLocal) {
    for (size_t row = 0; row < rows; ++row, context += 2 * kShared) {
      for (size_t band = 0; band < kBands; ++band) {
        for (size_t j = 0; j < 2 * kShared; ++j) {
          gates[(row * kBands + band) * 2 * kShared + j] =
              context[j] + place[band * 2 * kShared + j];
        }
      }
    }
    add_product<kLocal, 2 * kShared>(local, local_weights, gates, all);
    add_product<kShared, 2 * kShared>(units, weights, gates, all);
    float* next = units + all * kShared;
    for (size_t at = 0; at < all; ++at, gates += 2 * kShared) {
      for (size_t j = 0; j < kShared; ++j) {
        const float gate = gates[j] = sigmoid(gates[j]);
        const float candidate = gates[kShared + j] = tanh_of(gates[kShared + j]);
        next[at * kShared + j] = candidate + gate * (units[at * kShared + j] - candidate);
      }
    }
  }
}

// gates as shared_forward leaves them become the gradients of what was added up there; of_...: gradients in the shapes of
// the arguments above. local_weights[2][kShared][kLocal], weights[2][kShared][kShared]: transposed.
void shared_backward(float* gates, const float* local, const float* local_weights,
                     const float* weights, const float* units, const float* given, float* of_local,
                     float* of_context, float* of_place, float* of_local_weights, float* of_weights,
                     size_t blocks, size_t rows) {
  const size_t all = rows * kBands;
  std::vector<float> carried(all * kShared);
  for (size_t block = blocks; block-- > 0;) {
    for (size_t at = block * all; at < (block + 1) * all; ++at) {
      float* carry = &carried[(at - block * all) * kShared];
      for (size_t j = 0; j < kShared; ++j) {
        float& gate = gates[at * 2 * kShared + j];
        float& candidate = gates[at * 2 * kShared + kShared + j];
        const float z = gate;
        const float c = candidate;
        const float unit = carry[j] + given[at * kShared + j];
        carry[j] = unit * z;
        gate = unit * (units[at * kShared + j] - c) * z * (1.0f - z);
        candidate = unit * (1.0f - z) * (1.0f - c * c);
      }
    }
    add_product<2 * kShared, kShared>(gates + block * all * 2 * kShared, weights, carried.data(),
                                      all);
  }
  product_over_rows<kLocal, 2 * kShared>(local, gates, of_local_weights, blocks * all);
  product_over_rows<kShared, 2 * kShared>(units, gates, of_weights, blocks * all);
  std::fill_n(of_local, blocks * all * kLocal, 0.0f);
  add_product<2 * kShared, kLocal>(gates, local_weights, of_local, blocks * all);
  std::fill_n(of_place, kBands * 2 * kShared, 0.0f);
  for (size_t row = 0; row < blocks * rows; ++row, of_context += 2 * kShared) {
    std::fill_n(of_context, 2 * kShared, 0.0f);
    for (size_t band = 0; band < kBands; ++band, gates += 2 * kShared) {
      for (size_t j = 0; j < 2 * kShared; ++j) {
        of_context[j] += gates[j];
        of_place[band * 2 * kShared + j] += gates[j];
      }
    }
  }
}
}
