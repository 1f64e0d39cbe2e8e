// `lint`: checks files and prints what is to be said about them.
#include <iostream>

#include <unistd.h>

#include "tools/common/console.h"
#include "tools/tune/commands.h"
#include "tools/tune/exit_codes.h"
#include "tools/tune/words.h"

namespace tune {

int RunLint(const LintOptions& options) {
  std::vector<LintResult> results;
  size_t errors = 0;
  size_t warnings = 0;
  for (const std::string& path : options.files) {
    results.push_back(Lint(CoefficientFile(path), options.strict));
    errors += results.back().count(Severity::kError);
    warnings += results.back().count(Severity::kWarning);
  }
  PrintLint(std::cout, results, options.format, ::isatty(STDOUT_FILENO) == 1);
  if (options.format == LintFormat::kText && errors + warnings > 0) {
    tools::TheConsole().Line(Count(errors, "error") + ", " + Count(warnings, "warning") +
                             (errors > 0 && !options.strict
                                  ? "; with errors the module does not use what the file says"
                                  : ""));
  }
  return errors > 0 ? kFileErrors : warnings > 0 ? kFindings : kClean;
}

}  // namespace tune
