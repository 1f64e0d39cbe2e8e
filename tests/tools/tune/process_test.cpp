// Recordings through `process`, and what `plot` and the report draw.
#include <array>
#include <cmath>
#include <cstdlib>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bcap.h"

#include "tests/tools/tune/tune_test_support.h"
#include "tools/tune/audio_file.h"
#include "tools/tune/coefficient_file.h"
#include "tools/tune/measure.h"
#include "tools/tune/response.h"
#include "tools/tune/runtime.h"

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

// A tone that comes and goes over noise, different in both ears.
tune::Recording Sound(uint32_t rate_hz, size_t frames) {
  std::mt19937 random(7);
  tune::Recording recording{rate_hz, {}};
  for (size_t n = 0; n < frames; ++n) {
    const double seconds = static_cast<double>(n) / rate_hz;
    const double swell = std::max(0.0, std::sin(3.0 * seconds));
    const double tone = 2500.0 * swell * std::sin(2.0 * M_PI * 440.0 * seconds);
    for (const double share : {1.0, 0.6}) {
      const double noise = static_cast<double>(random() % 200) - 100.0;
      recording.samples.push_back(static_cast<int16_t>(std::lround(share * tone + noise)));
    }
  }
  return recording;
}

// The built-in tuning of the normal scene, value by value, through the library's own interface.
std::vector<int16_t> ThroughTheLibrary(const tune::Recording& input) {
  const bcap_config_t config{input.sample_rate_hz, 512, 0, 600};
  std::vector<char> memory(bcap_query_memory(&config));
  std::vector<char> scratch(bcap_query_scratch(&config));
  bcap_handle_t handle = nullptr;
  bcap_init(&config, memory.data(), &handle);
  const std::pair<int (*)(bcap_handle_t, int32_t), int32_t> settings[] = {
      {bcap_selfie_mode_set, 0},
      {bcap_hpf_enable_set, 1},
      {bcap_pregain_enable_set, 1},
      {bcap_pregain_boost_set, 256},
      {bcap_pregain_limiter_peak_set, 256},
      {bcap_rnn_enable_set, 1},
      {bcap_rnn_amount_set, 8},
      {bcap_postgain_enable_set, 1},
      {bcap_postgain_boost_set, 320},
      {bcap_postgain_limiter_peak_set, 241},
      {bcap_rmx_amount_set, 9},
      {bcap_peq_amount_set, 16},
      {bcap_nfm_amount_set, 16}};
  for (const auto& [set, value] : settings) {
    set(handle, value);
  }
  bcap_peq_band_gain_tuning_set(handle, 73, A_PEQ_TUNING_DATA_PRESET1_SR48K);
  bcap_nfm_band_energy_tuning_set(handle, 73, A_NFM_TUNING_DATA_SR48K);
  std::vector<int16_t> samples = input.samples;
  samples.resize((input.frames() + 1024 + 511) / 512 * 1024);
  for (size_t begin = 0; begin < samples.size(); begin += 1024) {
    int16_t* channels[] = {&samples[begin], &samples[begin + 1]};
    const bcap_buffer_desc_t buffer{2, 2, 4, channels};
    EXPECT_EQ(bcap_pre_process(handle, &buffer, &buffer, scratch.data()), 0);
  }
  bcap_shutdown(handle);
  return {samples.begin() + 2048, samples.begin() + 2048 + static_cast<long>(input.samples.size())};
}

std::string Zeros(int count) {
  std::string list = "0";
  for (int i = 1; i < count; ++i) {
    list += ",0";
  }
  return list;
}

// Headset H with `params`, gains of `gain` each.
std::string TuningWith(const std::string& params, const std::string& gains) {
  std::string text =
      R"(<?xml version="1.0"?><tuning bnc_verson="1.1.0"><module name="m"><mode value="0">)" +
      params + R"(</mode></module><btheadset name="H"><nfm_band_energy_tuning value="-2080"/>)";
  for (const char* name : {"a", "b", "c"}) {
    text += std::string("<profile name=\"") + name +
            "\"><include module_name=\"m\"/><peq_band_gain_tuning mode=\"0\" value=\"" + gains +
            "\"/></profile>";
  }
  return text + "</btheadset></tuning>";
}

constexpr char kAllOff[] = R"(<param name="nfm_amount" value="0"/>)";

// A folder with a coefficient file and what `process` makes of in.wav by it.
class TuneProcess : public testing::Test {
 protected:
  RunResult Process(const std::string& options) const {
    return Tune("process " + options + " " + in_ + " " + out_ + " " + file_);
  }
  void WriteInput(const tune::Recording& input) const { tune::WriteRecording(in_, input, true); }
  tune::Recording Output() const { return tune::ReadRecording(out_); }

