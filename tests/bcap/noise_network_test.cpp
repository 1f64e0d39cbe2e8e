// What the noise reduction does to sound: noise falls, a voice stays, both ears get the same.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
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

Sound& operator+=(Sound& sound, const Sound& other) {
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

class Listener {
 public:
  explicit Listener(uint32_t rate_hz = 48000) : layout_(band_layout(rate_hz)) {
    reduction_.Prepare(rate_hz);
  }

  // Gains of every block.
  std::vector<Gains> Hear(const Sound& sound, float amount = 1.0f) {
    std::vector<Gains> all;
    stft_.Reset();
    for (size_t at = 0; at + 512 <= sound.left.size(); at += 512) {
      stft_.Analyse(&sound.left[at], &sound.right[at], spectrum_, scratch_);
      measure_bands(layout_, spectrum_, bands_);
      Gains gains(layout_.count);
      reduction_.Process(bands_, amount, gains.data());
      all.push_back(gains);
    }
    return all;
  }
  void Reset() { reduction_.Reset(); }

  // Energy of a sound after the gains of another hearing, dB; only blocks from `from` on.
  double LevelAfter(const Sound& sound, const std::vector<Gains>& gains, size_t from) {
    double energy = 1e-20;
    stft_.Reset();
    for (size_t block = 0; block < gains.size(); ++block) {
      stft_.Analyse(&sound.left[block * 512], &sound.right[block * 512], spectrum_, scratch_);
      measure_bands(layout_, spectrum_, bands_);
      for (size_t band = 0; block >= from && band < layout_.count; ++band) {
        energy += gains[block][band] * gains[block][band] *
                  (bands_.energy[0][band] + bands_.energy[1][band]);
      }
    }
    return 10.0 * std::log10(energy);
  }

 private:
  const BandLayout& layout_;
  NoiseReduction reduction_;
  StereoStft stft_;
  StereoSpectrum spectrum_;
  TransformScratch scratch_;
  BandSpectra bands_;
};

std::vector<Gains> untouched(const std::vector<Gains>& like) {
  return std::vector<Gains>(like.size(), Gains(like.front().size(), 1.0f));
}

// Made by training/export.py from the network before its weights were rounded to 8 bits.
TEST(NoiseNetworkTest, RoundedWeightsComeToTheTrainedGains) {
  const float expected[] = {0.177f, 0.628f, 0.813f, 0.722f, 0.287f,
                            0.393f, 0.460f, 0.282f, 0.217f, 0.062f};
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
  const Sound here = voice(3.0, 0.0, 0.1);
  StereoStft stft;
  StereoSpectrum spectrum;
  TransformScratch scratch;
  BandSpectra bands;
  NoiseFeatures listener;
  const auto hear = [&](const std::vector<float>& left, const std::vector<float>& right) {
    double phase = 0.0, level = 0.0, count = 0.0;
    for (size_t at = 0; at + 512 <= left.size(); at += 512) {
      NetworkFeatures features;
      stft.Analyse(&left[at], &right[at], spectrum, scratch);
      measure_bands(band_layout(48000), spectrum, bands);
      listener.Process(bands, features);
      if (at >= left.size() - 24000) {  // the last half second
        for (size_t pair = 4; pair < 14; ++pair) {
          phase += features[kUsualPhase + pair] / 10.0;
        }
        level += features[kAgainstUsual + 2];
        count += 1.0;
      }
    }
    return std::pair(phase / count, level / count);
  };
  const auto usual = hear(here.left, here.right);
  const auto other = hear({here.right.begin(), here.right.begin() + 24000},
                          {here.left.begin(), here.left.begin() + 24000});
  EXPECT_GT(usual.first, 1.8);  // 2 is full agreement
  EXPECT_LT(other.first, 0.8);
  EXPECT_LT(usual.second, 0.15);
  EXPECT_GT(other.second, 0.5);
}

class NoiseReductionAtRate : public testing::TestWithParam<uint32_t> {};

TEST_P(NoiseReductionAtRate, SteadyNoiseFallsFarButIsNotMuted) {
  const Sound sound = noise(4.0, 0.01, GetParam());
  Listener listener(GetParam());
  const auto gains = listener.Hear(sound);
  const size_t last_second = gains.size() - 90;
  const double change = listener.LevelAfter(sound, gains, last_second) -
                        listener.LevelAfter(sound, untouched(gains), last_second);
  EXPECT_LT(change, -15.0);
  EXPECT_GT(change, -35.0);
}

INSTANTIATE_TEST_SUITE_P(Rates, NoiseReductionAtRate, testing::Values(48000u, 44100u));

TEST(NoiseReductionTest, VoiceKeepsItsLevelWhereTheNoiseAroundItFalls) {
  const Sound speech = voice(5.0, 1.0, 0.1), hiss = noise(5.0, 0.003);
  Sound sound = speech;
  sound += hiss;
  Listener listener;
  const auto gains = listener.Hear(sound);
  const size_t from = 94;
  const double voice_change = listener.LevelAfter(speech, gains, from) -
                              listener.LevelAfter(speech, untouched(gains), from);
  const double noise_change =
      listener.LevelAfter(hiss, gains, from) - listener.LevelAfter(hiss, untouched(gains), from);
  EXPECT_GT(voice_change, -1.0);
  EXPECT_LT(noise_change, -12.0);
}

TEST(NoiseReductionTest, MoreIsLessInEveryBandAndNothingIsOne) {
  Sound sound = noise(1.5, 0.01);
  sound += voice(1.5, 0.5, 0.03);
  std::vector<Gains> last;
  for (int amount = 0; amount <= 8; ++amount) {
    Listener listener;
    const auto gains = listener.Hear(sound, static_cast<float>(amount) / 8.0f);
    for (size_t block = 0; block < gains.size(); ++block) {
      for (size_t band = 0; band < 73; ++band) {
        const float gain = gains[block][band];
        ASSERT_GT(gain, 0.0f);
        ASSERT_LE(gain, last.empty() ? 1.0f : last[block][band]) << "amount " << amount;
        if (amount == 0) {
          ASSERT_EQ(gain, 1.0f);
        }
      }
    }
    last = gains;
  }
}

TEST(NoiseReductionTest, ExchangedEarsGetTheSameGainsBitForBit) {
  Sound sound = noise(1.5, 0.01);
  sound += voice(1.5, 0.3, 0.05);
  Listener straight, exchanged;
  EXPECT_EQ(straight.Hear(sound), exchanged.Hear({sound.right, sound.left}));
}

TEST(NoiseReductionTest, LevelOfTheRecordingDoesNotMatter) {
  Sound sound = noise(1.5, 0.01);
  sound += voice(1.5, 0.3, 0.05);
  Sound quiet = sound;
  for (auto* ear : {&quiet.left, &quiet.right}) {
    for (float& sample : *ear) {
      sample *= 0.05f;
    }
  }
  Listener a, b;
  const auto loud_gains = a.Hear(sound), quiet_gains = b.Hear(quiet);
  for (size_t block = 0; block < loud_gains.size(); ++block) {
    for (size_t band = 0; band < 73; ++band) {
      ASSERT_NEAR(loud_gains[block][band], quiet_gains[block][band], 0.05f)
          << block << ", " << band;
    }
  }
}

TEST(NoiseReductionTest, ResetIsAsFresh) {
  const Sound sound = noise(0.5, 0.02);
  Listener used, fresh;
  used.Hear(voice(1.0, 0.0, 0.3));
  used.Reset();
  EXPECT_EQ(used.Hear(sound), fresh.Hear(sound));
}

TEST(NoiseReductionTest, SilenceAndFullScaleGiveFiniteGains) {
  for (const double level : {0.0, 1e-9, 3e4}) {
    Listener listener;
    for (const Gains& gains : listener.Hear(noise(0.5, level))) {
      for (const float gain : gains) {
        ASSERT_TRUE(gain > 0.0f && gain <= 1.0f) << "level " << level << ", gain " << gain;
      }
    }
  }
}

}  // namespace
