// The capture library's contract beside the sound: sizes, codes, ranges, defaults, life cycle, latency.
#include <gmock/gmock.h>

#include <algorithm>

#include "capture.h"
#include "scalars.h"

namespace {

using testing::ElementsAre;

bcap::Parameters parameters_of(const Capture& capture) {
  bcap::Parameters parameters{};
  EXPECT_TRUE(bcap::inspect_parameters(capture.handle(), parameters));
  return parameters;
}

TEST(LibraryQueries, ConfigurationsAreAcceptedOrRefused) {
  for (const bcap_config_t& config : {bcap_config_t{48000, 512, 0, 600}, {44100, 512, 3, 0}}) {
    EXPECT_GE(bcap_query_memory(&config), 10163u);
    EXPECT_GT(bcap_query_scratch(&config), 0u);
    EXPECT_LE(bcap_query_memory(&config) + bcap_query_scratch(&config), 43u * 1024u);
  }
  for (const bcap_config_t& config : {bcap_config_t{32000, 512, 0, 600},
                                      {48000, 256, 0, 600},
                                      {48000, 512, 4, 600},
                                      {0, 0, 0, 0}}) {
    SCOPED_TRACE(testing::Message() << config.sampleRate << " " << config.blockSize);
    EXPECT_EQ(bcap_query_memory(&config), 0u);
    EXPECT_EQ(bcap_query_scratch(&config), 0u);
    char memory[16] = {};
    bcap_handle_t handle = nullptr;
    EXPECT_EQ(bcap_init(&config, memory, &handle), 0);  // refused, and yet 0
    EXPECT_EQ(handle, nullptr);
  }
  EXPECT_EQ(bcap_query_memory(nullptr), 0u);
  EXPECT_EQ(bcap_query_scratch(nullptr), 0u);
}

TEST(LibraryQueries, FixedRecordsAndLatencies) {
  const Capture capture;
  EXPECT_EQ(parameters_of(capture).metadata_version, 1);
  EXPECT_EQ(bcap_metadata_version_set(capture.handle(), 1), 0);
  EXPECT_EQ(bcap_metadata_version_set(capture.handle(), 2), 3);  // there is one only
  EXPECT_THAT(bcap_get_version()->numbers, ElementsAre(1, 1, 0, 1));
  EXPECT_STREQ(bcap_get_version()->change, "$Change: 5864073 $");
  ASSERT_NE(bcap_metadata_info_get(1), nullptr);
  EXPECT_THAT(bcap_metadata_info_get(1)->values, ElementsAre(92, 4, 2100, 4, 8));
  EXPECT_EQ(bcap_metadata_info_get(0), nullptr);
  EXPECT_EQ(bcap_metadata_info_get(2), nullptr);

  std::vector<uint32_t> latencies;
  for (const uint32_t mode : {0u, 1u, 2u, 3u, 7u}) {
    latencies.push_back(bcap_latency_samples_get(mode));
  }
  EXPECT_THAT(latencies, ElementsAre(1024, 448, 512, 1536, 1536));
}

TEST(LibraryQueries, PresetTablesHaveTheirTellingRows) {
  struct Row {
    const int32_t* table;
    int32_t low, high;
    std::vector<int32_t> first, last;
  } const rows[] = {
      {A_PEQ_TUNING_DATA_PRESET1_SR48K,
       -167,
       211,
       {41, 37, 27, 15, 3, 2, 2, 0},
       {66, 103, 151, 211}},
      {A_PEQ_TUNING_DATA_PRESET2_SR48K,
       -259,
       197,
       {41, 37, 27, 15, 3, 2, 2, 0},
       {35, 80, 134, 197}},
      {A_NFM_TUNING_DATA_SR48K,
       -1162,
       -724,
       {-724, -742, -792, -847, -874, -894, -914, -926},
       {-1094, -1092, -1097, -1162}},
  };
  for (const Row& row : rows) {
    EXPECT_TRUE(std::equal(row.first.begin(), row.first.end(), row.table));
    EXPECT_TRUE(
        std::equal(row.last.rbegin(), row.last.rend(), std::make_reverse_iterator(row.table + 73)));
    EXPECT_EQ(*std::min_element(row.table, row.table + 73), row.low);
    EXPECT_EQ(*std::max_element(row.table, row.table + 73), row.high);
  }
}

TEST(LibrarySetters, ScalarsStartAtTheirPresetAndAreClamped) {
  for (const Scalar& scalar : kScalars) {
    SCOPED_TRACE(scalar.name);
    const Capture capture;
    EXPECT_EQ(parameters_of(capture).*scalar.member, scalar.preset);
    for (const int32_t value : {kLowest, scalar.low, -1, 0, 5, scalar.high, kHighest}) {
      EXPECT_EQ(scalar.set(capture.handle(), value), 0);
      EXPECT_EQ(parameters_of(capture).*scalar.member, std::clamp(value, scalar.low, scalar.high));
    }
    EXPECT_NE(scalar.set(nullptr, 0), 0);
  }
}

TEST(LibrarySetters, SwitchesThatInitTurnsOnDependOnTheMode) {
  std::vector<std::vector<int32_t>> stored;
  for (uint32_t mode = 0; mode < 4; ++mode) {
    const bcap::Parameters p = parameters_of(Capture(mode));
    stored.push_back({p.lrc_enable, p.hpf_enable, p.ldn_enable, p.rnn_enable});
  }
  EXPECT_THAT(stored, ElementsAre(ElementsAre(1, 1, 0, 0), ElementsAre(1, 1, 0, 0),
                                  ElementsAre(0, 0, 1, 1), ElementsAre(0, 0, 0, 1)));
}

TEST(LibrarySetters, BandTablesStoreAtMostTheirSlotsAndJudgeAllTheySee) {
  const struct {
    int (*set)(bcap_handle_t, int32_t, const int32_t*);
    bcap::BandTable bcap::Parameters::*table;
    int32_t low, high, rest;
    int count_code, clamp_code;
  } kinds[] = {
      {bcap_peq_band_gain_tuning_set, &bcap::Parameters::peq_band_gain, -576, 320, 0, 12, 13},
      {bcap_nfm_band_energy_tuning_set, &bcap::Parameters::nfm_band_energy, -2080, -160, -2080, 14,
       15}};
  constexpr int32_t kNone = -1;
  struct Row {
    int32_t count, outlier_at, fits_rate, stored;
  } const rows[] = {{73, kNone, 48000, 73},  {75, kNone, 44100, 75}, {74, kNone, 0, 74},
                    {76, kNone, 0, 75},      {73, 40, 48000, 73},    {76, 75, 0, 75},
                    {96, 95, 0, 75},         {200, 96, 0, 75},       {10, 10, 0, 10},
                    {0, kNone, 0, 0},        {-1, kNone, 0, 0},      {kLowest, 0, 0, 0},
                    {kHighest, kNone, 0, 75}};
  for (const auto& kind : kinds) {
    for (const int32_t rate : {48000, 44100}) {
      for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << kind.rest << " at rest, " << rate << " Hz, count "
                                        << row.count << ", outlier " << row.outlier_at);
        std::vector<int32_t> values(std::clamp(row.count, 1, 96), -300);  // no more may be read
        std::vector<int32_t> expected(75, kind.rest);
        std::fill_n(expected.begin(), row.stored, -300);
        int code = row.fits_rate == rate ? 0 : kind.count_code;
        if (row.outlier_at != kNone && row.outlier_at < std::min(row.count, 96)) {
          values[row.outlier_at] = 400;
          code = kind.clamp_code;
          if (row.outlier_at < 75) {
            expected[row.outlier_at] = kind.high;
          }
        }
        const Capture capture(0, rate);
        kind.set(capture.handle(), 75, std::vector<int32_t>(75, -200).data());
        EXPECT_EQ(kind.set(capture.handle(), row.count, values.data()), code);
        const bcap::BandTable stored = parameters_of(capture).*kind.table;
        EXPECT_THAT(stored.values, testing::ElementsAreArray(expected));
        EXPECT_EQ(stored.guard_before, 0x5AFE57A7u);
        EXPECT_EQ(stored.guard_after, 0x5AFE57A7u);
      }
    }
    const Capture capture;
    const std::vector<int32_t> low(73, -5000);
    EXPECT_EQ(kind.set(capture.handle(), 73, low.data()), kind.clamp_code);
    EXPECT_EQ((parameters_of(capture).*kind.table).values[72], kind.low);
    EXPECT_EQ(kind.set(capture.handle(), 73, nullptr), 0);
    EXPECT_EQ((parameters_of(capture).*kind.table).values[0], kind.rest);
  }
}