  const ScratchFolder folder_;
  const std::string file_ = folder_.Write("a.xml", FileWith(""));
  const std::string in_ = folder_.Path("in.wav"), out_ = folder_.Path("out.wav");
};
using TuneReport = TuneProcess;
using TunePlot = TuneProcess;

TEST_F(TuneProcess, EqualsTheLibraryUsedDirectlyWithoutItsDelay) {
  for (const uint32_t rate_hz : {48000u, 44100u}) {
    const tune::Recording input = Sound(rate_hz, 2 * rate_hz + 77);
    WriteInput(input);
    const RunResult run = Process("--force --headset Unknown");
    ASSERT_EQ(run.exit_code, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("built-in values are used"));
    EXPECT_THAT(run.out, HasSubstr("times real time"));
    EXPECT_EQ(Output().sample_rate_hz, rate_hz);
    EXPECT_TRUE(Output().samples == ThroughTheLibrary(input));
  }
}

TEST_F(TuneProcess, WithEverythingOffTheOutputIsTheInput) {
  folder_.Write("a.xml", TuningWith(kAllOff, Zeros(73)));
  const tune::Recording input = Sound(48000, 30000);
  WriteInput(input);
  ASSERT_EQ(Process("--headset H").exit_code, 0);
  EXPECT_TRUE(Output().samples == input.samples);
}

TEST_F(TuneProcess, MatchesLoudnessOnRequest) {
  const tune::Recording input = Sound(48000, 48000 * 8);
  WriteInput(input);
  const double before = tune::MeasureLevels(input).loudness_lufs;
  Process("--force --headset H");
  EXPECT_GT(std::abs(tune::MeasureLevels(Output()).loudness_lufs - before), 1.0);
  Process("--force --headset H --match-loudness");
  EXPECT_NEAR(tune::MeasureLevels(Output()).loudness_lufs, before, 0.1);
}

TEST_F(TuneProcess, RefusesWhatItCannotProcessAndKeepsFiles) {
  WriteInput(Sound(48000, 1000));
  tune::WriteRecording(folder_.Path("slow.wav"), Sound(32000, 1000), true);
  std::string mono = ReadFile(in_);
  mono[22] = 1;  // channels in the header
  folder_.Write("mono.wav", mono);
  folder_.Write("there.wav", "kept");
  const struct {
    std::string in, out;
    const char* message;
    int exit_code;
  } kCases[] = {
      {"mono.wav", "out.wav", "1 channel(s)", 4}, {"slow.wav", "out.wav", "32000 Hz", 4},
      {"absent.wav", "out.wav", "absent.wav", 4}, {"a.xml", "out.wav", "a.xml", 4},
      {".", "out.wav", "not a regular file", 4},  {"in.wav", "there.wav", "exists already", 4},
      {"in.wav", "in.wav", "the same file", 2},   {"in.wav", "none/out.wav", "none/out.wav", 4},
  };
  for (const auto& row : kCases) {
    const RunResult run = Tune("process --headset H " + folder_.Path(row.in) + " " +
                               folder_.Path(row.out) + " " + file_);
    EXPECT_EQ(run.exit_code, row.exit_code) << row.in << run.err;
    EXPECT_THAT(run.err, HasSubstr(row.message));
  }
  EXPECT_EQ(ReadFile(folder_.Path("there.wav")), "kept");
  EXPECT_EQ(ReadFile(folder_.Path("out.wav")), "");
}

TEST_F(TuneReport, IsOnePageThatNeedsNothingElse) {
  WriteInput(Sound(48000, 48000));
  ASSERT_EQ(Process("--headset '<H>' --report " + folder_.Path("r.html")).exit_code, 0);
  const std::string page = ReadFile(folder_.Path("r.html"));
  EXPECT_THAT(page, StartsWith("<!DOCTYPE html>"));
  EXPECT_THAT(page, HasSubstr("no headset &quot;&lt;H&gt;&quot;"));
  const struct {
    const char* text;
    size_t times;
  } kParts[] = {{"src=\"data:audio/flac;base64,ZkxhQ", 2},  // "fLaC"
                {"src=\"data:image/png;base64,iVBOR", 2},
                {"src=\"data:image/svg+xml;base64,PD94bWw", 5},  // "<?xml"
                {"src=\"", 9},
                {"http", 0}};
  for (const auto& part : kParts) {
    size_t times = 0;
    for (size_t at = page.find(part.text); at != std::string::npos;
         at = page.find(part.text, at + 1)) {
      ++times;
    }
    EXPECT_EQ(times, part.times) << part.text;
  }
  EXPECT_EQ(RunProgram(std::string(XMLLINT) + " --html --noout --huge " + folder_.Path("r.html"))
                .exit_code,
            0);
}

