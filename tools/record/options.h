// The recorder's command line.
#ifndef TOOLS_RECORD_OPTIONS_H
#define TOOLS_RECORD_OPTIONS_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tools {

constexpr double kDefaultDurationS = 10.0;
// More than this many periods per read fills the module's ring buffers for good.
constexpr int kMaxPeriodsPerRead = 3;

struct TimedParameters {
  double time_s;
  std::string parameters;
};

struct RecordOptions {
  std::string out;                   // "-" is raw PCM on standard output
  std::optional<double> duration_s;  // none: 10 s, or the whole input file
  std::string input;                 // WAV file as the headset's microphones; empty: `source`
  std::string source = "scene";
  int rate_hz = 48000;  // of the built-in sources
  bool fast = false;
  std::string module;
  std::string coefficients;
  std::string headset;
  bool headset_given = false;  // an empty name is a name
  std::string orientation;
  bool mirror = false;
  std::optional<int> mode;
  std::vector<std::string> set;
  std::vector<TimedParameters> at;  // in order of time
  std::string fault;
  std::string json;
  int periods = 1;
  double give_up_s = 10.0;
  bool force = false;
  bool quiet = false;
  int verbose = 0;
};

// Fills `options`. A value to return from main() when the command line asks for nothing more (help,
// version) or is wrong; none when there is something to record.
std::optional<int> ParseCommandLine(int argc, char** argv, RecordOptions& options);

// Seconds from "90", "1.5", "1:30" or "1:02:03.5"; none for anything else, also for negative times.
std::optional<double> ParseTime(const std::string& text);

}  // namespace tools

#endif
