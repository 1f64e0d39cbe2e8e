// Sine and cosine that the compiler can evaluate, for read-only tables. Not for use at run time.
#pragma once

namespace bcap {

constexpr double kPi = 3.14159265358979323846;

// Taylor series, |x| <= pi; the error stays below 1e-13, far under the resolution of a float.
constexpr double constexpr_sine(double x) {
  double term = x;
  double sum = x;
  for (int n = 1; n < 16; ++n) {
    term *= -x * x / ((2.0 * n) * (2.0 * n + 1.0));
    sum += term;
  }
  return sum;
}

constexpr double constexpr_cosine(double x) {
  double term = 1.0;
  double sum = 1.0;
  for (int n = 1; n < 16; ++n) {
    term *= -x * x / ((2.0 * n - 1.0) * (2.0 * n));
    sum += term;
  }
  return sum;
}

}  // namespace bcap
