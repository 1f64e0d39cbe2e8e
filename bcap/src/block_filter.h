// A recursive filter that advances four samples at a time, so that its arithmetic falls into vectors: with
// state s, four inputs x and four outputs y
//     y = direct x + observe s,    s' = drive x + advance s
// (the block form of a state-space filter: C. Barnes, S. Shinnaka, "Block-shift invariance and block
// implementation of discrete-time filters", IEEE Trans. CAS 27, 1980). The four matrices are found by running
// the filter's plain recursion on unit inputs and unit states, in double precision.
// Latency 0 samples.
#pragma once

#include <array>
#include <cstddef>

#include "delay_line.h"

namespace bcap {

template <size_t kStates>
class BlockFilter {
 public:
  struct State {
    std::array<float, 4> values{};  // the last ones unused
  };

  // step: double(double input, std::array<double, kStates>& state), the plain recursion.
  template <typename Step>
  void Prepare(Step step) {
    for (size_t from = 0; from < kGroup + kStates; ++from) {
      std::array<double, kStates> state{};
      if (from >= kGroup) {
        state[from - kGroup] = 1.0;
      }
      for (size_t n = 0; n < kGroup; ++n) {
        to_output_[from][n] = static_cast<float>(step(n == from ? 1.0 : 0.0, state));
      }
      for (size_t s = 0; s < kStates; ++s) {
        to_state_[from][s] = static_cast<float>(state[s]);
      }
    }
  }

  // One block; real time. The ears advance side by side, so that neither waits for its own recursion. `in` and
  // `out` may not overlap.
  void Process(StereoBlock in, StereoBlock out, std::array<State, kEars>& states) const {
    std::array<State, kEars> s = states;
    for (size_t n = 0; n < kBlockFrames; n += kGroup) {
      for (size_t ear = 0; ear < kEars; ++ear) {
        const float* __restrict from_samples = in.ear(ear) + n;
        float* __restrict to_samples = out.ear(ear) + n;
        std::array<float, kGroup> y{};
        std::array<float, kGroup> next{};
        for (size_t from = 0; from < kGroup + kStates; ++from) {
          const float source = from < kGroup ? from_samples[from] : s[ear].values[from - kGroup];
          for (size_t lane = 0; lane < kGroup; ++lane) {
            y[lane] += to_output_[from][lane] * source;
            next[lane] += to_state_[from][lane] * source;
          }
        }
        for (size_t lane = 0; lane < kGroup; ++lane) {
          to_samples[lane] = y[lane];
        }
        s[ear].values = next;
      }
    }
    states = s;
  }

 private:
  static constexpr size_t kGroup = 4;
  static_assert(kStates <= kGroup, "the state of a filter is one vector");
  // Column by column: first what each input sample does, then what each state does.
  alignas(16) std::array<std::array<float, kGroup>, kGroup + kStates> to_output_{};
  alignas(16) std::array<std::array<float, kGroup>, kGroup + kStates> to_state_{};
};

inline float sum_of_squares(const float* samples) {
  float sum = 0.0f;
  for (size_t n = 0; n < kBlockFrames; ++n) {
    sum += samples[n] * samples[n];
  }
  return sum;
}

}  // namespace bcap