TEST(LibraryStages, ArgumentsAreCheckedInOrder) {
  int16_t samples[1024] = {};
  int16_t* channels[2] = {samples, samples + 1};
  int16_t* no_right[2] = {samples, nullptr};
  const bcap_buffer_desc_t good{2, 2, 4, channels}, mono{1, 2, 4, no_right};
  const bcap_buffer_desc_t none{0, 2, 4, nullptr}, half{2, 2, 4, no_right};
  const bcap_buffer_desc_t unset{2, 2, 4, nullptr};
  std::vector<char> memory(32 * 1024);
  void* scratch = memory.data();
  struct Row {
    const char* what;
    const bcap_buffer_desc_t *in, *out;
    void* scratch;
    bool live;
    int pre, pre_in_mode_2, analysis, post;
  } const rows[] = {
      {"all well", &good, &good, scratch, true, 0, 0, 0, 0},
      {"no input", nullptr, &good, scratch, true, 10, 10, 10, 10},
      {"no output", &good, nullptr, scratch, true, 10, 10, 0, 0},
      {"no scratch", &good, &good, nullptr, true, 10, 10, 10, 10},
      {"mono in", &mono, &good, scratch, true, 6, 6, 6, 6},
      {"mono out", &good, &mono, scratch, true, 6, 0, 6, 6},
      {"empty out", &good, &none, scratch, true, 6, 0, 6, 6},
      {"right missing in", &half, &good, scratch, true, 10, 10, 10, 10},
      {"right missing out", &good, &half, scratch, true, 10, 10, 10, 10},
      {"addresses missing", &unset, &good, scratch, true, 10, 10, 10, 10},
      {"no instance", &good, &good, scratch, false, 1, 1, 1, 1},
      {"no instance, no input", nullptr, &good, scratch, false, 10, 10, 10, 10},
      {"no instance, mono out", &good, &mono, scratch, false, 6, 6, 1, 1},
      {"count before scratch", &mono, &good, nullptr, true, 6, 6, 10, 10},
  };
  for (uint32_t mode = 0; mode < 4; ++mode) {
    const Capture capture(mode);
    for (const auto& [what, in, out, scratch_or_null, live, pre, pre_2, analysis, post] : rows) {
      SCOPED_TRACE(testing::Message() << what << ", mode " << mode);
      const bcap_handle_t handle = live ? capture.handle() : nullptr;
      EXPECT_EQ(bcap_pre_process(handle, in, out, scratch_or_null), mode == 2 ? pre_2 : pre);
      EXPECT_EQ(bcap_analysis_process(handle, in, out, scratch_or_null), analysis);
      EXPECT_EQ(bcap_post_process(handle, in, out, scratch_or_null), post);
    }
  }
}

TEST(LibraryLifeCycle, ADeadHandleIsHarmless) {
  const bcap_config_t config{48000, 512, 0, 600};
  alignas(16) static char memory[64 * 1024];
  bcap_handle_t handle = nullptr;
  bcap_init(&config, memory, &handle);
  bcap_shutdown(handle);
  for (const bcap_handle_t dead :
       {handle, bcap_handle_t{nullptr}, reinterpret_cast<bcap_handle_t>(memory + 1)}) {
    bcap_shutdown(dead);
    bcap_reset(dead);
    EXPECT_EQ(bcap_pregain_boost_set(dead, 0), 1);
    EXPECT_EQ(bcap_nfm_band_energy_tuning_set(dead, 73, A_NFM_TUNING_DATA_SR48K), 1);
    bcap::Parameters parameters{};
    EXPECT_FALSE(bcap::inspect_parameters(dead, parameters));
  }
}

}  // namespace
