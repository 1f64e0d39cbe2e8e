// The commands of binaural-tune, one source file each. Results go to standard output, words to standard
// error; the exit code is returned, a failure thrown as tools::Failure.
#ifndef TOOLS_TUNE_COMMANDS_H_
#define TOOLS_TUNE_COMMANDS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/tune/lint.h"

namespace tune {

struct LintOptions {
  std::vector<std::string> files;
  LintFormat format = LintFormat::kText;
  bool strict = false;
};
int RunLint(const LintOptions& options);

// What a device would be told.
struct SituationOptions {
  std::optional<std::string> headset;
  std::string scene = "normal";
  bool mirror = false;
  int mode = 0;
};

struct ResolveOptions {
  std::string file;
  SituationOptions situation;
  bool list = false;
};
int RunResolve(const ResolveOptions& options);

int RunShow(const std::string& file);

int RunDiff(const std::string& old_file, const std::string& new_file);

struct PlotOptions {
  std::string file;
  SituationOptions situation;
  bool scene_given = false;
  std::string against;  // a file, "default" or empty
  std::string output;   // .svg or .png
  uint32_t sample_rate_hz = 48000;
};
int RunPlot(const PlotOptions& options);

struct ProcessOptions {
  std::string input;
  std::string output;
  std::string file;
  SituationOptions situation;
  bool match_loudness = false;
  std::string report;  // .html, or empty
  bool force = false;
};
int RunProcess(const ProcessOptions& options);

struct InitOptions {
  std::vector<std::string> headsets;
  std::string output;  // empty: standard output
  bool force = false;
};
int RunInit(const InitOptions& options);

}  // namespace tune

#endif  // TOOLS_TUNE_COMMANDS_H_
