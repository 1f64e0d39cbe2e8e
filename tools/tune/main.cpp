// binaural-tune: see, check and hear a coefficient file. This file is the command line; each command has a
// source file of its own.
#include <exception>
#include <iostream>
#include <map>

#include <CLI/CLI.hpp>
#include <android/log.h>

#include "bcap.h"

#include "tools/common/console.h"
#include "tools/common/failure.h"
#include "tools/tune/commands.h"
#include "tools/tune/exit_codes.h"

namespace {

using namespace tune;

constexpr char kExitCodes[] = R"(Exit codes:
  0  done; lint: nothing but notes; diff: no difference
  1  lint: warnings; diff: differences
  2  wrong command line
  3  the coefficient file has errors: the module does not use it
  4  a file cannot be read or written)";

void AddSituation(CLI::App* command, SituationOptions* situation, bool headset_required) {
  auto* headset =
      command->add_option("--headset", situation->headset, "Bluetooth name of the headset");
  if (headset_required) {
    headset->required();
  }
  command->add_option("--scene", situation->scene, "normal (rear camera) or selfie (front camera)")
      ->check(CLI::IsMember({"normal", "selfie"}))
      ->capture_default_str();
  command->add_flag("--mirror", situation->mirror, "the selfie picture is mirrored");
}

std::string HasPictureName(const std::string& path) {
  const std::string end = path.size() < 4 ? "" : path.substr(path.size() - 4);
  return end == ".svg" || end == ".png" ? "" : "the name must end in .svg or .png";
}

