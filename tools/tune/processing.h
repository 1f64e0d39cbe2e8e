// A recording through the library as the capture stream runs it, block by block.
#ifndef TOOLS_TUNE_PROCESSING_H_
#define TOOLS_TUNE_PROCESSING_H_

#include <functional>
#include <vector>

#include "tools/tune/audio_file.h"
#include "tools/tune/runtime.h"

namespace tune {

struct Processed {
  Recording recording;                    // as long as the input, the library's delay removed
  std::vector<bcap::BlockReport> blocks;  // of each block in turn
  double delay_seconds = 0.0;             // of the library, which is also that of `blocks`
  double compute_seconds = 0.0;           // inside the library, of one core
};

// `progress` hears the share that is done, now and then. The runtime's sample rate is the recording's.
Processed Process(TunedRuntime* runtime, const Recording& input,
                  const std::function<void(double)>& progress = nullptr);

}  // namespace tune

#endif  // TOOLS_TUNE_PROCESSING_H_
