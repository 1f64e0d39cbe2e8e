// What a recording came to: a summary for people and a JSON report for programs.
#ifndef TOOLS_RECORD_REPORT_H
#define TOOLS_RECORD_REPORT_H

#include <cstdint>
#include <string>

#include "tools/record/module_session.h"
#include "tools/record/options.h"

namespace tools {

class Capture;
class Meter;

// Filled step by step, so that a failed recording reports as much as was known.
struct Report {
  int exit_code = 0;
  std::string outcome = "failed";  // "done", "interrupted" or "failed"
  std::string error;               // what went wrong, for "failed"
  std::string module;
  std::string generation;
  std::string coefficients;          // empty: there is no coefficient file
  std::string coefficients_refused;  // the module's line, when it did not take them
  bool tuned_from_file = false;      // else the tuning is the module's built-in one
  StreamFormat format;
  size_t period_bytes = 0;
  size_t request_bytes = 0;
  size_t device_buffer_bytes = 0;
  double elapsed_s = 0;
  int session_changes = 0;  // seen in mid-stream
  std::string port_state;   // the last one seen
};

// Throws a Failure (output error). `capture` and `meter` may be null.
void WriteJsonReport(const RecordOptions& options, const Report& report, const Capture* capture,
                     const Meter* meter);

// Of a recording that has ended: "10.00 s, 480000 frames, peak L -12.3 R -12.9 dBFS, -31.0 LUFS, ..."
std::string Summary(const Capture& capture, const Meter& meter, int rate_hz);

// "00:10.0 of 01:00.0, 0 clipped samples, 0 failed reads", from a recording that is running.
std::string ProgressText(const Capture& capture, const Meter& meter, double wanted_s, int rate_hz);

// The line on a terminal: time, progress, peaks of both ears, clips, failed reads, port state. Takes
// the meter's recent peaks.
std::string StatusLine(const Capture& capture, Meter& meter, double wanted_s, int rate_hz,
                       const std::string& port_state, int width);

// "01:23.4", with hours when there are any.
std::string TimeText(double seconds);

}  // namespace tools

#endif
