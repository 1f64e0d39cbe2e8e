// One self-contained HTML page about a processed recording: pictures, values and players for both.
#ifndef TOOLS_TUNE_REPORT_H_
#define TOOLS_TUNE_REPORT_H_

#include <string>

#include "tools/tune/measure.h"
#include "tools/tune/processing.h"

namespace tune {

struct ReportContent {
  const Recording& input;
  const Processed& processed;
  const Levels& before;
  const Levels& after;  // before any matching of loudness
  std::string choice;   // the sentence on the tuning's origin
  std::string speed;
  std::string input_name;
  std::string output_name;
  bool matched;
  const AlgoModeParams& wanted;
  const bcap::Parameters& stored;
};

// Throws tools::Failure.
void WriteReport(const std::string& path, const ReportContent& content);

}  // namespace tune

#endif  // TOOLS_TUNE_REPORT_H_
