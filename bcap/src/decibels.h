// Between decibels and factors. The parameters of the library count 1/16 dB.
#pragma once

#include <cmath>
#include <cstdint>

namespace bcap {

constexpr float kOctavesPerDb = 0.166096405f;       // of amplitude: log2(10) / 20
constexpr float kDbPerOctaveOfPower = 3.01029996f;  // 10 log10(2)
constexpr float kSilentPower = 1e-20f;              // -200 dB

inline float db_to_gain(float db) {
  return std::exp2(db * kOctavesPerDb);
}

inline float db_to_power(float db) {
  return std::exp2(db * (2.0f * kOctavesPerDb));
}

// Of a mean square; -200 dB for silence.
inline float power_to_db(float power) {
  return kDbPerOctaveOfPower * std::log2(power + kSilentPower);
}

inline float sixteenths_to_db(int32_t sixteenths) {
  return static_cast<float>(sixteenths) * (1.0f / 16.0f);
}

}  // namespace bcap
