// The rule table; see the header.
#include "tools/tune/lint_rules.h"

#include "tools/tune/lint.h"

namespace tune {

const char* SeverityName(Severity severity) {
  return severity == Severity::kError     ? "error"
         : severity == Severity::kWarning ? "warning"
                                          : "note";
}

const std::vector<Rule>& Rules() {
  // clang-format off
  static const std::vector<Rule> kRules = {
      {"unreadable",        Severity::kError,   "The file cannot be read, is no regular file or is too large."},
      {"xml",               Severity::kError,   "The file is not well-formed XML."},
      {"declaration",       Severity::kError,   "The file does not begin with an XML declaration."},
      {"version",           Severity::kError,   "The version attribute is missing or selects nothing."},
      {"missing-element",   Severity::kError,   "A required element is missing."},
      {"missing-attribute", Severity::kError,   "A required attribute is missing."},
      {"name-length",       Severity::kError,   "A name does not fit its field."},
      {"mode-range",        Severity::kError,   "A mode is not 0 to 3."},
      {"unknown-parameter", Severity::kError,   "A parameter's name is none that exists."},
      {"unknown-module",    Severity::kError,   "A profile includes a module that does not exist."},
      {"empty-list",        Severity::kError,   "A list of numbers is empty."},
      {"list-length",       Severity::kError,   "A list holds more numbers than fit."},
      {"band-limit",        Severity::kError,   "A band list is longer than there are bands."},
      {"other-generation",  Severity::kWarning, "The version hands the file to the 2.0 library."},
      {"large-file",        Severity::kWarning, "The file is very large."},
      {"invalid-utf8",      Severity::kWarning, "The file holds bytes that are not UTF-8."},
      {"ignored",           Severity::kWarning, "An element, attribute, text or profile is ignored."},
      {"duplicate",         Severity::kWarning, "Something stands twice; one of the two wins."},
      {"number",            Severity::kWarning, "A number is not a plain decimal, or is read as another one."},
      {"switch",            Severity::kWarning, "A switch is neither 0 nor 1."},
      {"clamped",           Severity::kWarning, "The library clamps a value into its range."},
      {"band-count",        Severity::kWarning, "A band list has neither 73 nor 75 values."},
      {"scene",             Severity::kWarning, "A headset has no usable profile for a scene."},
      {"never-matches",     Severity::kWarning, "A headset's name hardly matches, or never."},
      {"unused",            Severity::kNote,    "Something is stored and not used."},
  };
  // clang-format on
  return kRules;
}

}  // namespace tune
