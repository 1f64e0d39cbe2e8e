// What the noise reduction does to sound: noise falls, a voice stays, both ears get the same.
#include <gmock/gmock.h>

#include <functional>
#include <numeric>

#include "bcap/src/noise_network.h"
#include "bcap/src/noise_network_weights.h"
#include "bcap/src/noise_reduction.h"
#include "bcap/src/transform.h"
#include "bcap/src/vector_math.h"
#include "capture.h"

namespace {

using namespace bcap;

constexpr double kTurn = 6.283185307179586;

using Gains = std::vector<float>;

Stereo operator+(Stereo sound, const Stereo& other) {
  for (size_t n = 0; n < sound.frames(); ++n) {
    sound.left[n] = static_cast<int16_t>(sound.left[n] + other.left[n]);
    sound.right[n] = static_cast<int16_t>(sound.right[n] + other.right[n]);
  }
  return sound;
}

// Four syllables a second of gliding vowels from the left, silent before `from_s`.
Stereo voice(double seconds, double from_s, double level) {
  constexpr size_t kInterauralDelay = 12;
  const double formants_hz[2][3] = {{700, 1200, 2600}, {350, 2000, 2900}};
  Stereo sound(whole_blocks(seconds));
  double phase = 0.0;
  for (size_t n = 0; n < sound.frames(); ++n) {
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
    sound.left[n] = t < 0.0 ? 0 : to_pcm(level * syllable * syllable * sample);
    if (n >= kInterauralDelay) {
      sound.right[n] = static_cast<int16_t>(0.7 * sound.left[n - kInterauralDelay]);
    }
  }
  return sound;
}

// Calls with the number and the spectra of each block.
void for_each_block(const Stereo& sound,
                    const std::function<void(size_t, const BandSpectra&)>& call) {
  StereoStft stft;
  TransformScratch scratch;
  BandSpectra bands;
  for (size_t block = 0; block < sound.frames() / kBlock; ++block) {
    float left[kBlock], right[kBlock];
    for (size_t n = 0; n < kBlock; ++n) {
      left[n] = sound.left[block * kBlock + n] / 32768.0f;
      right[n] = sound.right[block * kBlock + n] / 32768.0f;
    }
    stft.Analyse(left, right, scratch);
    measure_bands(band_layout(48000), stft.newest(), bands);
    call(block, bands);
  }
}

// Of every block the gains, which are for the frame before the one that ends there.
std::vector<Gains> hear(const Stereo& sound) {
  NoiseReduction reduction;
  reduction.Prepare(48000);
  std::vector<Gains> all;
  for_each_block(sound, [&](size_t, const BandSpectra& bands) {
    all.emplace_back(73);
    reduction.Process(bands, 1.0f, all.back().data());
  });
  return all;
}

// What gains do to the energy of a sound after its first second, dB.
double change_db(const Stereo& sound, const std::vector<Gains>& gains) {
  double before = 0.0, after = 0.0;
  for_each_block(sound, [&](size_t block, const BandSpectra& bands) {
    for (size_t band = 0; block >= 94 && block + 1 < gains.size() && band < 73; ++band) {
      const double energy = bands.energy[0][band] + bands.energy[1][band];
      before += energy;
      after += energy * gains[block + 1][band] * gains[block + 1][band];
    }
  });
  return 10.0 * std::log10(after / before);
}

// Means of the network's features over the last half second.
std::vector<double> features_of(const Stereo& sound, NoiseFeatures& listener) {
  std::vector<double> means(std::tuple_size_v<NetworkFeatures>);
  NetworkFeatures features{};
  for_each_block(sound, [&](size_t block, const BandSpectra& bands) {
    listener.Process(bands, features);
    for (size_t n = 0; n < means.size() && block + 46 >= sound.frames() / kBlock; ++n) {
      means[n] += features[n] / 46.0;
    }
  });
  return means;
}

// Made by training/export.py from the network before its weights were rounded to 8 bits.
TEST(NoiseNetworkTest, RoundedWeightsComeToTheTrainedGains) {
  const float expected[] = {0.766f, 0.177f, 0.208f, 0.241f, 0.224f,
                            0.53f,  0.964f, 0.835f, 0.571f, 0.11f};
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
    EXPECT_NEAR(gains[8 * n], expected[n], 0.035f) << "band " << 8 * n;
  }
}

// Bands' inputs reach 32767 steps, their units 4096; of each product the upper half is taken, up to a step too low.
TEST(NoiseNetworkTest, NoSumOfTheSharedLayerLeaves16Bits) {
  for (const auto& row : kNoiseNetworkWeights.shared.weights) {
    double largest = 0.0;
    for (size_t n = 0; n < row.size(); ++n) {
      largest += std::abs(row[n]) * (n < 16 ? 32768.0 : 4096.0) / 65536.0 + 1.0;
    }
    EXPECT_LE(largest, 32767.0);
    EXPECT_GT(*std::max_element(row.begin(), row.end()), 500);  // nor is it too coarse
  }
}

