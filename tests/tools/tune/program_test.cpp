// The program from the outside: exit codes, formats, hostile files, and what each command prints.
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/tools/tune/tune_test_support.h"

using nlohmann::json;
using testing::AllOf;
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
  const std::string noted = folder.Write("noted.xml", FileWith("<module name=\"n\"/>"));
  const std::string absent = folder.Path("absent.xml");
  const std::pair<int, std::vector<std::string>> kCases[] = {
      {0,
       {"lint " + good, "lint --strict " + noted, "--help", "resolve --help", "--version",
        "resolve " + good + " --headset H", "show " + good, "diff " + good + " " + good}},
      {1, {"lint " + odd}},
      {2,
       {"lint", "lint --format yaml " + good, "", "frobnicate", "resolve " + good,
        "resolve " + good + " --headset H --scene front",
        "resolve " + good + " --headset H --mode 4", "init --headset 'a;b'"}},
      {3,
       {"lint --strict " + odd, "lint " + good + " " + odd + " " + bad, "lint " + absent,
        "resolve " + bad + " --list", "resolve " + absent + " --list", "show " + bad,
        "diff " + good + " " + bad}},
      {4, {"init -o " + good, "init -o " + folder.Path("none/x.xml")}},
  };
  for (const auto& [exit_code, commands] : kCases) {
    for (const std::string& arguments : commands) {
      const RunResult run = Tune(arguments);
      EXPECT_EQ(run.exit_code, exit_code) << arguments << "\n" << run.out << run.err;
      EXPECT_TRUE(run.exit_code != 2 || run.out.empty()) << arguments;
    }
  }
  EXPECT_THAT(Tune("lnit").err, HasSubstr("not expected: lnit"));
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
  EXPECT_EQ((std::vector<json>{plain["file"], plain["errors"], plain["diagnostics"].size(),
                               plain["diagnostics"][2]["rule"]}),
            (std::vector<json>{path, 1, 3, "mode-range"}));

  const json sarif = json::parse(Tune("lint --format sarif " + quoted).out);
  const json run = sarif["runs"][0], finding = run["results"][2];
  const json place = finding["locations"][0]["physicalLocation"], region = place["region"];
  EXPECT_EQ((std::vector<json>{sarif["version"], finding["level"], finding["ruleId"],
                               region["startLine"], region["startColumn"]}),
            (std::vector<json>{"2.1.0", "error", "mode-range", 8, 31}));
  const auto rule = finding["ruleIndex"].get<size_t>();
  EXPECT_EQ(run["tool"]["driver"]["rules"][rule]["id"], "mode-range");
  EXPECT_THAT(place["artifactLocation"]["uri"].get<std::string>(), HasSubstr("/a%20b.xml"));
}

TEST_F(TuneProgram, HostileFilesEndInAMessageWithBoundedMemory) {
  folder.Write("sparse.xml", "");
  ASSERT_EQ(::truncate(folder.Path("sparse.xml").c_str(), off_t{2} << 30), 0);
  ASSERT_EQ(::mkfifo(folder.Path("pipe.xml").c_str(), 0600), 0);
  ASSERT_EQ(::mkdir(folder.Path("folder.xml").c_str(), 0700), 0);
  const std::string module = "<module name=\"n\"/>";
  const std::string headset = "<btheadset name=\"a\"><profile><include module_name=\"z\"/>"
                              "</profile></btheadset>";
  const std::tuple<const char*, std::string, const char*> kCases[] = {
      {"sparse", "", "too large to check: 2048 MiB"},
      {"pipe", "", "not a regular file"},
      {"folder", "", "a folder"},
      {"million", FileWith(Times(1000000, "<a/>")), "999001 more are not listed"},
      {"headsets", FileWith(Times(500000, "<btheadset/>")), "more than 4096 headsets"},
      {"cross", FileWith(Times(4000, module) + Times(4000, headset)), "[unknown-module]"},
      {"attributes", FileWith("<a " + Times(100000, "b=\"\" ") + "/>"), "more than 256 attributes"},
      {"deep", FileWith(Times(100000, "<a>")), "element depth exceeded"},
      {"number", Replaced(FileWith(""), "\"4\"", "\"" + std::string(4000000, '9') + "\""),
       "is read as 2147483647"},
      {"list",
       Replaced(FileWith(""), "mode=\"0\" value=\"", "mode=\"0\" value=\"" + Times(1000000, "1,")),
       "[list-length]"},
      {"zeros", std::string(100000, '\0'), "[xml]"},
      {"steering", FileWith("<module name=\"\x1b[31m\"/>"), "the module \"\\x1b[31m\""},
  };
  for (const auto& [name, text, message] : kCases) {
    SCOPED_TRACE(name);
    const std::string file = std::string(name) + ".xml";
    if (!text.empty()) {
      folder.Write(file, text);
    }
    const RunResult run = RunProgram("(ulimit -d " MEMORY_LIMIT "; timeout 300 " PROGRAM " lint " +
                                     folder.Path(file) + ")");
    EXPECT_THAT(run.out, AllOf(HasSubstr(message), Not(HasSubstr("\x1b"))));
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
  const std::pair<std::string, const char*> kCases[] = {
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
  for (const auto& [arguments, sentence] : kCases) {
    EXPECT_THAT(Tune("resolve " + arguments).out, HasSubstr(sentence)) << arguments;
  }
  EXPECT_THAT(Tune("resolve --list " + two).out,
              AllOf(HasSubstr("\"H\"        normal           1 \"a\"            \"m\""),
                    HasSubstr("selfie           built-in values")));
}

TEST_F(TuneProgram, ResolveShowsWhatTheLibraryHoldsAndMarksWhatItClamped) {
  const std::string path =
      folder.Write("a.xml", Replaced(Replaced(FileWith(""), "value=\"4\"", "value=\"99\""),
                                     "mode=\"0\" value=\"-160,", "mode=\"0\" value=\"900,"));
  EXPECT_THAT(Tune("resolve --headset H " + path).out,
              AllOf(HasSubstr("rnn_amount               99        8  8/8         <- clamped\n"),
                    HasSubstr("pregain_boost           256      256  +16.0 dB\n"),
                    HasSubstr("0 Hz  320*  -161")));
}

TEST_F(TuneProgram, DiffTellsHeadsetSceneAndParameterNotText) {
  // Other order, other blanks, other names of modules and profiles: the same tuning.
  std::string text =
      Replaced(FileWith(""), "rnn_amount\" value=\"4\"", "rnn_amount\"\n value=\" 4 \"");
  const std::string same = folder.Write("b.xml", text);
  EXPECT_EQ(Tune("diff " + good + " " + same).exit_code, 0);

  const std::string gains = "\"/><peq_band_gain_tuning mode=\"0\" value=\"-1";
  const std::string profile = "<profile name=\"b\"><include module_name=\"";
  text = Replaced(text, profile + "m" + gains + "60,", profile + "n" + gains + "44,");
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

  const std::string other = folder.Write("d.xml", Replaced(FileWith(""), "\"H\"", "\"K\""));
  EXPECT_THAT(Tune("diff " + good + " " + other).out,
              AllOf(HasSubstr("headset \"H\"\n  normal\n    tuning           file -> built-in\n"),
                    HasSubstr("headset \"K\"\n")));
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
