// The program from the outside: exit codes, formats, hostile files, and what each command prints.
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/tools/tune/tune_test_support.h"

using nlohmann::json;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

namespace {

class TuneProgram : public testing::Test {
 protected:
  const ScratchFolder folder;
  const std::string good = folder.Write("good.xml", FileWith(""));
};

TEST_F(TuneProgram, ExitCodesTellWhatHappened) {
  const std::string odd = folder.Write("odd.xml", FileWith("<x/>"));
  const std::string bad = folder.Write("bad.xml", FileWith("<module/>"));
  const std::string absent = folder.Path("absent.xml"), unmade = folder.Path("none/x.xml");
  const struct {
    int exit_code;
    std::vector<std::string> arguments;
  } kCases[] = {
      {0,
       {"lint " + good, "--help", "resolve --help", "--version", "resolve " + good + " --headset H",
        "show " + good, "diff " + good + " " + good}},
      {1, {"lint " + odd}},
      {2,
       {"lint", "lint --format yaml " + good, "", "frobnicate", "resolve " + good,
        "resolve " + good + " --headset H --scene front",
        "resolve " + good + " --headset H --mode 4", "init --headset 'a;b'"}},
      {3,
       {"lint --strict " + odd, "lint " + good + " " + odd + " " + bad, "lint " + absent,
        "resolve " + bad + " --list", "resolve " + absent + " --list", "show " + bad,
        "diff " + good + " " + bad}},
      {4, {"init -o " + good, "init -o " + unmade}},
  };
  for (const auto& row : kCases) {
    for (const std::string& arguments : row.arguments) {
      const RunResult run = Tune(arguments);
      EXPECT_EQ(run.exit_code, row.exit_code) << arguments << "\n" << run.out << run.err;
      EXPECT_TRUE(run.exit_code != 2 || run.out.empty()) << arguments;
    }
  }
}

TEST_F(TuneProgram, LintSpeaksTextJsonAndSarif) {
  const std::string path =
      folder.Write("a b.xml", FileWith("<module name=\"\xFF\"><mode value=\"7\"/></module>"));
  const std::string quoted = "'" + path + "'";

  const RunResult text = Tune("lint " + quoted);
  EXPECT_THAT(
      text.out,
      HasSubstr(path + ":8:31: error: mode \"7\" is read as 7; expected 0 to 3 [mode-range]\n"));
  EXPECT_THAT(text.err, HasSubstr("1 error, 1 warning"));
  const json plain = json::parse(Tune("lint --format json " + quoted).out).at("files").at(0);
  EXPECT_EQ(plain.at("file"), path);
  EXPECT_EQ(plain.at("errors"), 1);
  EXPECT_EQ(plain.at("diagnostics").size(), 3u);
  EXPECT_EQ(plain.at("diagnostics").at(2).at("rule"), "mode-range");

  const json sarif = json::parse(Tune("lint --format sarif " + quoted).out);
  const json& run = sarif.at("runs").at(0);
  const json& finding = run.at("results").at(2);
  const json& rules = run.at("tool").at("driver").at("rules");
  const json& place = finding.at("locations").at(0).at("physicalLocation");
  EXPECT_EQ(sarif.at("version"), "2.1.0");
  EXPECT_EQ(finding.at("level"), "error");
  EXPECT_EQ(rules.at(finding.at("ruleIndex").get<size_t>()).at("id"), finding.at("ruleId"));
  EXPECT_THAT(place.at("artifactLocation").at("uri").get<std::string>(), HasSubstr("/a%20b.xml"));
  EXPECT_EQ(place.at("region").at("startLine"), 8);
  EXPECT_EQ(place.at("region").at("startColumn"), 31);
}

TEST_F(TuneProgram, NamesWhatItDoesNotKnow) {
  const RunResult run = Tune("lnit");
  EXPECT_EQ(run.exit_code, 2);
  EXPECT_THAT(run.err, HasSubstr("not expected: lnit"));
}

TEST_F(TuneProgram, HostileFilesEndInAMessageWithBoundedMemory) {
  folder.Write("sparse.xml", "");
  ASSERT_EQ(::truncate(folder.Path("sparse.xml").c_str(), off_t{2} << 30), 0);
  ASSERT_EQ(::mkfifo(folder.Path("pipe.xml").c_str(), 0600), 0);
  ASSERT_EQ(::mkdir(folder.Path("folder.xml").c_str(), 0700), 0);
  const struct {
    const char* name;
    std::string text;  // empty: made above
    const char* rule;
  } kCases[] = {
      {"sparse", "", "too large to check: 2048 MiB"},
      {"pipe", "", "not a regular file"},
      {"folder", "", "a folder"},
      {"million", FileWith(Times(1000000, "<a/>")), "999001 more are not listed"},
      {"headsets", FileWith(Times(500000, "<btheadset/>")), "more than 4096 headsets"},
      {"cross",
       FileWith(Times(4000, "<module name=\"n\"/>") +
                Times(4000, "<btheadset name=\"a\"><profile><include "
                            "module_name=\"z\"/></profile></btheadset>")),
       "[unknown-module]"},
      {"attributes", FileWith("<a " + Times(100000, "b=\"\" ") + "/>"), "more than 256 attributes"},
      {"deep", FileWith(Times(100000, "<a>")), "element depth exceeded"},
      {"number",
       Replaced(FileWith(""), "value=\"4\"", "value=\"" + std::string(4000000, '9') + "\""),
       "is read as 2147483647"},
      {"list",
       Replaced(FileWith(""), "mode=\"0\" value=\"", "mode=\"0\" value=\"" + Times(1000000, "1,")),
       "[list-length]"},
      {"zeros", std::string(100000, '\0'), "[xml]"},
      {"steering", FileWith("<module name=\"\x1b[31m\"/>"),
       "no profile includes the module \"\\x1b[31m\""},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.name);
    const std::string file = std::string(row.name) + ".xml";
    if (!row.text.empty()) {
      folder.Write(file, row.text);
    }
    const RunResult run = RunProgram("(ulimit -d " MEMORY_LIMIT "; timeout 300 " PROGRAM " lint " +
                                     folder.Path(file) + ")");
    EXPECT_THAT(run.out, HasSubstr(row.rule));
    EXPECT_THAT(run.out, Not(HasSubstr("\x1b")));
    EXPECT_THAT(run.exit_code, AnyOf(0, 1, 3)) << run.err;
  }
}

