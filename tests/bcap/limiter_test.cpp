// The two look-ahead limiters: never over the peak, nothing changed below it, one gain for both ears.
#include <gtest/gtest.h>

#include "capture.h"

namespace {

int largest(const Stereo& s, size_t first = 0) {
  int peak = 0;
  for (size_t n = first; n < s.frames(); ++n) {
    peak = std::max({peak, std::abs(int{s.left[n]}), std::abs(int{s.right[n]})});
  }
  return peak;
}

TEST(Limiter, NoSampleLeavesAboveThePeak) {
  const size_t frames = whole_blocks(1.5);
  Stereo step(frames), square(frames), alternating(frames), clicks(frames), one_ear(frames);
  for (size_t n = 0; n < frames; ++n) {
    step.left[n] = step.right[n] = n > 5000 ? 32767 : 0;
    square.left[n] = square.right[n] = n / 300 % 2 == 0 ? -32768 : 32767;
    alternating.left[n] = n % 2 == 0 ? -32768 : 32767;
    alternating.right[n] = n % 2 == 0 ? 32767 : -32768;
    clicks.left[n] = n % 1009 == 0 ? -32768 : 20;
    clicks.right[n] = n % 733 == 0 ? 32767 : -20;
    one_ear.right[n] = to_pcm(std::sin(0.7 * static_cast<double>(n)));
  }
  const Stereo burst = Stereo(2 * kBlock + 77).Then(noise(0.7, 2000)).Then(Stereo(100 * kBlock));
  const std::pair<const char*, Stereo> signals[] = {{"noise", noise(1.0, frames)},
                                                    {"burst", burst},
                                                    {"step", step},
                                                    {"square", square},
                                                    {"clicks", clicks},
                                                    {"every other sample", alternating},
                                                    {"one ear", one_ear},
                                                    {"sine", sine(997.0, 1.0, 0.3, frames)}};
  for (const auto& [name, samples] : signals) {
    for (const int32_t peak : {1, 13, 128, 241, 256}) {
      for (const uint32_t rate : {48000u, 44100u}) {
        SCOPED_TRACE(testing::Message() << name << ", peak " << peak << ", " << rate);
        Capture one_pass(0, rate);
        one_pass.AllOff().GainBefore(320).MakeUpGain(320).Set(bcap_postgain_limiter_peak_set, peak);
        EXPECT_LE(largest(one_pass.Process(samples)), 128 * peak) << "the last one";
        for (const uint32_t mode : {0u, 1u}) {
          Capture first_only(mode, rate);
          first_only.AllOff().GainBefore(320).Set(bcap_pregain_limiter_peak_set, peak);
          EXPECT_LE(largest(first_only.Process(samples)), 128 * peak) << "the first one, " << mode;
        }
        // It acts behind the spectrum, which here takes a sixteenth of a decibel from everything.
        Capture around(0, rate);
        around.AllOff().GainBefore(320).Set(bcap_pregain_limiter_peak_set, peak);
        around.Equalise(std::vector<int32_t>(75, -1));
        EXPECT_LE(largest(around.Process(samples)), 128 * peak) << "the first one, level equaliser";
      }
    }
  }
}

// The equaliser lies between the two: what it raises, the second one catches, whether or not the make-up gain
// is on.
TEST(Limiter, CatchesWhatTheEqualiserRaises) {
  Capture capture;
  capture.AllOff().Equalise(std::vector<int32_t>(73, 320));
  const Stereo output = capture.Process(sine(440.0, 0.7, 0.7, whole_blocks(1.0)));
  EXPECT_GT(largest(output, 24000), 30000);
  // A sine that was clipped rather than limited would spend most samples at the rail.
  EXPECT_LT(std::count_if(output.left.begin() + 24000, output.left.end(),
                          [](int sample) { return std::abs(sample) >= 32767; }),
            1000);
}

TEST(Limiter, TheLastOneLeavesWhatIsBelowItsPeakAloneAndHoldsTheCurveBetweenTheSamples) {
  const Stereo input = sine(300.0, 0.49, 0.2, 30 * kBlock);
  Capture below;
  below.AllOff().MakeUpGain(0).Set(bcap_postgain_limiter_peak_set, 128);
  EXPECT_EQ(below.Process(input).Part(1024, 20 * kBlock), input.Part(0, 20 * kBlock));
  // At a quarter of the rate, an eighth of a turn off, every sample is at 0.71 of the curve's peak.
  Stereo between(30 * kBlock);
  for (size_t n = 0; n < between.frames(); ++n) {
    between.left[n] = between.right[n] = to_pcm(n / 2 % 2 == 0 ? 0.49 : -0.49);
  }
  bcap_reset(below.handle());
  EXPECT_LT(largest(below.Process(between), 4 * kBlock), 0.36 * 32768);
}

TEST(Limiter, OneGainForBothEars) {
  Capture capture(1);
  capture.AllOff().GainBefore(160);
  // Only the left ear is over the peak; the right is 12 dB softer and must go down with it.
  const Stereo output = capture.Process(sine(500.0, 0.8, 0.2, whole_blocks(1.0)));
  EXPECT_NEAR(level_db(output.left, 24000) - level_db(output.right, 24000), 12.04, 0.05);
}

}  // namespace
