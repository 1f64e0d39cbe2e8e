// The transform against an independent library.
#include <gtest/gtest.h>

#include <fftw3.h>

#include <array>
#include <cmath>
#include <functional>
#include <random>
#include <string>

#include "bcap/src/transform.h"

namespace {

using namespace bcap;

struct Signal {
  std::string name;
  std::function<float(size_t)> sample;
};

class TransformReference : public testing::TestWithParam<Signal> {};

TEST_P(TransformReference, ForwardAgreesAndInverseReturnsTheFrame) {
  alignas(16) std::array<float, 1024> frame;
  for (size_t n = 0; n < frame.size(); ++n) {
    frame[n] = GetParam().sample(n);
  }
  std::array<fftwf_complex, 513> expected;
  std::array<float, 1024> copy = frame;
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

  std::array<float, 1024> back;
  inverse_real_transform(spectrum, back.data(), scratch);
  for (size_t n = 0; n < back.size(); ++n) {
    ASSERT_NEAR(back[n], frame[n], 1e-6) << "sample " << n;
  }
}

float noise(size_t) {
  static std::minstd_rand generator(7);
  return std::uniform_real_distribution<float>(-1.0f, 1.0f)(generator);
}

INSTANTIATE_TEST_SUITE_P(
    Signals, TransformReference,
    testing::Values(Signal{"Noise", noise},
                    Signal{"ImpulseAtStart", [](size_t n) { return n == 0 ? 1.0f : 0.0f; }},
                    Signal{"ImpulseAtOddSample", [](size_t n) { return n == 37 ? -1.0f : 0.0f; }},
                    Signal{"Constant", [](size_t) { return 0.5f; }},
                    Signal{"HighestFrequency", [](size_t n) { return n % 2 == 0 ? 1.0f : -1.0f; }},
                    Signal{"BetweenTwoBins",
                           [](size_t n) {
                             return static_cast<float>(std::sin(0.45678 * static_cast<double>(n)));
                           }}),
    [](const auto& test) { return test.param.name; });

}  // namespace