TEST_F(TuneProgram, ResolveNamesTheTuningOrTheStepThatFellBack) {
  const std::string two =
      folder.Write("two.xml", FileWith(Expand(R"(<module name="n"><mode value="1"/></module>
<btheadset name="G"><nfm_band_energy_tuning value="@73@"/>
<profile name="x"><include module_name="n"/><peq_band_gain_tuning mode="0" value="@73@"/></profile>
</btheadset>)")));
  const std::string bad = folder.Write("bad.xml", FileWith("<module/>"));
  const std::string versionless =
      folder.Write("versionless.xml", Replaced(FileWith(""), "1.1.0", "1.0.0"));
  const struct {
    std::string arguments;
    const char* sentence;
  } kCases[] = {
      {two + " --headset H", "\"H\", scene normal, mode 0: profile 1 \"a\" (line 5) with the "
                             "module \"m\" (line 3) is used."},
      {two + " --headset H --scene selfie", "profile 2 \"b\" (line 6)"},
      {two + " --headset H --scene selfie --mirror",
       "scene selfie mirrored, mode 0: profile 3 \"c\" (line 7)"},
      {two + " --headset H --mirror", "scene normal"},
      {two + " --headset h",
       "built-in values are used, because the file has no headset \"h\"; did you mean \"H\"?"},
      {two + " --headset G --scene selfie", "because the headset (line 9) has no profile 2."},
      {two + " --headset G", "because the module of profile 1 (line 10) has no mode 0."},
      {two + " --headset H --mode 2", "only mode 0 is"},
      {bad + " --headset H", "because the module refuses the whole file for 1 error"},
      {versionless + " --headset H", "because the file's version selects no algorithm"},
  };
  for (const auto& row : kCases) {
    EXPECT_THAT(Tune("resolve " + row.arguments).out, HasSubstr(row.sentence)) << row.arguments;
  }
  const std::string list = Tune("resolve --list " + two).out;
  EXPECT_THAT(list, HasSubstr("\"H\"        normal           1 \"a\"            \"m\""));
  EXPECT_THAT(list, HasSubstr("selfie           built-in values"));
}

TEST_F(TuneProgram, ResolveShowsWhatTheLibraryHoldsAndMarksWhatItClamped) {
  const std::string path =
      folder.Write("a.xml", Replaced(Replaced(FileWith(""), "value=\"4\"", "value=\"99\""),
                                     "mode=\"0\" value=\"-160,", "mode=\"0\" value=\"900,"));
  const std::string out = Tune("resolve --headset H " + path).out;
  EXPECT_THAT(out, HasSubstr("rnn_amount               99        8  8/8         <- clamped\n"));
  EXPECT_THAT(out, HasSubstr("pregain_boost           256      256  +16.0 dB\n"));
  EXPECT_THAT(out, HasSubstr("0 Hz  320*  -161"));
}

TEST_F(TuneProgram, DiffTellsHeadsetSceneAndParameterNotText) {
  // Other order, other blanks, other names of modules and profiles: the same tuning.
  std::string text =
      Replaced(FileWith(""), "rnn_amount\" value=\"4\"", "rnn_amount\"\n value=\" 4 \"");
  const std::string same = folder.Write("b.xml", text);
  EXPECT_EQ(Tune("diff " + good + " " + same).exit_code, 0);

  text = Replaced(text,
                  "<profile name=\"b\"><include module_name=\"m\"/><peq_band_gain_tuning "
                  "mode=\"0\" value=\"-160,",
                  "<profile name=\"b\"><include module_name=\"n\"/><peq_band_gain_tuning "
                  "mode=\"0\" value=\"-144,");
  text = Replaced(text, "</tuning>",
                  "<module name=\"n\"><mode value=\"0\"><param name=\"rnn_amount\" value=\"99\"/>"
                  "<param name=\"lev_amount\" value=\"2\"/></mode></module></tuning>");
  const RunResult run = Tune("diff " + good + " " + folder.Write("c.xml", text));
  EXPECT_EQ(run.exit_code, 1);
  EXPECT_EQ(run.out, "headset \"H\"\n"
                     "  selfie\n"
                     "    rnn_amount          4 -> 99       4/8 -> 8/8\n"
                     "    lev_amount          0 -> 2        not used\n"
                     "    band gains, band 1  -160 -> -144  +1.0 dB\n");

  const RunResult against_nothing =
      Tune("diff " + good + " " + folder.Write("d.xml", Replaced(FileWith(""), "\"H\"", "\"K\"")));
  EXPECT_THAT(against_nothing.out,
              HasSubstr("headset \"H\"\n  normal\n    tuning           file -> built-in\n"));
  EXPECT_THAT(against_nothing.out, HasSubstr("headset \"K\"\n"));
}

TEST_F(TuneProgram, ShowPrintsEverythingInTheFile) {
  const std::string out = Tune(std::string("show ") + SAMPLE_FILE).out;
  for (const char* text :
       {"4 modules, 2 headsets", "\"normal_open\"", "208 (+13.0 dB)",
        "headset 2 \"Quill Over-Ear\"",
        "profile 3 \"selfie mirror\", for scene selfie mirrored, module \"selfie_mirror\"",
        "band    centre  energy  gain 1  gain 2  gain 3", "  73  "}) {
    EXPECT_THAT(out, HasSubstr(text));
  }
}

TEST_F(TuneProgram, InitWritesAFileThatLintsCleanAndEqualsTheBuiltInValues) {
  const std::string path = folder.Path("new.xml");
  ASSERT_EQ(Tune("init --headset 'A & <B> \"C\"' --headset Alder -o " + path).exit_code, 0);
  EXPECT_EQ(Tune("lint --strict " + path).out, "");
  EXPECT_EQ(Tune("init -o " + path + " --force --headset Alder").exit_code, 0);
  // Against a file that does not know the headset: only where the values come from differs.
  const std::string out = Tune("diff " + good + " " + path).out;
  EXPECT_THAT(
      out,
      HasSubstr(
          "headset \"Alder\"\n  normal, selfie, selfie mirrored\n    tuning  built-in -> file\n"));
  EXPECT_THAT(Tune("resolve --headset Alder --scene selfie --mirror " + path).out,
              HasSubstr("selfie_mode               1        1  on"));
}

}  // namespace