int Run(int argc, char** argv) {
  CLI::App app{"See, check and hear a coefficient file of the binaural recording.",
               "binaural-tune"};
  app.require_subcommand(0, 1);  // none is refused below, once an unknown one has been named
  app.set_version_flag("--version",
                       std::string("binaural-tune " BINAURAL_VERSION ", capture library ") +
                           bcap_get_version()->change);
  app.footer(kExitCodes);
  int result = kClean;

  LintOptions lint;
  auto* lint_command = app.add_subcommand("lint", "find everything that is wrong or odd in a file");
  lint_command->add_option("FILE", lint.files, "coefficient files")->required();
  const std::map<std::string, LintFormat> formats = {
      {"text", LintFormat::kText}, {"json", LintFormat::kJson}, {"sarif", LintFormat::kSarif}};
  lint_command->add_option("--format", lint.format, "text, json or sarif")
      ->transform(CLI::CheckedTransformer(formats).description(""))
      ->type_name("FORMAT");
  lint_command->add_flag("--strict", lint.strict, "warnings count as errors");
  lint_command->footer("Example:\n  binaural-tune lint --strict binaural_record_algo_coeffs.xml");
  lint_command->callback([&] { result = RunLint(lint); });

  ResolveOptions resolve;
  auto* resolve_command = app.add_subcommand("resolve", "the tuning that a headset gets, and why");
  resolve_command->add_option("FILE", resolve.file, "coefficient file")->required();
  AddSituation(resolve_command, &resolve.situation, false);
  resolve_command->add_option("--mode", resolve.situation.mode, "algorithm mode")
      ->check(CLI::Range(0, 3))
      ->capture_default_str();
  resolve_command->add_flag("--list", resolve.list, "every headset and scene at once");
  resolve_command->footer("Example:\n  binaural-tune resolve coeffs.xml --headset \"Alder Buds\" "
                          "--scene selfie --mirror");
  resolve_command->callback([&] {
    if (!resolve.list && !resolve.situation.headset) {
      throw CLI::ValidationError("resolve", "give --headset NAME, or --list");
    }
    result = RunResolve(resolve);
  });

  std::string shown;
  auto* show_command = app.add_subcommand("show", "everything in a file as tables");
  show_command->add_option("FILE", shown, "coefficient file")->required();
  show_command->footer("Example:\n  binaural-tune show coeffs.xml | less");
  show_command->callback([&] { result = RunShow(shown); });

  std::string old_file;
  std::string new_file;
  auto* diff_command =
      app.add_subcommand("diff", "what changes for each headset and scene between two files");
  diff_command->add_option("OLD", old_file, "coefficient file")->required();
  diff_command->add_option("NEW", new_file, "coefficient file")->required();
  diff_command->footer("Example:\n  binaural-tune diff released.xml edited.xml");
  diff_command->callback([&] { result = RunDiff(old_file, new_file); });

  PlotOptions plot;
  auto* plot_command =
      app.add_subcommand("plot", "draw band gains, energies and the measured response");
  plot_command->add_option("FILE", plot.file, "coefficient file")->required();
  AddSituation(plot_command, &plot.situation, false);
  plot_command->add_option("--against", plot.against,
                           "another file to compare with, or \"default\" for the built-in values");
  plot_command->add_option("--rate", plot.sample_rate_hz, "sample rate in Hz")
      ->check(CLI::IsMember({48000, 44100}))
      ->capture_default_str();
  plot_command->add_option("-o,--output", plot.output, "picture to write, .svg or .png")
      ->required()
      ->check(CLI::Validator(HasPictureName, ".svg or .png"));
  plot_command->footer("Without --headset every headset of the file is drawn, without --scene "
                       "every scene of the headset.\n"
                       "Example:\n  binaural-tune plot coeffs.xml --headset \"Alder Buds\" "
                       "--against default -o alder.svg");
  plot_command->callback([&] {
    plot.scene_given = plot_command->count("--scene") + plot_command->count("--mirror") > 0;
    result = RunPlot(plot);
  });

  ProcessOptions process;
  auto* process_command =
      app.add_subcommand("process", "run a recording through the library with a tuning");
  process_command->add_option("IN", process.input, "recording, two channels at 48000 or 44100 Hz")
      ->required();
  process_command->add_option("OUT", process.output, "WAV file to write")->required();
  process_command->add_option("FILE", process.file, "coefficient file")->required();
  AddSituation(process_command, &process.situation, true);
  process_command->add_option("--mode", process.situation.mode, "algorithm mode")
      ->check(CLI::Range(0, 3))
      ->capture_default_str();
  process_command->add_flag("--match-loudness", process.match_loudness,
                            "give the output the input's loudness");
  process_command->add_option("--report", process.report, "HTML page to write");
  process_command->add_flag("--force", process.force, "overwrite the output and the report");
  process_command->footer(
      "Example:\n  binaural-tune process in.wav out.wav coeffs.xml --headset \"Alder "
      "Buds\" --scene selfie --report report.html");
  process_command->callback([&] { result = RunProcess(process); });

  InitOptions init;
  auto* init_command =
      app.add_subcommand("init", "write a file with the built-in values to start from");
  init_command->add_option("--headset", init.headsets,
                           "Bluetooth name of a headset; may be repeated");
  init_command->add_option("-o,--output", init.output, "file to write instead of standard output");
  init_command->add_flag("--force", init.force, "overwrite the output");
  init_command->footer("Example:\n  binaural-tune init --headset \"Alder Buds\" -o coeffs.xml");
  init_command->callback([&] { result = RunInit(init); });

  try {
    app.parse(argc, argv);
    if (app.get_subcommands().empty()) {
      throw CLI::RequiredError("A subcommand");
    }
  } catch (const CLI::ParseError& error) {
    return app.exit(error, std::cout, std::cerr) == 0 ? kClean : kUsage;
  }
  std::cout.flush();
  if (!std::cout) {
    throw tools::Failure(kIo, "standard output cannot be written");
  }
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  // The module logs while it reads a file; its lines are composed as on a device and end here.
  __android_log_set_logger([](const __android_logger_data*, const char*) {});
  try {
    return Run(argc, argv);
  } catch (const tools::Failure& failure) {
    tools::TheConsole().Line(std::string("binaural-tune: ") + failure.what());
    if (!failure.try_next().empty()) {
      tools::TheConsole().Line("  " + failure.try_next());
    }
    return failure.exit_code();
  } catch (const std::exception& error) {
    tools::TheConsole().Line(std::string("binaural-tune: ") + error.what());
    return tune::kIo;
  }
}
