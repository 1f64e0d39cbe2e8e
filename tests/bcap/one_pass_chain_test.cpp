// What holds for the whole chain, in every mode and at both rates: latency, bit exactness, symmetry, reset.
#include <gtest/gtest.h>

#include "capture.h"

namespace {

const struct Kind {
  uint32_t mode, rate;
  size_t latency;
} kKinds[] = {{0, 48000, 1024}, {0, 44100, 1024}, {1, 48000, 448},  {1, 44100, 448},
              {2, 48000, 512},  {2, 44100, 512},  {3, 48000, 1536}, {3, 44100, 1536}};

TEST(Chain, WithEverythingOffTheOutputIsTheInputDelayed) {
  for (const auto& [mode, rate, latency] : kKinds) {
    SCOPED_TRACE(testing::Message() << "mode " << mode << ", " << rate << " Hz");
    Stereo input = noise(0.5, 40 * kBlock);  // clips at both ends of the range now and then
    input.left[100] = -32768;
    input.right[101] = 32767;
    const Stereo output = Capture(mode, rate).AllOff().Process(input);
    EXPECT_EQ(output, Stereo(latency).Then(input.Part(0, input.frames() - latency)));
  }
}

TEST(Chain, AnImpulseArrivesAtTheLatencyWithEveryStageAtWork) {
  for (const auto& [mode, rate, latency] : {kKinds[0], kKinds[1], kKinds[2], kKinds[3]}) {
    SCOPED_TRACE(testing::Message() << "mode " << mode << ", " << rate << " Hz");
    Capture capture(mode, rate);
    // An equaliser with a shape of its own would smear the impulse; a level one still runs the transform.
    capture.Everything().Equalise(std::vector<int32_t>(73, -16));
    Stereo input(8 * kBlock);
    input.left[700] = input.right[700] = 3000;
    const std::vector<int16_t> output = capture.Process(input).left;
    EXPECT_EQ(std::max_element(output.begin(), output.end()), output.begin() + 700 + latency);
  }
}

TEST(Chain, InPlaceEqualsOutOfPlaceAndSelfieModeExchangesTheEars) {
  const Stereo input = noise(0.05, 60 * kBlock);
  for (const uint32_t mode : {0u, 1u, 2u, 3u}) {
    SCOPED_TRACE(mode);
    const Stereo output = Capture(mode).Everything().Process(input);
    EXPECT_EQ(Capture(mode).Everything().Process(input, true), output);
    Capture selfie(mode);
    selfie.Set(bcap_selfie_mode_set, -7);  // anything but 0 is on, in the modes that have it
    EXPECT_EQ(selfie.Everything().Process(input), mode < 2 ? output.Swapped() : output);
  }
}

TEST(Chain, ResetEqualsFreshAndSilenceStaysSilence) {
  for (const auto& [mode, rate, latency] : kKinds) {
    SCOPED_TRACE(testing::Message() << "mode " << mode << ", " << rate << " Hz");
    const Stereo input = noise(0.2, 30 * kBlock);
    const Stereo silence(100 * kBlock);
    Capture used(mode, rate);
    EXPECT_EQ(used.Everything().Process(silence), silence);
    used.Process(noise(0.7, 50 * kBlock, 2));
    bcap_reset(used.handle());
    EXPECT_EQ(used.Process(input), Capture(mode, rate).Everything().Process(input));
  }
}

// One common gain and equal treatment: what is exchanged at the input is exchanged at the output, but for
// the rounding of sums in another order; equal ears stay equal to the bit.
TEST(Chain, EarsAreTreatedAlike) {
  for (const uint32_t mode : {0u, 1u}) {
    Stereo equal = noise(0.1, 100 * kBlock);
    equal.right = equal.left;
    const Stereo output = Capture(mode).Everything().Process(equal);
    EXPECT_EQ(output.left, output.right) << "mode " << mode;
    EXPECT_GT(level_db(output.left, 50 * kBlock), -60.0);
  }
  Stereo input = noise(0.03, 200 * kBlock);
  for (int16_t& sample : input.right) {
    sample = static_cast<int16_t>(sample / 2);
  }
  const Stereo straight = Capture().Everything().Process(input);
  const Stereo exchanged = Capture().Everything().Process(input.Swapped()).Swapped();
  for (size_t n = 0; n < input.frames(); ++n) {
    ASSERT_NEAR(straight.left[n], exchanged.left[n], 1) << n;
    ASSERT_NEAR(straight.right[n], exchanged.right[n], 1) << n;
  }
}

}  // namespace
