// From a command line's headset, scene and mode to the tuning that a device would use, and why.
#ifndef TOOLS_TUNE_SITUATION_H_
#define TOOLS_TUNE_SITUATION_H_

#include <memory>
#include <string>
#include <vector>

#include "tools/tune/coefficient_file.h"
#include "tools/tune/commands.h"
#include "tools/tune/runtime.h"

namespace tune {

// Reads the file; says on standard error when the module refuses it. Throws tools::Failure when the file
// cannot be read at all.
std::unique_ptr<CoefficientFile> LoadForUse(const std::string& path);

// kClean, or kFileErrors when the module refuses the file.
int ExitCodeOf(const CoefficientFile& file);

TuningRequest RequestOf(const SituationOptions& options);

// One sentence: the profile and module that are used, or why the built-in values are.
std::string ExplainChoice(const CoefficientFile& file, const TuningRequest& request,
                          const TuningChoice& choice);

// Different names, in file order.
std::vector<std::string> HeadsetNames(const CoefficientFile& file);

}  // namespace tune

#endif  // TOOLS_TUNE_SITUATION_H_
