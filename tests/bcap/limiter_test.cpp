// The two look-ahead limiters: never over the peak, nothing changed below it, one gain for both ears, no
// click.
#include <gtest/gtest.h>

#include "capture.h"

namespace {

int largest(const Stereo& s, size_t first = 0) {
  int peak = 0;
  for (size_t n = first; n < s.frames(); ++n) {
    peak = std::max(
        {peak, std::abs(static_cast<int>(s.left[n])), std::abs(static_cast<int>(s.right[n]))});
  }
  return peak;
}

Stereo silence_then(const Stereo& loud, size_t frames) {
  Stereo s(frames);
  std::copy(loud.left.begin(), loud.left.end(), s.left.begin() + 2 * kBlock + 77);
  std::copy(loud.right.begin(), loud.right.end(), s.right.begin() + 2 * kBlock + 77);
  return s;
}

struct Signal {
  const char* name;
  Stereo samples;
};

std::vector<Signal> hostile_signals() {
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
  return {{"full-scale noise", noise(1.0, frames)},
          {"burst", silence_then(noise(0.7, 2000), frames)},
          {"step", step},
          {"square", square},
          {"every other sample", alternating},
          {"clicks", clicks},
          {"one ear", one_ear},
          {"sweep", sine(997.0, 1.0, 0.3, frames)}};
}

TEST(Limiter, NoSampleLeavesAboveThePeak) {
  for (const Signal& signal : hostile_signals()) {
    for (const int32_t peak : {1, 13, 128, 241, 256}) {
      for (const uint32_t rate : {48000u, 44100u}) {
        Capture one_pass(0, rate);
        one_pass.AllOff();
        bcap_pregain_enable_set(one_pass.handle(), 1);
        bcap_pregain_boost_set(one_pass.handle(), 320);
        bcap_postgain_enable_set(one_pass.handle(), 1);
        bcap_postgain_boost_set(one_pass.handle(), 320);
        bcap_postgain_limiter_peak_set(one_pass.handle(), peak);
        EXPECT_LE(largest(one_pass.Process(signal.samples)), 128 * peak)
            << signal.name << ", peak " << peak << ", after the make-up gain, " << rate;

        Capture first_only(1, rate);
        first_only.AllOff();
        bcap_pregain_enable_set(first_only.handle(), 1);
        bcap_pregain_boost_set(first_only.handle(), 320);
        bcap_pregain_limiter_peak_set(first_only.handle(), peak);
        EXPECT_LE(largest(first_only.Process(signal.samples)), 128 * peak)
            << signal.name << ", peak " << peak << ", before, " << rate;
      }
    }
  }
}

// The equaliser lies between the two: what it raises, the second one catches, whether or not the make-up gain
// is on.
TEST(Limiter, CatchesWhatTheEqualiserRaises) {
  Capture capture;
  capture.AllOff();
  const std::vector<int32_t> raised(73, 320);
  bcap_peq_band_gain_tuning_set(capture.handle(), 73, raised.data());
  const Stereo output = capture.Process(sine(440.0, 0.7, 0.7, whole_blocks(1.0)));
  // A sine that was clipped rather than limited would spend most samples at the rail.
  size_t at_rail = 0;
  for (size_t n = 24000; n < output.frames(); ++n) {
    at_rail += std::abs(static_cast<int>(output.left[n])) >= 32767 ? 1 : 0;
  }
  EXPECT_GT(largest(output, 24000), 30000);
  EXPECT_LT(at_rail, 1000u);
}

TEST(Limiter, LeavesWhatIsBelowItsPeakAlone) {
  Capture capture;
  capture.AllOff();
  bcap_postgain_enable_set(capture.handle(), 1);
  bcap_postgain_boost_set(capture.handle(), 0);
  bcap_postgain_limiter_peak_set(capture.handle(), 128);
  const Stereo input = sine(300.0, 0.49, 0.2, 30 * kBlock);
  const Stereo output = capture.Process(input);
  EXPECT_EQ(output.Part(1024, 20 * kBlock), input.Part(0, 20 * kBlock));
}

// At a quarter of the rate, an eighth of a turn off, every sample is at 0.71 of the curve's peak.
TEST(Limiter, TheLastOneHoldsTheCurveBetweenTheSamples) {
  Capture capture;
  bcap_postgain_enable_set(capture.AllOff().handle(), 1);
  bcap_postgain_boost_set(capture.handle(), 0);
  bcap_postgain_limiter_peak_set(capture.handle(), 128);
  Stereo input(30 * kBlock);
  for (size_t n = 0; n < input.frames(); ++n) {
    input.left[n] = input.right[n] = to_pcm(n / 2 % 2 == 0 ? 0.49 : -0.49);
  }
  EXPECT_LT(largest(capture.Process(input), 4 * kBlock), 0.36 * 32768);
}

TEST(Limiter, OneGainForBothEars) {
  Capture capture(1);
  capture.AllOff();
  bcap_pregain_enable_set(capture.handle(), 1);
  bcap_pregain_boost_set(capture.handle(), 160);
  // Only the left ear is over the peak; the right is 12 dB softer and must go down with it.
  const Stereo output = capture.Process(sine(500.0, 0.8, 0.2, whole_blocks(1.0)));
  EXPECT_NEAR(level_db(output.left, 24000) - level_db(output.right, 24000), 12.04, 0.05);
}

// A 1 kHz tone that jumps by 30 dB over the peak: whatever lies far from the tone is the gain's doing. A gain
// that jumped with the tone would put about -40 dB there.
TEST(Limiter, ItsGainDoesNotClick) {
  Capture capture(1);
  capture.AllOff();
  bcap_pregain_limiter_peak_set(capture.handle(), 32);
  bcap_pregain_enable_set(capture.handle(), 1);
  bcap_pregain_boost_set(capture.handle(), 0);
  const size_t frames = whole_blocks(1.0);
  Stereo input(frames);
  for (size_t n = 0; n < frames; ++n) {
    // Steady but for its level, which rises within 1 ms at 0.5 s.
    const double t = static_cast<double>(n) / 48000.0;
    const double rise = std::fmin(std::fmax((t - 0.5) / 0.001, 0.0), 1.0);
    input.left[n] = input.right[n] = to_pcm(
        0.12 * (1.0 + 7.0 * (0.5 - 0.5 * std::cos(M_PI * rise))) * std::sin(2 * M_PI * 1000 * t));
  }
  const Stereo output = capture.Process(input);
  // Second difference in place of a high-pass: a click stands out of the tone by its curvature.
  double steepest = 0.0;
  for (size_t n = 2000; n < frames; ++n) {
    steepest = std::max(steepest,
                        std::fabs(output.left[n] - 2.0 * output.left[n - 1] + output.left[n - 2]) /
                            32768.0);
  }
  // A tone at the peak has 0.125 * (2 pi 1000 / 48000)^2 = 0.00214.
  EXPECT_LT(steepest, 0.0026);
}

}  // namespace
