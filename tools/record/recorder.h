// One recording, from options to exit code.
#ifndef TOOLS_RECORD_RECORDER_H
#define TOOLS_RECORD_RECORDER_H

#include "tools/record/options.h"

namespace tools {

// Records as told, says on the console what there is to say, writes the report. Call once in a
// process, before any other thread exists: it blocks the ending signals for all of them.
int Record(const RecordOptions& options);

}  // namespace tools

#endif
