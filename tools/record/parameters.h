// The parameter texts of a recording: which ones are sent, and which do not do what one expects.
#ifndef TOOLS_RECORD_PARAMETERS_H
#define TOOLS_RECORD_PARAMETERS_H

#include <optional>
#include <string>
#include <vector>

#include "tools/record/options.h"

namespace tools {

// The value of a key in a parameter text as the module reads it (the last one counts).
std::optional<std::string> ParameterValue(const std::string& text, const std::string& key);

// What is sent before the stream is opened, in order, one text per option.
std::vector<std::string> InitialParameters(const RecordOptions& options);

// What the module will accept although it does something unexpected, or nothing; in words.
std::vector<std::string> ParameterWarnings(const RecordOptions& options);

// The algorithm mode once the first `timed_sent` timed parameters have been sent as well.
int ModeInEffect(const RecordOptions& options, size_t timed_sent);

}  // namespace tools

#endif
