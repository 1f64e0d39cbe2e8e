// Between decibels and factors. The parameters of the library count 1/16 dB.
#pragma once

#include <cmath>
#include <cstdint>

namespace bcap {

inline float db_to_gain(float db) {
  return std::exp2(db * 0.166096405f);  // log2(10) / 20
}

inline float db_to_power(float db) {
  return std::exp2(db * 0.332192809f);  // log2(10) / 10
}

// Of a mean square; -200 dB for silence.
inline float power_to_db(float power) {
  return 3.01029996f * std::log2(power + 1e-20f);
}

inline float sixteenths_to_db(int32_t sixteenths) {
  return static_cast<float>(sixteenths) * (1.0f / 16.0f);
}

}  // namespace bcap
