// `process`: a recording through the library, its levels before and after, and on request a report.
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>

#include "tools/common/console.h"
#include "tools/common/failure.h"
#include "tools/common/paths.h"
#include "tools/common/wav_header.h"
#include "tools/tune/commands.h"
#include "tools/tune/exit_codes.h"
#include "tools/tune/measure.h"
#include "tools/tune/processing.h"
#include "tools/tune/report.h"
#include "tools/tune/situation.h"
#include "tools/tune/table.h"
#include "tools/tune/words.h"

namespace tune {
namespace {

constexpr double kHighestPeakDb = -1.0;  // true peak after matching

std::string Number(double value, const char* unit) {
  return std::isfinite(value) ? OneDecimal(value) + " " + unit : OneDecimal(value);
}

Table LevelTable(const Levels& before, const Levels& after) {
  Table table("lrrrrrr");
  table.Row({"", "before:", "left", "right", "after:", "left", "right"});
  const auto row = [&](const char* name, const char* unit, double ChannelLevels::*value) {
    std::vector<std::string> cells = {name};
    for (const Levels* levels : {&before, &after}) {
      const bool has_both = value == &ChannelLevels::loudness_lufs;
      cells.push_back(has_both ? Number(levels->loudness_lufs, unit) : "");
      cells.push_back(Number(levels->channels[0].*value, unit));
      cells.push_back(Number(levels->channels[1].*value, unit));
    }
    table.Row(cells);
  };
  row("loudness", "LUFS", &ChannelLevels::loudness_lufs);
  table.Row(
      {"loudness range", Number(before.range_lu, "LU"), "", "", Number(after.range_lu, "LU")});
  row("true peak", "dBTP", &ChannelLevels::true_peak_dbtp);
  row("noise floor", "dBFS", &ChannelLevels::noise_floor_dbfs);
  return table;
}

// Gives the output the input's loudness; says so when its peaks do not allow that much.
void MatchLoudness(const Levels& before, const Levels& after, Recording* recording) {
  double gain_db = before.loudness_lufs - after.loudness_lufs;
  if (!std::isfinite(gain_db)) {
    tools::TheConsole().Line("too quiet or too short to match the loudness");
    return;
  }
  const double peak_db =
      std::max(after.channels[0].true_peak_dbtp, after.channels[1].true_peak_dbtp);
  const double most_db = std::max(kHighestPeakDb - peak_db, 0.0);
  if (gain_db > most_db) {
    tools::TheConsole().Line("the output stays " + Number(gain_db - most_db, "dB") +
                             " quieter than the input: its peaks allow no more");
    gain_db = most_db;
  }
  const double gain = std::pow(10.0, gain_db / 20.0);
  for (int16_t& sample : recording->samples) {
    sample = static_cast<int16_t>(std::lround(std::clamp(sample * gain, -32768.0, 32767.0)));
  }
  std::cout << "output changed by " << Number(gain_db, "dB") << " to match the loudness\n";
}

void RefuseOverwriting(const std::string& path, bool force) {
  if (!force && std::filesystem::exists(path)) {
    throw tools::Failure(kIo, path + " exists already", "choose another name, or --force");
  }
}

}  // namespace

int RunProcess(const ProcessOptions& options) {
  if (tools::SameFile(options.input, options.output)) {
    throw tools::Failure(kUsage, "input and output are the same file");
  }
  RefuseOverwriting(options.output, options.force);
  if (!options.report.empty()) {
    RefuseOverwriting(options.report, options.force);
  }
  const auto file = LoadForUse(options.file);
  const Recording input = ReadRecording(options.input);
  TuningRequest request = RequestOf(options.situation);
  request.sample_rate_hz = input.sample_rate_hz;
  tools::Console& console = tools::TheConsole();
  if (const std::string shortfall = tools::WavShortfall(options.input); !shortfall.empty()) {
    console.Line(shortfall);
  }

  TunedRuntime runtime(file->effective(), request);
  const std::string choice = ExplainChoice(*file, request, runtime.choice());
  std::cout << choice << "\n";
  Processed processed = Process(&runtime, input, [&](double share) {
    console.Status("processing " + std::to_string(static_cast<int>(100.0 * share)) + "%");
  });
  console.Status("measuring");
  const Levels before = MeasureLevels(input);
  const Levels after = MeasureLevels(processed.recording);
  console.EndStatus();

  char speed[96];
  std::snprintf(speed, sizeof(speed),
                "%.1f s processed in %.3f s of one core, %.0f times real time", input.seconds(),
                processed.compute_seconds,
                input.seconds() / std::max(processed.compute_seconds, 1e-6));
  std::cout << speed << "\n\n";
  LevelTable(before, after).Print(std::cout, "  ");
  if (options.match_loudness) {
    std::cout << "\n";
    MatchLoudness(before, after, &processed.recording);
  }
  WriteRecording(options.output, processed.recording, options.force);
  if (!options.report.empty()) {
    console.Status("drawing the report");
    WriteReport(options.report,
                {input, processed, before, after, choice, speed, options.input, options.output,
                 options.match_loudness, *runtime.choice().params, runtime.Stored()});
    console.EndStatus();
  }
  return ExitCodeOf(*file);
}

}  // namespace tune