TEST(VectorMathTest, AgreesWithTheLibrary) {
  for (float octaves = -120.0f; octaves < 120.0f; octaves += 0.173f) {
    const float power = std::exp2(octaves);
    EXPECT_NEAR(vector_log2(power), octaves, 2e-5f);
    EXPECT_NEAR(vector_exp2(octaves) / power, 1.0f, 1e-6f) << octaves;
  }
  EXPECT_EQ(vector_log2(1.0f), 0.0f);
  EXPECT_EQ(vector_exp2(0.0f), 1.0f);  // amount 0 changes nothing
}

// Where a voice has been for three seconds it agrees with the usual phases; from the other side it does not.
TEST(NoiseFeaturesTest, AVoiceFromElsewhereStandsOut) {
  constexpr size_t kUsualPhase = 271, kAgainstUsual = 308;
  NoiseFeatures listener;
  const std::vector<double> usual = features_of(voice(3.0, 0.0, 0.1), listener);
  const std::vector<double> other = features_of(voice(0.5, 0.0, 0.1).Swapped(), listener);
  const auto phase = [](const std::vector<double>& features) {
    const auto first = features.begin() + kUsualPhase + 4;
    return std::accumulate(first, first + 10, 0.0) / 10.0;
  };
  EXPECT_GT(phase(usual), 1.8);  // 2 is full agreement
  EXPECT_LT(phase(other), 0.8);
  EXPECT_LT(usual[kAgainstUsual + 2], 0.15);
  EXPECT_GT(other[kAgainstUsual + 2], 0.5);
}

// A headset is silent before it sends and while it is muted.
TEST(NoiseFeaturesTest, DigitalSilenceIsNotTakenForTheRoom) {
  const auto above_floor = [](const Stereo& sound) {  // mean of all bands, 12 dB each
    NoiseFeatures listener;
    const std::vector<double> features = features_of(sound, listener);
    return std::accumulate(features.begin(), features.begin() + 73, 0.0) / 73.0;
  };
  const Stereo hiss = noise(0.01, whole_blocks(1.5));
  const double expected = above_floor(hiss);
  const size_t silences[][2] = {{0, 256}, {0, 1012}, {0, 51648}, {35840, 51648}};  // from, samples
  for (const auto& [from, silent] : silences) {
    const Stereo sound = hiss.Part(0, from).Then(Stereo(silent));
    EXPECT_NEAR(above_floor(sound.Then(hiss.Part(from, hiss.frames() - from))), expected, 0.08)
        << silent << " from " << from;
  }
  const Stereo quieter = noise(0.001, whole_blocks(1.5));  // a room of its own, not a gap
  EXPECT_NEAR(above_floor(hiss.Then(quieter)), above_floor(quieter), 0.08);
}

TEST(NoiseReductionTest, VoiceKeepsItsLevelWhereTheNoiseAroundItFalls) {
  const Stereo speech = voice(5.0, 1.0, 0.1), hiss = noise(0.003, whole_blocks(5.0));
  const auto gains = hear(speech + hiss);
  EXPECT_GT(change_db(speech, gains), -1.0);
  EXPECT_LT(change_db(hiss, gains), -12.0);
}

TEST(NoiseReductionTest, NeitherExchangedEarsNorTheLevelMatter) {
  const Stereo sound = voice(1.5, 0.3, 0.1) + noise(0.02, whole_blocks(1.5));
  const auto gains = hear(sound);
  const auto quiet = hear(voice(1.5, 0.3, 0.005) + noise(0.001, whole_blocks(1.5)));
  const auto exchanged = hear(sound.Swapped());
  for (size_t block = 0; block < gains.size(); ++block) {
    // But for the rounding of sums in another order, which now and then moves an input of 16 bits by a step.
    EXPECT_THAT(exchanged[block], testing::Pointwise(testing::FloatNear(0.001f), gains[block]));
    EXPECT_THAT(quiet[block], testing::Pointwise(testing::FloatNear(0.06f), gains[block])) << block;
  }
}

// Neither silence nor what the high-pass filter rings with when a recording breaks off is the room.
TEST(NoiseReductionTest, AfterAGapTheNoiseIsAsLowAsBefore) {
  constexpr size_t kFrom = 280 * kBlock, kHeard = 60 * kBlock;
  const Stereo room = noise(0.03, 470 * kBlock) + sine(90.0, 0.2, 0.2, 470 * kBlock);
  const auto after_db = [&room](size_t gap) {
    const Stereo broken =
        room.Part(0, kFrom).Then(Stereo(gap)).Then(room.Part(kFrom + gap, kHeard));
    Capture capture;
    capture.Set(bcap_rnn_enable_set, 1).Set(bcap_rmx_amount_set, 0);
    return level_db(capture.Process(broken).left, kFrom + gap + 2 * kBlock);
  };
  const double expected_db = after_db(0);
  EXPECT_LT(expected_db, -40.0);
  for (const size_t gap_blocks : {1, 6, 14, 94}) {
    EXPECT_NEAR(after_db(gap_blocks * kBlock), expected_db, 4.0) << gap_blocks;
  }
}

TEST(NoiseReductionTest, SilenceAndFullScaleGiveFiniteGains) {
  for (const Stereo& sound : {Stereo(50 * kBlock), noise(10.0, 50 * kBlock)}) {
    for (const Gains& gains : hear(sound)) {
      ASSERT_THAT(gains, testing::Each(testing::AllOf(testing::Gt(0.0f), testing::Le(1.0f))));
    }
  }
}

}  // namespace
