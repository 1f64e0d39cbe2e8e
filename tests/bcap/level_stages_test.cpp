// The stages that move levels: make-up gain, ear balance, near-field management, noise reduction with its
// ambience. Levels in dB over seconds.
#include <gtest/gtest.h>

#include "capture.h"

namespace {

// Loudness weighting lifts white noise by about 3.3 dB, hence the windows below.
TEST(MakeUpGain, BringsTheProgrammeTowardTheTargetByAtMostTheBoost) {
  const struct {
    double input_db;
    int32_t boost, target;
    double low_db, high_db;
  } rows[] = {
      {-40.0, 320, -288, -23.0, -20.0}, {-55.0, 320, -288, -35.2, -34.8},
      {-40.0, 80, -288, -35.2, -34.8},  {-30.0, 320, -400, -30.0, -27.0},
      {-12.0, 320, -288, -12.1, -11.9},  // never turns down
      {-40.0, 0, -224, -40.1, -39.9},
  };
  for (const auto& row : rows) {
    Capture capture;
    capture.AllOff().MakeUpGain(row.boost).Set(bcap_postgain_out_target_set, row.target);
    const Stereo output = capture.Process(noise(from_db(row.input_db), whole_blocks(12.0)));
    const double db = level_db(output.left, whole_blocks(10.0));
    EXPECT_GT(db, row.low_db) << row.input_db << " dB, boost " << row.boost;
    EXPECT_LT(db, row.high_db) << row.input_db << " dB, boost " << row.boost;
  }
}

TEST(MakeUpGain, DoesNotPumpInPauses) {
  // Eight seconds of programme, then two of pause, 40 dB softer, then the programme again.
  const Stereo loud = noise(from_db(-30.0), whole_blocks(8.0));
  const Stereo soft = noise(from_db(-62.0), whole_blocks(2.0));
  const Stereo output = Capture().AllOff().MakeUpGain(320).Process(loud.Then(soft).Then(loud));
  const size_t second = whole_blocks(1.0);
  const double before = level_db(output.left, loud.frames() - second, second);
  const double after = level_db(output.left, loud.frames() + soft.frames() + 2048, second);
  EXPECT_NEAR(after, before, 0.5);
  const double pause = level_db(output.left, loud.frames() + second, second);
  EXPECT_NEAR(pause, before - 32.0, 0.5);
}

TEST(MakeUpGain, MovesSlowly) {
  const Stereo input = noise(from_db(-50.0), whole_blocks(8.0));
  const Stereo output = Capture().AllOff().MakeUpGain(320).Process(input);
  for (size_t at = whole_blocks(0.2); at + whole_blocks(0.4) < output.frames(); at += kBlock) {
    const double rise = level_db(output.left, at + whole_blocks(0.2), whole_blocks(0.1)) -
                        level_db(output.left, at, whole_blocks(0.1));
    ASSERT_LT(rise, 1.2) << at;  // 3 dB per second, and the noise's own unrest
  }
}

double mismatch_db(const Stereo& s, size_t first) {
  return level_db(s.left, first) - level_db(s.right, first);
}

TEST(EarBalance, CorrectsAConstantMismatchSlowlyAndByAtMostThreeDecibels) {
  const struct {
    double mismatch_db, after_3_s_at_least, after_60_s;
  } rows[] = {{2.0, 1.5, 0.0}, {-2.0, 1.5, 0.0}, {5.0, 4.5, 2.0}, {9.0, 9.0, 9.0}};
  for (const auto& row : rows) {
    Stereo input = noise(0.03, whole_blocks(64.0));
    for (int16_t& sample : input.right) {
      sample = static_cast<int16_t>(std::lrint(sample * from_db(-row.mismatch_db)));
    }
    const Stereo output = Capture().AllOff().Set(bcap_lrc_enable_set, 1).Process(input);
    EXPECT_GT(std::fabs(mismatch_db(output.Part(0, whole_blocks(3.0)), whole_blocks(1.0))),
              row.after_3_s_at_least - 0.2);
    EXPECT_NEAR(mismatch_db(output, whole_blocks(60.0)), row.after_60_s, 0.35) << row.mismatch_db;
  }
}

// A talker on one side, half a second on and half off, 4 dB louder there, over an even background.
TEST(EarBalance, DoesNotFollowSources) {
  Stereo input = noise(0.003, whole_blocks(30.0));
  const Stereo talker = noise(0.05, input.frames(), 5);
  for (size_t n = 0; n < input.frames(); ++n) {
    if (n / 24000 % 2 == 0) {
      input.left[n] = static_cast<int16_t>(input.left[n] + talker.left[n]);
      input.right[n] = static_cast<int16_t>(input.right[n] + talker.left[n] * from_db(-4.0));
    }
  }
  Capture capture;
  capture.AllOff().Set(bcap_lrc_enable_set, 1).Process(input);
  bcap::BlockReport report{};
  ASSERT_TRUE(bcap::inspect_last_block(capture.handle(), report));
  EXPECT_LT(std::fabs(report.ear_balance_db), 0.5);
}

// Speech-like: noise with a slope of -6 dB per octave above 400 Hz, in bursts of a quarter of a second.
Stereo voice(double rms_db, size_t frames, bool central, uint32_t seed) {
  Stereo s = noise(0.1, frames, seed);
  double low_left = 0.0, low_right = 0.0, sum = 0.0;
  std::vector<double> left(frames), right(frames);
  for (size_t n = 0; n < frames; ++n) {
    low_left += 0.05 * (s.left[n] - low_left);
    low_right += 0.05 * ((central ? s.left[n] : s.right[n]) - low_right);
    const double gate = n / 12000 % 2 == 0 ? 1.0 : 0.0;
    left[n] = gate * low_left;
    right[n] = gate * low_right;
    sum += gate * low_left * low_left;
  }
  const double scale = from_db(rms_db) / std::sqrt(2.0 * sum / static_cast<double>(frames));
  for (size_t n = 0; n < frames; ++n) {
    s.left[n] = to_pcm(left[n] * scale);
    s.right[n] = to_pcm(right[n] * scale);
  }
  return s;
}

constexpr size_t kTenSeconds = 480000;

// Level while the voice speaks, over its last two seconds.
double speaking_db(const Stereo& s, size_t end) {
  return level_db(s.left, end - 96000, 96000) + 3.01;
}

TEST(NearFieldManagement, HoldsTheOwnVoiceTowardTheScene) {
  const struct {
    int32_t amount;
    double low_db, high_db;
  } rows[] = {{16, 6.0, 12.0}, {8, 11.0, 16.5}, {0, 18.6, 19.2}};
  const size_t part = kTenSeconds;
  const Stereo input = voice(-44.9, part, false, 3).Then(voice(-26.0, part, true, 4));
  for (const auto& row : rows) {
    Capture capture;
    capture.AllOff().NearField().Set(bcap_nfm_amount_set, row.amount);
    const Stereo output = capture.Process(input);
    const double distance =
        speaking_db(output, part + part / kBlock * kBlock) - speaking_db(output, part);
    EXPECT_GT(distance, row.low_db) << "amount " << row.amount;
    EXPECT_LT(distance, row.high_db) << "amount " << row.amount;
  }
}

TEST(NearFieldManagement, LeavesTheSceneAndBandsAtTheFloorAlone) {
  const struct {
    const char* name;
    Stereo input;
    const int32_t* energies;
  } rows[] = {
      {"far voice", voice(-50.0, kTenSeconds, true, 3), A_NFM_TUNING_DATA_SR48K},
      {"loud but from all around", voice(-26.0, kTenSeconds, false, 4), A_NFM_TUNING_DATA_SR48K},
      {"own voice, table at the floor", voice(-26.0, kTenSeconds, true, 4), nullptr}};
  for (const auto& row : rows) {
    const Stereo output = Capture().AllOff().NearField(row.energies).Process(row.input);
    EXPECT_NEAR(level_db(output.left, 48000), level_db(row.input.left, 48000), 0.3) << row.name;
  }
}

// The tuning's energies only tell the wearer apart from everybody at first; later the wearer's own level does.
TEST(NearFieldManagement, TakesALoudTalkerAheadForTheSceneOnceTheWearerHasSpoken) {
  const Stereo own_voice = voice(-14.0, kTenSeconds, true, 3);
  const Stereo talker = voice(-33.0, kTenSeconds, true, 4);
  const Stereo output = Capture().AllOff().NearField().Process(own_voice.Then(talker));
  EXPECT_LT(speaking_db(output, kTenSeconds), -22.0);
  EXPECT_NEAR(speaking_db(output, kTenSeconds + 150000), -33.0, 0.5);
}

// Diffuse noise at a steady level: each amount takes more of it than the one before, the last far but not
// all, and ambience mixed back leaves more.
TEST(NoiseReductionStage, AmountsAreMonotone) {
  for (const uint32_t rate : {48000u, 44100u}) {
    SCOPED_TRACE(rate);
    const Stereo input = noise(0.01, whole_blocks(6.0));
    const auto change_db = [&](int32_t noise_amount, int32_t ambience_amount) {
      Capture capture(0, rate);
      capture.AllOff().Set(bcap_rnn_enable_set, 1).Set(bcap_rnn_amount_set, noise_amount);
      const Stereo output = capture.Set(bcap_rmx_amount_set, ambience_amount).Process(input);
      return level_db(output.left, whole_blocks(4.0)) - level_db(input.left, whole_blocks(4.0));
    };
    EXPECT_NEAR(change_db(0, 0), 0.0, 0.05);
    double last = 0.0;
    for (const int32_t amount : {2, 4, 6, 8}) {
      const double db = change_db(amount, 0);
      EXPECT_LT(db, last - 1.0) << "noise amount " << amount;
      last = db;
    }
    EXPECT_LT(last, -15.0);
    EXPECT_GT(last, -35.0);
    for (const int32_t amount : {4, 9, 11, 16}) {
      const double db = change_db(8, amount);
      EXPECT_GT(db, last) << "ambience amount " << amount;
      last = db;
    }
  }
}

}  // namespace
