// What lint says about files, where, and that its errors are the module's and the schema agrees.
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/tune/tune_test_support.h"
#include "tools/tune/lint.h"

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// "line:column severity rule" of each diagnostic.
std::vector<std::string> Places(const tune::LintResult& result) {
  std::vector<std::string> places;
  for (const auto& diagnostic : result.diagnostics) {
    places.push_back(std::to_string(diagnostic.line) + ":" + std::to_string(diagnostic.column) +
                     " " + tune::SeverityName(diagnostic.severity) + " " + diagnostic.rule->id);
  }
  return places;
}

std::string Messages(const tune::LintResult& result) {
  std::string messages;
  for (const auto& diagnostic : result.diagnostics) {
    messages += diagnostic.message + "\n";
  }
  return messages;
}

bool ModuleAccepts(const std::string& path) {
  tinyxml2::XMLDocument document;
  AlgoConfigCoeff store{};
  const bool accepted = ParseCoefficients(path.c_str(), &document, &store) == 0;
  ReleaseCoefficients(&store);
  return accepted;
}

bool SchemaAccepts(const std::string& path) {
  return RunProgram(std::string(XMLLINT) + " --noout --schema " + SCHEMA_FILE + " '" + path + "'")
             .exit_code == 0;
}

struct Case {
  const char* name;
  std::string text;
  std::vector<std::string> places;
  const char* message;  // part of one of them
  bool module_accepts;
  bool schema_accepts;
};

constexpr char kDeclaration[] = "<?xml version=\"1.0\"?>\n";

const std::string kPeq = R"(<peq_band_gain_tuning mode="0" value="@73@"/>)";
const std::string kInclude = R"(<include module_name="m"/>)";

std::string ProfileOf(const std::string& name, const std::string& module) {
  return "<profile name=\"" + name + "\"><include module_name=\"" + module + "\"/>" + kPeq +
         "</profile>\n";
}

std::string HeadsetText(const std::string& attributes, const std::string& list,
                        const std::string& first_profile, const std::string& module = "m") {
  return "<btheadset " + attributes + "><nfm_band_energy_tuning value=\"" + list + "\"/>" +
         first_profile + ProfileOf("b", module) + ProfileOf("c", module) + "</btheadset>\n";
}

std::string Headset(const std::string& attributes, const std::string& list = "@73@") {
  return FileWith(HeadsetText(attributes, list, "\n" + ProfileOf("a", "m")));
}

// A second headset, with what is to be tried in its first profile.
std::string Profile(const std::string& inside) {
  return FileWith(
      HeadsetText("name=\"G\"", "@73@", "<profile name=\"a\">\n" + inside + "\n</profile>\n"));
}

// A second module, which the profiles of a second headset include.
std::string Mode(const std::string& inside) {
  return FileWith("<module name=\"n\"><mode value=\"0\">\n" + inside + "\n</mode></module>\n" +
                  HeadsetText("name=\"G\"", "@73@", "\n" + ProfileOf("a", "n"), "n"));
}

