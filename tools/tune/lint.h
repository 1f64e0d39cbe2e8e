// Everything that can be said about a coefficient file: what the module refuses, what it takes otherwise
// than written, what it never uses. The verdicts are the module's own; the words are the tool's.
#ifndef TOOLS_TUNE_LINT_H_
#define TOOLS_TUNE_LINT_H_

#include <array>
#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

#include "tools/tune/coefficient_file.h"

namespace tune {

enum class Severity { kNote, kWarning, kError };
const char* SeverityName(Severity severity);

struct Rule {
  const char* id;
  Severity severity;
  const char* summary;
};

// All rules; a diagnostic refers to one of them.
const std::vector<Rule>& Rules();

struct Diagnostic {
  const Rule* rule;
  Severity severity;
  size_t offset;  // in the file's text
  int line;       // from 1
  int column;     // from 1, in code points
  std::string message;
};

struct LintResult {
  std::string path;
  std::vector<Diagnostic> diagnostics;  // in file order
  std::array<size_t, 3> counts{};       // by severity, also of those that are not listed

  size_t count(Severity severity) const { return counts[static_cast<size_t>(severity)]; }
  size_t unlisted() const { return counts[0] + counts[1] + counts[2] - diagnostics.size(); }
};

// `strict` makes errors of warnings.
LintResult Lint(const CoefficientFile& file, bool strict);

enum class LintFormat { kText, kJson, kSarif };
// `colours` are for a terminal, with kText only.
void PrintLint(std::ostream& out, const std::vector<LintResult>& results, LintFormat format,
               bool colours);

}  // namespace tune

#endif  // TOOLS_TUNE_LINT_H_