TEST_F(TunePlot, DrawsSvgAndPng) {
  for (const char* options : {"", "--headset H", "--headset H --scene selfie --mirror",
                              "--headset No --against default", "--rate 44100 --against "}) {
    SCOPED_TRACE(options);
    const bool against_file = std::string(options).find("44100") != std::string::npos;
    const std::string arguments =
        "plot " + file_ + " " + options + (against_file ? file_ : "") + " -o ";
    EXPECT_EQ(Tune(arguments + folder_.Path("x.svg")).exit_code, 0);
    EXPECT_EQ(
        RunProgram(std::string(XMLLINT) + " --noout --huge " + folder_.Path("x.svg")).exit_code, 0);
    EXPECT_EQ(Tune(arguments + folder_.Path("x.png")).exit_code, 0);
    EXPECT_THAT(ReadFile(folder_.Path("x.png")), StartsWith("\x89PNG"));
  }
  EXPECT_EQ(Tune("plot " + file_ + " -o " + folder_.Path("x.jpg")).exit_code, 2);
  EXPECT_EQ(Tune("plot " + file_ + " -o " + folder_.Path("none/x.svg")).exit_code, 4);
}

TEST_F(TunePlot, TheMeasuredResponseIsThatOfTheStages) {
  const std::string flat = Zeros(73), five = Zeros(32) + ",96,96,96,96,96," + Zeros(36);
  const std::string high_pass = R"(<param name="hpf_enable" value="1"/>)";
  const std::string half = R"(<param name="peq_amount" value="8"/>)";
  const std::string boost =
      R"(<param name="pregain_enable" value="1"/><param name="pregain_boost" value="160"/>)";
  const struct {
    const char* name;
    std::string params;
    std::string gains;
    double hz, low_db, high_db;
  } kCases[] = {
      {"all off", kAllOff, flat, 1000.0, -0.05, 0.05},
      {"high-pass above", high_pass, flat, 1000.0, -1.0, 0.1},
      {"high-pass below", high_pass, flat, 20.0, -60.0, -24.0},
      {"boost of 10 dB", boost, flat, 1000.0, 9.95, 10.05},
      {"five gains at +6 dB", "", five, 34 * 46.875, 5.5, 6.5},
      {"the same at half the amount", half, five, 34 * 46.875, 2.5, 3.5},
      {"an octave below", "", five, 17 * 46.875, -0.2, 0.2},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.name);
    const tune::CoefficientFile file(folder_.Write("a.xml", TuningWith(row.params, row.gains)));
    ASSERT_TRUE(file.Accepted());
    tune::TunedRuntime runtime(file.effective(), tune::RequestForSceneIndex("H", 0));
    const tune::Response response = tune::MeasureResponse(&runtime, 48000);
    size_t nearest = 0;
    for (size_t i = 0; i < response.hz.size(); ++i) {
      nearest =
          std::abs(response.hz[i] - row.hz) < std::abs(response.hz[nearest] - row.hz) ? i : nearest;
    }
    EXPECT_GE(response.db[nearest], row.low_db) << response.hz[nearest];
    EXPECT_LE(response.db[nearest], row.high_db) << response.hz[nearest];
  }
}

TEST(TuneMeasure, LevelsOfKnownSounds) {
  // A sine of 1 kHz at -20 dB of full scale is -23 LUFS in one ear, and half of it 6 dB less.
  tune::Recording recording{48000, {}};
  for (size_t n = 0; n < 48000 * 5; ++n) {
    const auto sample = static_cast<int16_t>(std::lround(3276.7 * std::sin(2.0 * M_PI * n / 48.0)));
    recording.samples.push_back(sample);
    recording.samples.push_back(static_cast<int16_t>(sample / 2));
  }
  const tune::Levels levels = tune::MeasureLevels(recording);
  EXPECT_NEAR(levels.channels[0].loudness_lufs, -23.0, 0.1);
  EXPECT_NEAR(levels.channels[1].loudness_lufs, -29.0, 0.1);
  EXPECT_NEAR(levels.loudness_lufs, -22.0, 0.1);
  EXPECT_NEAR(levels.range_lu, 0.0, 0.1);
  EXPECT_NEAR(levels.channels[0].true_peak_dbtp, -20.0, 0.1);
  EXPECT_NEAR(levels.channels[0].noise_floor_dbfs, -23.0, 0.1);
  const tune::Course difference = tune::LevelDifference(recording);
  EXPECT_EQ(difference.y.size(), 12u);
  EXPECT_NEAR(difference.y[5], 6.02, 0.05);
  const tune::Course spectrum = tune::AverageSpectrum(recording, 0);
  const auto highest = std::max_element(spectrum.y.begin(), spectrum.y.end());
  EXPECT_NEAR(*highest, -23.0, 0.1);
  EXPECT_NEAR(std::log2(spectrum.x[static_cast<size_t>(highest - spectrum.y.begin())] / 1000.0),
              0.0, 0.2);
}

}  // namespace
