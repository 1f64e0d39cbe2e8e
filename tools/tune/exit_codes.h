// What the exit code tells a script. Documented in --help and the man page; never renumber.
#ifndef TOOLS_TUNE_EXIT_CODES_H_
#define TOOLS_TUNE_EXIT_CODES_H_

namespace tune {

enum ExitCode : int {
  kClean = 0,       // done; lint: nothing but notes; diff: no difference
  kFindings = 1,    // lint: warnings; diff: differences
  kUsage = 2,       // the command line
  kFileErrors = 3,  // the module refuses a coefficient file
  kIo = 4,          // a recording or picture cannot be read or written
};

}  // namespace tune

#endif  // TOOLS_TUNE_EXIT_CODES_H_
