// Logarithm and power of two in a form that compilers turn into arithmetic of whole vectors, for loops over bands; the
// library's functions are called band by band. Relative errors stay below 1e-6.
#pragma once

#include <cstdint>
#include <cstring>

namespace bcap {

// Of a positive number that is not denormal; infinity comes out as 128.
inline float vector_log2(float value) {
  constexpr int32_t kRootOfHalf = 0x3f3504f3;
  constexpr int32_t kOctave = 1 << 23;
  int32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  const int32_t exponent = (bits - kRootOfHalf) >> 23;
  bits -= exponent * kOctave;
  float mantissa;  // from the root of one half to the root of two
  std::memcpy(&mantissa, &bits, sizeof mantissa);
  // 2 / ln(2) times the series of the inverse hyperbolic tangent.
  const float x = (mantissa - 1.0f) / (mantissa + 1.0f);
  const float x2 = x * x;
  return static_cast<float>(exponent) +
         x * (2.88539008f + x2 * (0.96179669f + x2 * (0.57707802f + x2 * 0.41219858f)));
}

// Of a number from -126 to 126.
inline float vector_exp2(float value) {
  constexpr int32_t kBias = 127;
  const auto whole = static_cast<int32_t>(value + (kBias + 0.5f));
  const float x = value - static_cast<float>(whole - kBias);  // from -0.5 to 0.5
  const int32_t bits = whole << 23;
  float power;
  std::memcpy(&power, &bits, sizeof power);
  // Taylor's series of exp(x ln(2)).
  return power *
         (1.0f +
          x * (0.69314718f +
               x * (0.24022651f +
                    x * (0.05550411f + x * (0.00961813f + x * (0.00133336f + x * 0.00015403f))))));
}

}  // namespace bcap
