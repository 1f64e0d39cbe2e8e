// What the noise reduction does to sound: noise falls, a voice stays, both ears get the same.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <random>
#include <utility>
#include <vector>

#include "bcap/src/noise_network.h"
#include "bcap/src/noise_reduction.h"
#include "bcap/src/transform.h"

namespace {

using namespace bcap;

constexpr double kTurn = 6.283185307179586;

using Gains = std::vector<float>;

struct Sound {
  std::vector<float> left, right;
};

Sound operator+(Sound sound, const Sound& other) {
  for (size_t n = 0; n < sound.left.size(); ++n) {
    sound.left[n] += other.left[n];
    sound.right[n] += other.right[n];
  }
  return sound;
}

// The same noise in the long run, independent at the ears.
Sound noise(double seconds, double level, uint32_t rate_hz = 48000) {
  std::minstd_rand generator(11);
  std::normal_distribution<double> normal(0.0, level);
  Sound sound;
  for (size_t n = 0; n < static_cast<size_t>(seconds * rate_hz); ++n) {
    sound.left.push_back(static_cast<float>(normal(generator)));
    sound.right.push_back(static_cast<float>(normal(generator)));
  }
  return sound;
}

// Four syllables a second of gliding vowels from the left, silent before `from_s`.
Sound voice(double seconds, double from_s, double level) {
  constexpr size_t kInterauralDelay = 12;
  const double formants_hz[2][3] = {{700, 1200, 2600}, {350, 2000, 2900}};
  Sound sound;
  std::vector<float> mono;
  double phase = 0.0;
  for (size_t n = 0; n < static_cast<size_t>(seconds * 48000); ++n) {
    const double t = static_cast<double>(n) / 48000.0 - from_s;
    const double syllable = std::fmax(0.0, std::sin(kTurn * 2.0 * t));
    const size_t vowel = std::fmod(t, 1.0) < 0.5 ? 0 : 1;
    const double pitch_hz = 130.0 + 25.0 * std::sin(kTurn * 0.7 * t);
    phase += kTurn * pitch_hz / 48000.0;
    double sample = 0.0;
    for (int k = 1; k * pitch_hz < 5000.0; ++k) {
      double strength = 0.03 / k;
      for (const double formant_hz : formants_hz[vowel]) {
        const double away = (k * pitch_hz - formant_hz) / 120.0;
        strength += std::exp(-away * away) / (1.0 + formant_hz / 1000.0);
      }
      sample += strength * std::sin(k * phase);
    }
    mono.push_back(t < 0.0 ? 0.0f : static_cast<float>(level * syllable * syllable * sample));
  }
  sound.left = mono;
  sound.right.assign(mono.size(), 0.0f);
  for (size_t n = kInterauralDelay; n < mono.size(); ++n) {
    sound.right[n] = 0.7f * mono[n - kInterauralDelay];
  }
  return sound;
}

// Calls with the number and the spectra of each block.
void for_each_block(const Sound& sound, uint32_t rate_hz,
                    const std::function<void(size_t, const BandSpectra&)>& call) {
  StereoStft stft;
  StereoSpectrum spectrum;
  TransformScratch scratch;
  BandSpectra bands;
  for (size_t at = 0; at + 512 <= sound.left.size(); at += 512) {
    stft.Analyse(&sound.left[at], &sound.right[at], spectrum, scratch);
    measure_bands(band_layout(rate_hz), spectrum, bands);
    call(at / 512, bands);
  }
}

// Gains of every block.
std::vector<Gains> hear(const Sound& sound, uint32_t rate_hz = 48000) {
  NoiseReduction reduction;
  reduction.Prepare(rate_hz);
  std::vector<Gains> all;
  for_each_block(sound, rate_hz, [&](size_t, const BandSpectra& bands) {
    all.emplace_back(band_layout(rate_hz).count);
    reduction.Process(bands, 1.0f, all.back().data());
  });
  return all;
}

// What gains do to the energy of a sound, dB; only blocks from `from` on.
double change_db(const Sound& sound, const std::vector<Gains>& gains, size_t from,
                 uint32_t rate_hz = 48000) {
  double before = 0.0, after = 0.0;
  for_each_block(sound, rate_hz, [&](size_t block, const BandSpectra& bands) {
    for (size_t band = 0; block >= from && band < gains[block].size(); ++band) {
      const double energy = bands.energy[0][band] + bands.energy[1][band];
      before += energy;
      after += energy * gains[block][band] * gains[block][band];
    }
  });
  return 10.0 * std::log10(after / before);
}

// Made by training/export.py from the network before its weights were rounded to 8 bits.
TEST(NoiseNetworkTest, RoundedWeightsComeToTheTrainedGains) {
  const float expected[] = {0.699f, 0.88f,  0.893f, 0.448f, 0.16f,
                            0.549f, 0.918f, 0.8f,   0.447f, 0.071f};
  NoiseNetwork network;
  NetworkGains gains;
  for (int block = 0; block < 20; ++block) {
    NetworkFeatures features;
    for (size_t n = 0; n < features.size(); ++n) {
      features[n] =
          0.6f + 0.5f * std::sin(0.7f * static_cast<float>(n) + 0.3f * static_cast<float>(block));
    }
    network.Process(features, gains);
  }
  for (size_t n = 0; n < std::size(expected); ++n) {
    EXPECT_NEAR(gains[8 * n], expected[n], 0.03f) << "band " << 8 * n;
  }
}

// Where a voice has been for three seconds it agrees with the usual phases; from the other side it does not.
TEST(NoiseFeaturesTest, AVoiceFromElsewhereStandsOut) {
  constexpr size_t kUsualPhase = 271, kAgainstUsual = 308;
  NoiseFeatures listener;
  const auto agreement = [&listener](const Sound& sound) {
    double phase = 0.0, level = 0.0;
    const size_t blocks = sound.left.size() / 512, last = 46;  // about half a second
    for_each_block(sound, 48000, [&](size_t block, const BandSpectra& bands) {
      NetworkFeatures features;
      listener.Process(bands, features);
      for (size_t pair = 4; block >= blocks - last && pair < 14; ++pair) {
        phase += features[kUsualPhase + pair] / (10.0 * last);
        level += features[kAgainstUsual + 2] / (10.0 * last);
      }
    });
    return std::pair(phase, level);
  };
  const Sound here = voice(3.0, 0.0, 0.1), moment = voice(0.5, 0.0, 0.1);
  const auto usual = agreement(here), other = agreement({moment.right, moment.left});
  EXPECT_GT(usual.first, 1.8);  // 2 is full agreement
  EXPECT_LT(other.first, 0.8);
  EXPECT_LT(usual.second, 0.15);
  EXPECT_GT(other.second, 0.5);
}

// A headset is silent before it sends and while it is muted, and the stages before hold the first samples back.
TEST(NoiseFeaturesTest, DigitalSilenceIsNotTakenForTheRoom) {
  const auto above_floor =
      [](const Sound& sound) {  // mean of all bands, 12 dB each, in the last half second
        NoiseFeatures listener;
        double mean = 0.0;
        for_each_block(sound, 48000, [&](size_t block, const BandSpectra& bands) {
          NetworkFeatures features;
          listener.Process(bands, features);
          for (size_t band = 0; band < 73 && block >= sound.left.size() / 512 - 46; ++band) {
            mean += features[band] / (73.0 * 46.0);
          }
        });
        return mean;
      };
  const Sound hiss = noise(1.5, 0.01);
  const double expected = above_floor(hiss);
  const size_t silences[][2] = {{0, 256}, {0, 1012}, {0, 51648}, {35840, 51648}};  // from, samples
  for (const auto& [from, silent] : silences) {
    Sound sound = hiss;
    for (std::vector<float>* ear : {&sound.left, &sound.right}) {
      ear->insert(ear->begin() + static_cast<ptrdiff_t>(from), silent, 0.0f);
    }
    EXPECT_NEAR(above_floor(sound), expected, 0.08) << silent << " from " << from;
  }
}

TEST(NoiseReductionTest, SteadyNoiseFallsFarButIsNotMuted) {
  for (const uint32_t rate_hz : {48000u, 44100u}) {
    const Sound sound = noise(4.0, 0.01, rate_hz);
    const auto gains = hear(sound, rate_hz);
    const double change = change_db(sound, gains, gains.size() - 90, rate_hz);  // the last second
    EXPECT_LT(change, -15.0) << rate_hz;
    EXPECT_GT(change, -35.0) << rate_hz;
  }
}

TEST(NoiseReductionTest, VoiceKeepsItsLevelWhereTheNoiseAroundItFalls) {
  const Sound speech = voice(5.0, 1.0, 0.1), hiss = noise(5.0, 0.003);
  const auto gains = hear(speech + hiss);
  EXPECT_GT(change_db(speech, gains, 94), -1.0);
  EXPECT_LT(change_db(hiss, gains, 94), -12.0);
}

TEST(NoiseReductionTest, ExchangedEarsGetTheSameGainsBitForBit) {
  const Sound sound = noise(1.5, 0.01) + voice(1.5, 0.3, 0.05);
  EXPECT_EQ(hear(sound), hear({sound.right, sound.left}));
}

TEST(NoiseReductionTest, LevelOfTheRecordingDoesNotMatter) {
  const auto loud = hear(noise(1.5, 0.01) + voice(1.5, 0.3, 0.05));
  const auto quiet = hear(noise(1.5, 0.0005) + voice(1.5, 0.3, 0.0025));
  for (size_t block = 0; block < loud.size(); ++block) {
    EXPECT_THAT(quiet[block], testing::Pointwise(testing::FloatNear(0.05f), loud[block])) << block;
  }
}

TEST(NoiseReductionTest, SilenceAndFullScaleGiveFiniteGains) {
  for (const double level : {0.0, 1e-9, 3e4}) {
    for (const Gains& gains : hear(noise(0.5, level))) {
      ASSERT_THAT(gains, testing::Each(testing::AllOf(testing::Gt(0.0f), testing::Le(1.0f))))
          << "level " << level;
    }
  }
}

}  // namespace
