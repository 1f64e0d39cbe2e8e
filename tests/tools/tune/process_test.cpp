// Recordings through `process`, and what `plot` and the report draw.
#include <algorithm>
#include <cmath>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/bcap/capture.h"
#include "tests/tools/tune/tune_test_support.h"
#include "tools/tune/audio_file.h"
#include "tools/tune/coefficient_file.h"
#include "tools/tune/measure.h"
#include "tools/tune/response.h"
#include "tools/tune/runtime.h"

using testing::AllOf;
using testing::DoubleNear;
using testing::Each;
using testing::Ge;
using testing::HasSubstr;
using testing::Le;
using testing::Pointwise;
using testing::SizeIs;
using testing::StartsWith;

namespace {

tune::Recording RecordingOf(const Stereo& sound, uint32_t rate_hz = 48000) {
  tune::Recording recording{rate_hz, {}};
  for (size_t n = 0; n < sound.frames(); ++n) {
    recording.samples.insert(recording.samples.end(), {sound.left[n], sound.right[n]});
  }
  return recording;
}

std::string Zeros(size_t count) {
  return "0" + Times(count - 1, ",0");
}

// Headset H with `params`, and the list `gains` in the profile of the normal scene.
std::string TuningWith(const std::string& params, const std::string& gains) {
  return R"(<?xml version="1.0"?><tuning bnc_verson="1.1.0"><module name="m"><mode value="0">)" +
         params +
         R"(</mode></module><btheadset name="H"><nfm_band_energy_tuning value="-2080"/>
<profile name="a"><include module_name="m"/><peq_band_gain_tuning mode="0" value=")" +
         gains + R"("/></profile></btheadset></tuning>)";
}

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

// With everything off that is the input itself.
TEST_F(TuneProcess, EqualsTheLibraryUsedDirectlyWithoutItsDelay) {
  folder_.Write("a.xml", TuningWith(R"(<param name="nfm_amount" value="0"/>)", Zeros(73)));
  for (const uint32_t rate_hz : {48000u, 44100u}) {
    const Stereo sound = sine(997.0, 0.07, 0.03, 180 * kBlock - 35);
    const tune::Recording input = RecordingOf(sound, rate_hz);
    WriteInput(input);
    ASSERT_EQ(Process("--force --headset H").exit_code, 0);
    EXPECT_EQ(Output().sample_rate_hz, rate_hz);
    EXPECT_TRUE(Output().samples == input.samples);

    EXPECT_THAT(Process("--force --headset Unknown").out, HasSubstr("built-in values are used"));
    const Stereo processed =
        Capture(0, rate_hz).Everything().Process(sound.Then(Stereo(35 + 2 * kBlock)));
    EXPECT_TRUE(Output().samples == RecordingOf(processed.Part(1024, sound.frames())).samples);
  }
}

TEST_F(TuneProcess, MatchesLoudnessOnRequest) {
  const tune::Recording input = RecordingOf(noise(0.05, 8 * 48000));
  WriteInput(input);
  const double before = tune::MeasureLevels(input).loudness_lufs;
  Process("--headset H");
  EXPECT_GT(std::abs(tune::MeasureLevels(Output()).loudness_lufs - before), 1.0);
  Process("--force --headset H --match-loudness");
  EXPECT_NEAR(tune::MeasureLevels(Output()).loudness_lufs, before, 0.1);
}

TEST_F(TuneProcess, RefusesWhatItCannotProcessAndKeepsFiles) {
  WriteInput(RecordingOf(Stereo(1000)));
  tune::WriteRecording(folder_.Path("slow.wav"), RecordingOf(Stereo(1000), 32000), true);
  std::string mono = ReadFile(in_);
  mono[22] = 1;  // channels in the header
  folder_.Write("mono.wav", mono);
  folder_.Write("cut.wav", ReadFile(in_).substr(0, 3000));
  folder_.Write("there.wav", "kept");
  const std::tuple<const char*, const char*, int, const char*> kCases[] = {
      {"mono.wav", "out.wav", 4, "1 channel(s)"},
      {"slow.wav", "out.wav", 4, "32000 Hz"},
      {"absent.wav", "out.wav", 4, "absent.wav"},
      {"a.xml", "out.wav", 4, "a.xml"},
      {".", "out.wav", 4, "not a regular file"},
      {"in.wav", "there.wav", 4, "exists already"},
      {"in.wav", "in.wav", 2, "the same file"},
      {"in.wav", "none/out.wav", 4, "none/out.wav"},
      {"cut.wav", "cut_out.wav", 0, "announces 4044 bytes, it has 3000"},  // what is there is taken
  };
  for (const auto& [in, out, exit_code, message] : kCases) {
    const RunResult run =
        Tune("process --headset H " + folder_.Path(in) + " " + folder_.Path(out) + " " + file_);
    EXPECT_EQ(run.exit_code, exit_code) << in << run.err;
    EXPECT_THAT(run.err, HasSubstr(message));
  }
  EXPECT_EQ(ReadFile(folder_.Path("there.wav")) + ReadFile(folder_.Path("out.wav")), "kept");
}