// clang-format off
const std::vector<Case>& Cases() {
  static const std::vector<Case> cases = {
    {"clean", FileWith(""), {}, "", true, true},
    {"clean for 44.1 kHz", Headset("name=\"G\"", "@75@"), {}, "", true, true},
    {"schema reference", Replaced(FileWith(""), "bnc", "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xsi:noNamespaceSchemaLocation=\"a.xsd\" bnc"), {}, "", true, true},

    // The whole file.
    {"empty", "", {"1:1 error xml"}, "the file is empty", false, false},
    {"not XML", "hello", {"1:1 error xml"}, "not well-formed XML", false, false},
    {"open element", std::string(kDeclaration) + "<tuning>\n<module>\n</tuning>", {"3:1 error xml"}, "mismatched element", false, false},
    {"no declaration", FileWith("").substr(39), {"1:1 error declaration"}, "expected <?xml", false, true},
    {"no tuning", std::string(kDeclaration) + "<tunning/>", {"1:1 error missing-element", "2:1 warning ignored"}, "did you mean \"tuning\"", false, false},
    {"nothing in it", std::string(kDeclaration) + "<tuning bnc_verson=\"1.1.0\"/>", {"2:1 error missing-element"}, "lacks a <module>", false, false},
    {"no version", Replaced(FileWith(""), "bnc_verson", "bnc_version"),
     {"2:1 error version", "2:1 warning ignored"}, "did you mean \"bnc_verson\"", true, false},
    {"unknown version", Replaced(FileWith(""), "1.1.0", "1.2.0"), {"2:21 error version"}, "\"1.2.0\" selects nothing", true, false},
    {"other generation", Replaced(FileWith("<x/>"), "1.1.0", "1.4.0"), {"2:21 warning other-generation"}, "2.0 library", true, false},
    {"not UTF-8", FileWith("<!-- \xFF -->"), {"8:6 warning invalid-utf8"}, "not UTF-8", true, false},
    {"large", FileWith("<!--" + std::string(1100000, 'x') + "-->"), {"1:1 warning large-file"}, "1076 KiB", true, true},

    // Modules and parameters.
    {"module without name", FileWith("<module nmae=\"n\"/>"), {"8:1 error missing-attribute", "8:1 warning ignored"}, "it has \"nmae\"", false, false},
    {"name of 64 bytes", FileWith("<module name=\"" + std::string(64, 'n') + "\"/>"), {"8:15 error name-length", "8:15 note unused"}, "64 bytes; at most 63", false, false},
    {"name of 63 bytes", FileWith("<module name=\"" + std::string(63, 'n') + "\"/>"), {"8:15 note unused"}, "no profile includes", true, true},
    {"second module of a name", FileWith("<module name=\"m\"/>"), {"8:15 warning duplicate"}, "include the first", true, false},
    {"mode 4", FileWith("<module name=\"m\"><mode value=\"4\"/></module>"), {"8:15 warning duplicate", "8:31 error mode-range"}, "expected 0 to 3", false, false},
    {"mode with junk", Mode("</mode><mode value=\"1b\">"), {"9:8 note unused", "9:21 warning number"}, "\"1b\" is read as 1", true, false},
    {"mode without value", FileWith("<module name=\"m\"><mode/></module>"), {"8:15 warning duplicate", "8:18 error missing-attribute"}, "\"value\"", false, false},
    {"mode twice", Mode("</mode><mode value=\"0\">"), {"9:8 warning duplicate"}, "start values", true, true},
    {"parameter without value", Mode("<param name=\"rnn_amount\"/>"), {"9:1 error missing-attribute"}, "<param> lacks the attribute \"value\"", false, false},
    {"parameter in capitals", Mode("<param name=\"HPF_enable\" value=\"1\"/>"), {"9:14 error unknown-parameter"}, "did you mean \"hpf_enable\"?", false, false},
    {"all faults of a file", Mode("<param name=\"a\" value=\"1\"/>\n<param name=\"b\" value=\"1\"/>\n<param value=\"1\"/>"),
     {"9:14 error unknown-parameter", "10:14 error unknown-parameter", "11:1 error missing-attribute"}, "no parameter \"b\"", false, false},
    {"clamped parameter", Mode("<param name=\"pregain_boost\" value=\"400\"/>"), {"9:36 warning clamped"}, "400 to 320; it takes -160 to 320", true, true},
    {"highest and lowest", Mode("<param name=\"pregain_boost\" value=\"320\"/><param name=\"pregain_limiter_peak\" value=\"1\"/>"), {}, "", true, true},
    {"just below", Mode("<param name=\"postgain_limiter_peak\" value=\"0\"/>"), {"9:44 warning clamped"}, "0 to 1; it takes 1 to 256", true, true},
    {"switch", Mode("<param name=\"hpf_enable\" value=\"2\"/>"), {"9:33 warning switch"}, "2 means on", true, true},
    {"number with unit", Mode("<param name=\"rnn_amount\" value=\"4dB\"/>"), {"9:33 warning number"}, "\"4dB\" is read as 4", true, false},
    {"no number", Mode("<param name=\"rnn_amount\" value=\"\"/>"), {"9:33 warning number"}, "\"\" is read as 0", true, false},
    {"past 32 bits", Mode("<param name=\"hpf_enable\" value=\"99999999999\"/>"), {"9:33 warning number", "9:33 warning switch"}, "is read as 2147483647", true, false},
    {"blanks and zeros", Mode("<param name=\"rnn_amount\" value=\" 007 \"/>"), {}, "", true, true},
    {"parameter twice", Mode("<param name=\"rnn_amount\" value=\"1\"/>\n<param name=\"rnn_amount\" value=\"2\"/>"), {"10:1 warning duplicate"}, "the last wins", true, false},
    {"unused parameter", Mode("<param name=\"lev_amount\" value=\"1\"/>"), {"9:1 note unused"}, "not used by this generation", true, true},
    {"unused mode", Mode("</mode><mode value=\"2\"><param name=\"rnn_amount\" value=\"99\"/>"), {"9:8 note unused"}, "only mode 0", true, true},
    {"short list", Mode("<param name=\"pregain_dra_tuning\" value=\"-400,1,2,3\"/>"), {"9:1 note unused"}, "pregain_dra_tuning", true, true},
    {"short list too long", Mode("<param name=\"pregain_dra_tuning\" value=\"1,2,3,4,5\"/>"), {"9:1 note unused", "9:41 error list-length"}, "at most 4", false, false},
    {"short list empty", Mode("<param name=\"pregain_dra_tuning\" value=\"\"/>"), {"9:1 note unused", "9:41 error empty-list"}, "the list is empty", false, false},

    // Headsets.
    {"headset without name", Headset(""), {"8:1 error missing-attribute"}, "\"name\"", false, false},
    {"headset name of 128 bytes", Headset("name=\"" + std::string(128, 'n') + "\""), {"8:18 error name-length"}, "at most 127", false, false},
    {"second headset of a name", Headset("name=\"H\""), {"8:18 warning duplicate"}, "the first wins", true, false},
    {"name with a semicolon", Headset("name=\"a;b\""), {"8:18 warning never-matches"}, "can never match", true, false},
    {"name with an equals sign", Headset("name='a=b'"), {"8:18 warning never-matches"}, "can never match", true, false},
    {"empty name", Headset("name=\"\""), {"8:18 warning never-matches"}, "empty name", true, false},
    {"name behind a blank", Headset("name=\" a\""), {"8:18 warning never-matches"}, "blank", true, true},
    {"no energies", FileWith("<btheadset name=\"G\"><nfm_band_energy/></btheadset>"),
     {"8:1 error missing-element", "8:1 warning scene", "8:1 warning scene", "8:1 warning scene", "8:21 warning ignored"}, "did you mean \"nfm_band_energy_tuning\"?", false, false},
    {"empty energies", Headset("name=\"G\"", ""), {"8:52 error empty-list"}, "the list is empty", false, false},
    {"97 energies", Headset("name=\"G\"", "@97@"), {"8:52 error list-length"}, "at most 96", false, false},
    {"96 energies", Headset("name=\"G\"", "@96@"), {"8:52 error band-limit"}, "only 75 bands", true, false},
    {"74 energies", Headset("name=\"G\"", "@74@"), {"8:52 warning band-count"}, "74 values; expected 73", true, false},
    {"energies out of range", Headset("name=\"G\"", "@71@,-2081, 5"), {"8:407 warning clamped"}, "-2081 to -2080 in band 72, 5 to -160 in band 73", true, true},
    {"junk among the energies", Headset("name=\"G\"", "@72@,-9x0"), {"8:412 warning number", "8:412 warning clamped"}, "\"-9x0\" is read as -9", true, false},
    {"empty field", Headset("name=\"G\"", "@72@,,-200"), {"8:52 warning number"}, "moves down; numbers read: 73", true, false},
    {"second list of energies", Replaced(FileWith(""), "<profile", "<nfm_band_energy_tuning value=\"1\"/>\n<profile"), {"5:1 warning duplicate"}, "the first wins", true, false},

    // Profiles and scenes.
    {"no profiles", FileWith(Expand("<btheadset name=\"G\"><nfm_band_energy_tuning value=\"@73@\"/></btheadset>")),
     {"8:1 warning scene", "8:1 warning scene", "8:1 warning scene"}, "\"selfie mirrored\" of \"G\" gets the built-in values: there is no profile 3", true, true},
    {"module without mode 0", FileWith("<module name=\"n\"><mode value=\"1\"/></module>\n" + HeadsetText("name=\"G\"", "@73@", "\n" + ProfileOf("a", "n"))),
     {"8:18 note unused", "10:1 warning scene"}, "profile 1 has no mode 0", true, true},
    {"no include", Profile(kPeq), {"8:419 error missing-element"}, "<profile> lacks a <include>", false, false},
    {"unknown module", Profile("<include module_name=\"M\"/>" + kPeq), {"9:23 error unknown-module"}, "no module \"M\"; did you mean \"m\"?", false, false},
    {"include without name", Profile("<include name=\"m\"/>" + kPeq), {"9:1 error missing-attribute", "9:1 warning ignored"}, "it has \"name\"", false, false},
    {"include twice", Profile(kInclude + kPeq + kInclude), {"9:432 warning duplicate"}, "the first wins", true, false},
    {"no gains", Profile(kInclude), {"8:419 error missing-element"}, "peq_band_gain_tuning", false, false},
    {"gains for mode 1 only", Profile(kInclude + "<peq_band_gain_tuning mode=\"1\" value=\"@73@\"/>"), {"8:419 warning band-count", "9:27 note unused"}, "stays flat", true, true},
    {"gains for mode -1", Profile(kInclude + "<peq_band_gain_tuning mode=\"-1\" value=\"@73@\"/>"), {"9:55 error mode-range"}, "is read as -1", false, false},
    {"gains twice", Profile(kInclude + "<peq_band_gain_tuning mode=\"0\" value=\"@73@\"/>\n" + kPeq), {"10:1 warning duplicate"}, "the last wins", true, true},
    {"fifth list of gains", Profile(kInclude + kPeq + "\n<peq_band_gain_tuning mode=\"1\" value=\"@73@\"/><peq_band_gain_tuning mode=\"2\" value=\"@73@\"/>"
     "<peq_band_gain_tuning mode=\"3\" value=\"@73@\"/>\n" + kPeq), {"10:1 note unused", "10:406 note unused", "10:811 note unused", "11:1 warning ignored"}, "first 4", true, false},
    {"two clamped gains", Profile(kInclude + "<peq_band_gain_tuning mode=\"0\" value=\"321,@71@,-577\"/>"), {"9:65 warning clamped"}, "321 to 320 in band 1, -577 to -576 in band 73", true, true},
    {"sixth profile", Replaced(FileWith(""), "</btheadset>", "\n" + ProfileOf("d", "m") + ProfileOf("e", "m") + "<profile name=\"f\"/></btheadset>"),
     {"8:1 note unused", "9:1 note unused", "10:1 warning ignored"}, "only the first 5", true, false},

    // What nobody reads.
    {"element in the wrong place", FileWith("<param name=\"rnn_amount\" value=\"1\"/>"), {"8:1 warning ignored"}, "it belongs into <mode>", true, false},
    {"misspelt element", FileWith("<modul name=\"x\"/>"), {"8:1 warning ignored"}, "did you mean \"module\"?", true, false},
    {"attribute", FileWith("<module name=\"m\" comment=\"x\"/>"), {"8:1 warning ignored", "8:15 warning duplicate"}, "\"comment\" of <module>", true, false},
    {"text", FileWith("x"), {"2:1 warning ignored"}, "the text", true, false},
    {"second tuning", FileWith("") + "<tuning/>", {"9:1 warning duplicate"}, "the first wins", true, false},
  };
  return cases;
}
// clang-format on

TEST(TuneLint, SaysEachFaultAtItsPlaceAsTheModuleAndTheSchemaSeeIt) {
  const ScratchFolder folder;
  for (const Case& row : Cases()) {
    SCOPED_TRACE(row.name);
    const std::string path = folder.Write("case.xml", Expand(row.text));
    const tune::LintResult result = tune::Lint(tune::CoefficientFile(path), false);
    EXPECT_EQ(Places(result), row.places) << Messages(result);
    EXPECT_THAT(Messages(result), HasSubstr(row.message));
    EXPECT_EQ(ModuleAccepts(path), row.module_accepts);
    EXPECT_EQ(SchemaAccepts(path), row.schema_accepts);
  }
}

TEST(TuneLint, SampleFileIsCleanForLintAndSchema) {
  EXPECT_THAT(Places(tune::Lint(tune::CoefficientFile(SAMPLE_FILE), true)), IsEmpty());
  EXPECT_TRUE(SchemaAccepts(SAMPLE_FILE));
}

}  // namespace
