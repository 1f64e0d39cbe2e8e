// What the recorder's exit code tells a script. Documented in its man page; never renumber.
#ifndef TOOLS_RECORD_EXIT_CODES_H
#define TOOLS_RECORD_EXIT_CODES_H

namespace tools {

enum ExitCode : int {
  kDone = 0,  // also after Ctrl-C
  kUsage = 2,
  kModuleNotLoadable = 3,
  kDeviceRefused = 4,
  kStreamRefused = 5,
  kNoAudio = 6,
  kOutputError = 7,
};

}  // namespace tools

#endif