TEST_F(TuneReport, IsOnePageThatNeedsNothingElse) {
  WriteInput(RecordingOf(noise(0.05, 48000)));
  ASSERT_EQ(Process("--headset '<H>' --report " + folder_.Path("r.html")).exit_code, 0);
  const std::string page = ReadFile(folder_.Path("r.html"));
  EXPECT_THAT(page, StartsWith("<!DOCTYPE html>"));
  EXPECT_THAT(page, HasSubstr("no headset &quot;&lt;H&gt;&quot;"));
  const std::pair<const char*, size_t> kParts[] = {
      {"src=\"data:audio/flac;base64,ZkxhQ", 2},  // "fLaC"
      {"src=\"data:image/png;base64,iVBOR", 2},
      {"src=\"data:image/svg+xml;base64,PD94bWw", 5},  // "<?xml"
      {"src=\"", 9},
      {"http", 0}};
  for (const auto& [part, expected] : kParts) {
    size_t times = 0;
    for (size_t at = 0; (at = page.find(part, at)) != std::string::npos; ++at) {
      ++times;
    }
    EXPECT_EQ(times, expected) << part;
  }
  EXPECT_EQ(RunProgram(std::string(XMLLINT) + " --html --noout --huge " + folder_.Path("r.html"))
                .exit_code,
            0);
}

TEST_F(TunePlot, DrawsSvgAndPng) {
  const std::string svg = folder_.Path("x.svg"), png = folder_.Path("x.png");
  for (const std::string& options :
       {std::string(), std::string("--headset H --scene selfie --mirror"),
        std::string("--headset No --against default"), "--rate 44100 --against " + file_}) {
    SCOPED_TRACE(options);
    const std::string arguments = "plot " + file_ + " " + options + " -o ";
    EXPECT_EQ(Tune(arguments + svg).exit_code, 0);
    EXPECT_EQ(RunProgram(std::string(XMLLINT) + " --noout --huge " + svg).exit_code, 0);
    EXPECT_EQ(Tune(arguments + png).exit_code, 0);
    EXPECT_THAT(ReadFile(png), StartsWith("\x89PNG"));
  }
  EXPECT_EQ(Tune("plot " + file_ + " -o " + folder_.Path("x.jpg")).exit_code, 2);
  EXPECT_EQ(Tune("plot " + file_ + " -o " + folder_.Path("none/x.svg")).exit_code, 4);
}

TEST_F(TunePlot, TheMeasuredResponseIsThatOfTheStages) {
  // A high-pass, a gain of 10 dB, and five bands around 1.6 kHz raised by 6 dB at half the amount.
  const tune::CoefficientFile file(folder_.Write(
      "a.xml",
      TuningWith(R"(<param name="hpf_enable" value="1"/><param name="peq_amount" value="8"/>
<param name="pregain_enable" value="1"/><param name="pregain_boost" value="160"/>)",
                 Zeros(32) + ",96,96,96,96,96," + Zeros(36))));
  tune::TunedRuntime runtime(file.effective(), tune::RequestForSceneIndex("H", 0));
  const tune::Response response = tune::MeasureResponse(&runtime, 48000);
  const std::tuple<double, double, double> kCases[] = {
      {20.0, -50.0, -14.0}, {17 * 46.875, 9.8, 10.2}, {34 * 46.875, 12.5, 13.5}};
  for (const auto& [hz, low_db, high_db] : kCases) {
    const auto above = std::lower_bound(response.hz.begin(), response.hz.end(), hz - 0.01);
    EXPECT_THAT(response.db[static_cast<size_t>(above - response.hz.begin())],
                AllOf(Ge(low_db), Le(high_db)))
        << *above;
  }
}

TEST(TuneMeasure, LevelsOfKnownSounds) {
  // A sine of 1 kHz at -20 dB of full scale is -23 LUFS in one ear, and half of it 6 dB less.
  const tune::Recording recording = RecordingOf(sine(1000.0, 0.1, 0.05, 5 * 48000));
  const tune::Levels levels = tune::MeasureLevels(recording);
  EXPECT_THAT((std::vector{levels.channels[0].loudness_lufs, levels.channels[1].loudness_lufs,
                           levels.loudness_lufs, levels.range_lu, levels.channels[0].true_peak_dbtp,
                           levels.channels[0].noise_floor_dbfs}),
              Pointwise(DoubleNear(0.1), {-23.0, -29.0, -22.0, 0.0, -20.0, -23.0}));
  EXPECT_THAT(tune::LevelDifference(recording).y, AllOf(SizeIs(12), Each(DoubleNear(6.02, 0.05))));
  const tune::Course spectrum = tune::AverageSpectrum(recording, 0);
  const auto highest = std::max_element(spectrum.y.begin(), spectrum.y.end());
  EXPECT_NEAR(*highest, -23.0, 0.1);
  EXPECT_NEAR(std::log2(spectrum.x[static_cast<size_t>(highest - spectrum.y.begin())] / 1000.0),
              0.0, 0.2);
}

}  // namespace
