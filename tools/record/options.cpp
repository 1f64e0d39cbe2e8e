// The recorder's command line; see the header.
#include "tools/record/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>

#include "tools/record/exit_codes.h"

namespace tools {
namespace {

constexpr double kLongestTimeS = 1000.0 * 3600.0;

const char* const kExamples = R"(Examples:
  binaural-record scene.wav                         ten seconds of the built-in scene
  binaural-record -i headset.wav --fast out.wav     a file through the module, as fast as possible
  binaural-record -d 1:30 --headset "Demo Buds" --orientation front --mirror out.wav
  binaural-record -d 6 --at 3 "binaural_recording_algorithmMode=1" --json report.json out.wav
  binaural-record --fault lost_headset.txt -v out.wav
  binaural-record - | aplay -f dat                  raw PCM: 16 bit, stereo, 48 kHz

Ctrl-C ends a recording; what was recorded stays and is a valid file.
Exit codes: 0 done, 2 usage, 3 module not loadable, 4 device refused, 5 stream refused, 6 no audio,
7 output error.)";

// Validators in CLI11's form: an error text, or an empty one.
std::string CheckDuration(const std::string& text) {
  const std::optional<double> seconds = ParseTime(text);
  return seconds && *seconds > 0 ? "" : "\"" + text + "\" is not a duration; give seconds or mm:ss";
}

std::string CheckHeadset(const std::string& name) {
  return name.find_first_of(";=") == std::string::npos
             ? ""
             : "a headset name with \";\" or \"=\" would be read as further parameters";
}

using TextPair = std::pair<std::string, std::string>;

void Declare(CLI::App& app, RecordOptions& o, std::string& duration, std::vector<TextPair>& at) {
  app.add_option("OUT", o.out, "WAV file to write; - writes raw PCM to standard output")
      ->required();
  app.add_option("-d,--duration", duration,
                 "length, in seconds or mm:ss (default: 10 s, or the whole input file)")
      ->type_name("TIME")
      ->check(CheckDuration);

  const std::string headset = "What the headset hears";
  auto* input = app.add_option("-i,--input", o.input, "a WAV file as the headset's microphones")
                    ->type_name("FILE")
                    ->group(headset);
  app.add_option("--source", o.source, "built-in sound: scene, tone or silence (default scene)")
      ->type_name("NAME")
      ->check(CLI::IsMember({"scene", "tone", "silence"}))
      ->excludes(input)
      ->group(headset);
  app.add_option("--rate", o.rate_hz, "rate of a built-in sound, 44100 or 48000 (default 48000)")
      ->type_name("HZ")
      ->check(CLI::IsMember({44100, 48000}))
      ->excludes(input)
      ->group(headset);
  app.add_flag("--fast", o.fast, "as fast as it is read instead of in real time")->group(headset);
  app.add_option("--fault", o.fault, "script of faults for the headset to play")
      ->type_name("FILE")
      ->group(headset);

  const std::string steering = "Steering";
  app.add_option("--headset", o.headset, "Bluetooth name of the headset, which selects its tuning")
      ->type_name("NAME")
      ->check(CheckHeadset)
      ->group(steering);
  app.add_option("--orientation", o.orientation, "camera in use: back or front")
      ->type_name("SIDE")
      ->check(CLI::IsMember({"back", "front"}))
      ->group(steering);
  app.add_flag("--mirror", o.mirror, "mirrored tuning of the front camera")->group(steering);
  app.add_option("--mode", o.mode, "algorithm mode, 0 to 3; only 0 and 1 deliver audio")
      ->type_name("N")
      ->check(CLI::Range(0, 3))
      ->group(steering);
  app.add_option("--set", o.set, "parameters to set before the stream is opened, \"key=value;...\"")
      ->type_name("TEXT")
      ->allow_extra_args(false)
      ->group(steering);
  app.add_option("--at", at, "parameters to set at a time of the recording (repeatable)")
      ->type_name("TIME TEXT")
      ->allow_extra_args(false)
      ->group(steering);

  const std::string module = "The module";
  app.add_option("--module", o.module, "module to load (default: the one built with this program)")
      ->type_name("FILE")
      ->group(module);
  app.add_option("--coefficients", o.coefficients, "coefficient file to tune it with")
      ->type_name("FILE")
      ->group(module);
  app.add_option("--periods", o.periods, "20 ms periods per read, 1 to 3 (default 1)")
      ->type_name("N")
      ->check(CLI::Range(1, kMaxPeriodsPerRead))
      ->group(module);
  app.add_option("--give-up", o.give_up_s, "end after this long without audio (default 10)")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.1, 86400.0))
      ->group(module);

  const std::string output = "Output";
  app.add_option("--json", o.json, "write a report for programs")->type_name("FILE")->group(output);
  app.add_flag("--force", o.force,
               "overwrite files; record a session of 24 or 32 bits all the same")
      ->group(output);
  auto* quiet = app.add_flag("-q,--quiet", o.quiet, "say nothing but failures")->group(output);
  app.add_flag("-v,--verbose", o.verbose,
               "show the module's log; twice: with its DEBUG and VERBOSE lines")
      ->excludes(quiet)
      ->group(output);
  app.set_version_flag("--version", "binaural-record " BINAURAL_VERSION);
  app.footer(kExamples);
}

}  // namespace

std::optional<double> ParseTime(const std::string& text) {
  // Up to three fields of digits separated by colons; only the last may have a fraction. Every field
  // but the first is below 60.
  double seconds = 0;
  size_t fields = 0;
  for (size_t start = 0; start <= text.size(); ++fields) {
    const size_t end = std::min(text.find(':', start), text.size());
    const std::string field = text.substr(start, end - start);
    const bool last = end == text.size();
    if (field.find_first_not_of(last ? "0123456789." : "0123456789") != std::string::npos ||
        field.find_first_of("0123456789") == std::string::npos ||
        std::count(field.begin(), field.end(), '.') > 1 || field.size() > 12) {
      return std::nullopt;
    }
    const double value = std::stod(field);
    if (fields > 0 && value >= 60.0) {
      return std::nullopt;
    }
    seconds = seconds * 60.0 + value;
    start = end + 1;
  }
  return fields <= 3 && seconds <= kLongestTimeS ? std::optional<double>(seconds) : std::nullopt;
}

std::optional<int> ParseCommandLine(int argc, char** argv, RecordOptions& options) {
  CLI::App app{"Records through the binaural record module from a virtual headset.",
               "binaural-record"};
  std::string duration;
  std::vector<TextPair> at;
  Declare(app, options, duration, at);
  try {
    app.parse(argc, argv);
    for (const TextPair& timed : at) {
      const std::optional<double> time_s = ParseTime(timed.first);
      if (!time_s) {
        throw CLI::ValidationError("--at",
                                   "\"" + timed.first + "\" is not a time; give seconds or mm:ss");
      }
      options.at.push_back({*time_s, timed.second});
    }
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kUsage;
  }
  if (!duration.empty()) {
    options.duration_s = ParseTime(duration);
  }
  options.headset_given = app.count("--headset") > 0;
  std::stable_sort(options.at.begin(), options.at.end(),
                   [](const auto& a, const auto& b) { return a.time_s < b.time_s; });
  return std::nullopt;
}

}  // namespace tools
