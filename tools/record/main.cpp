// binaural-record: records from a virtual headset through the binaural record module.
#include "tools/record/options.h"
#include "tools/record/recorder.h"

int main(int argc, char** argv) {
  tools::RecordOptions options;
  if (const std::optional<int> exit_code = tools::ParseCommandLine(argc, argv, options)) {
    return *exit_code;
  }
  return tools::Record(options);
}
