// The transform against an independent library.
#include <gtest/gtest.h>

#include <fftw3.h>

#include <array>
#include <cmath>
#include <functional>
#include <random>

#include "bcap/src/transform.h"

namespace {

using namespace bcap;

float noise(size_t) {
  static std::minstd_rand generator(7);
  return std::uniform_real_distribution<float>(-1.0f, 1.0f)(generator);
}

TEST(TransformReference, ForwardAgreesAndInverseReturnsTheFrame) {
  const struct {
    const char* name;
    std::function<float(size_t)> sample;
  } signals[] = {
      {"noise", noise},
      {"impulse at the start", [](size_t n) { return n == 0 ? 1.0f : 0.0f; }},
      {"impulse at an odd sample", [](size_t n) { return n == 37 ? -1.0f : 0.0f; }},
      {"constant", [](size_t) { return 0.5f; }},
      {"highest frequency", [](size_t n) { return n % 2 == 0 ? 1.0f : -1.0f; }},
      {"between two bins", [](size_t n) { return std::sin(0.45678f * static_cast<float>(n)); }},
  };
  for (const auto& signal : signals) {
    SCOPED_TRACE(signal.name);
    alignas(16) std::array<float, 1024> frame;
    for (size_t n = 0; n < frame.size(); ++n) {
      frame[n] = signal.sample(n);
    }
    std::array<fftwf_complex, 513> expected;
    std::array<float, 1024> copy = frame, back;
    fftwf_plan plan = fftwf_plan_dft_r2c_1d(1024, copy.data(), expected.data(), FFTW_ESTIMATE);
    fftwf_execute(plan);
    fftwf_destroy_plan(plan);

    Spectrum spectrum;
    TransformScratch scratch;
    forward_real_transform(frame.data(), spectrum, scratch);
    double largest = 0.0;
    for (const auto& bin : expected) {
      largest = std::fmax(largest, std::hypot(bin[0], bin[1]));
    }
    for (size_t k = 0; k < expected.size(); ++k) {
      ASSERT_NEAR(spectrum.re[k], expected[k][0], 1e-6 * largest) << "bin " << k;
      ASSERT_NEAR(spectrum.im[k], expected[k][1], 1e-6 * largest) << "bin " << k;
    }
    inverse_real_transform(spectrum, back.data(), scratch);
    for (size_t n = 0; n < back.size(); ++n) {
      ASSERT_NEAR(back[n], frame[n], 1e-6) << "sample " << n;
    }
  }
}

}  // namespace
