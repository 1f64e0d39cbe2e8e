// The three forms of a lint result: compiler-style lines, JSON, and SARIF 2.1.0 (OASIS) for editors and
// review tools.
#include <cctype>
#include <cstdio>
#include <cstring>
#include <ostream>

#include <nlohmann/json.hpp>

#include "tools/common/console.h"
#include "tools/tune/lint.h"
#include "tools/tune/words.h"

namespace tune {
namespace {

using nlohmann::ordered_json;

constexpr char kSarifSchema[] =
    "https://docs.oasis-open.org/sarif/sarif/v2.1.0/os/schemas/sarif-schema-2.1.0.json";

void PrintText(std::ostream& out, const LintResult& result, bool colours) {
  constexpr const char* kColours[] = {"\x1b[36m", "\x1b[33m", "\x1b[31m"};
  const std::string path = tools::EscapeControls(result.path);
  for (const Diagnostic& diagnostic : result.diagnostics) {
    const auto severity = static_cast<size_t>(diagnostic.severity);
    out << (colours ? "\x1b[1m" : "") << path << ":" << diagnostic.line << ":" << diagnostic.column
        << ": " << (colours ? kColours[severity] : "") << SeverityName(diagnostic.severity) << ": "
        << (colours ? "\x1b[0m" : "") << diagnostic.message << " [" << diagnostic.rule->id << "]\n";
  }
  if (result.unlisted() > 0) {
    out << path << ":1:1: note: " << result.unlisted() << " more are not listed\n";
  }
}

ordered_json Json(const LintResult& result) {
  ordered_json file = {{"file", result.path},
                       {"errors", result.count(Severity::kError)},
                       {"warnings", result.count(Severity::kWarning)},
                       {"notes", result.count(Severity::kNote)},
                       {"unlisted", result.unlisted()},
                       {"diagnostics", ordered_json::array()}};
  for (const Diagnostic& diagnostic : result.diagnostics) {
    file["diagnostics"].push_back({{"line", diagnostic.line},
                                   {"column", diagnostic.column},
                                   {"severity", SeverityName(diagnostic.severity)},
                                   {"rule", diagnostic.rule->id},
                                   {"message", diagnostic.message}});
  }
  return file;
}

// RFC 3986: everything but unreserved characters and the slash is written as %XX.
std::string Uri(const std::string& path) {
  std::string uri;
  for (const char letter : path) {
    const auto byte = static_cast<unsigned char>(letter);
    if (std::isalnum(byte) != 0 || std::strchr("-._~/", letter) != nullptr) {
      uri += letter;
    } else {
      char code[4];
      std::snprintf(code, sizeof(code), "%%%02X", byte);
      uri += code;
    }
  }
  return path.rfind('/', 0) == 0 ? "file://" + uri : uri;
}

ordered_json Sarif(const std::vector<LintResult>& results) {
  ordered_json rules = ordered_json::array();
  for (const Rule& rule : Rules()) {
    rules.push_back({{"id", rule.id},
                     {"shortDescription", {{"text", rule.summary}}},
                     {"defaultConfiguration", {{"level", SeverityName(rule.severity)}}}});
  }
  ordered_json findings = ordered_json::array();
  for (const LintResult& result : results) {
    for (const Diagnostic& diagnostic : result.diagnostics) {
      findings.push_back(
          {{"ruleId", diagnostic.rule->id},
           {"ruleIndex", diagnostic.rule - Rules().data()},
           {"level", SeverityName(diagnostic.severity)},
           {"message", {{"text", diagnostic.message}}},
           {"locations",
            ordered_json::array(
                {{{"physicalLocation",
                   {{"artifactLocation", {{"uri", Uri(result.path)}}},
                    {"region",
                     {{"startLine", diagnostic.line}, {"startColumn", diagnostic.column}}}}}}})}});
    }
  }
  const ordered_json driver = {
      {"name", "binaural-tune"}, {"version", BINAURAL_VERSION}, {"rules", rules}};
  return {{"$schema", kSarifSchema},
          {"version", "2.1.0"},
          {"runs", ordered_json::array({{{"tool", {{"driver", driver}}},
                                         {"columnKind", "unicodeCodePoints"},
                                         {"results", findings}}})}};
}

// Names in the file need not be UTF-8; JSON does.
std::string Dump(const ordered_json& json) {
  return json.dump(2, ' ', false, ordered_json::error_handler_t::replace);
}

}  // namespace

void PrintLint(std::ostream& out, const std::vector<LintResult>& results, LintFormat format,
               bool colours) {
  if (format == LintFormat::kSarif) {
    out << Dump(Sarif(results)) << "\n";
    return;
  }
  if (format == LintFormat::kJson) {
    ordered_json files = ordered_json::array();
    for (const LintResult& result : results) {
      files.push_back(Json(result));
    }
    out << Dump({{"files", files}}) << "\n";
    return;
  }
  for (const LintResult& result : results) {
    PrintText(out, result, colours);
  }
}

}  // namespace tune
