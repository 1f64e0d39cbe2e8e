// The rules of lint, by name, for the source that applies them.
#ifndef TOOLS_TUNE_LINT_RULES_H_
#define TOOLS_TUNE_LINT_RULES_H_

namespace tune {

// Rows of the rule table, by name.
enum RuleIndex {
  kUnreadable,
  kXml,
  kDeclaration,
  kVersion,
  kMissingElement,
  kMissingAttribute,
  kNameLength,
  kModeRange,
  kUnknownParameter,
  kUnknownModule,
  kEmptyList,
  kListLength,
  kBandLimit,
  kOtherGeneration,
  kLargeFile,
  kInvalidUtf8,
  kIgnored,
  kDuplicate,
  kNumber,
  kSwitch,
  kClamped,
  kBandCount,
  kScene,
  kNeverMatches,
  kUnused,
};

}  // namespace tune

#endif  // TOOLS_TUNE_LINT_RULES_H_
