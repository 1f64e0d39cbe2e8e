// What the stages that do not follow the sound do to it: high-pass, gain before and equaliser.
#ifndef TOOLS_TUNE_RESPONSE_H_
#define TOOLS_TUNE_RESPONSE_H_

#include <vector>

#include "tools/tune/runtime.h"

namespace tune {

struct Response {
  std::vector<double> hz;
  std::vector<double> db;
};

// Measured through the real stages of a new instance with the runtime's tuning, with tones too quiet for any
// limiter. Noise reduction, near-field management and make-up gain are off, because they follow the sound.
Response MeasureResponse(TunedRuntime* runtime, uint32_t sample_rate_hz);

}  // namespace tune

#endif  // TOOLS_TUNE_RESPONSE_H_
