// `resolve`: the tuning of one headset and scene with its reason, or the list of all.
#include <algorithm>
#include <cmath>
#include <iostream>

#include "tools/common/failure.h"
#include "tools/tune/commands.h"
#include "tools/tune/exit_codes.h"
#include "tools/tune/runtime.h"
#include "tools/tune/situation.h"
#include "tools/tune/table.h"
#include "tools/tune/words.h"

namespace tune {
namespace {

constexpr uint32_t kRateHz = 48000;
constexpr size_t kBandsPerLine = 10;

void PrintParams(const TuningChoice& choice, const bcap::Parameters& stored, bool applied) {
  Table table("lrrll");
  table.Row({"parameter", "file", "applied", "", ""});
  for (size_t i = 0; i < kAlgoAppliedParams; ++i) {
    const AlgoParamItem& item = kAlgoParamItems[i];
    const int32_t wanted = choice.params->*item.field;
    const int32_t value = stored.*kAppliedParams[i].stored;
    const std::string unit = InUnit(kAppliedParams[i].unit, value);
    const bool clamped = applied && value != wanted;
    table.Row({item.name, applied ? std::to_string(wanted) : "-", std::to_string(value), unit,
               clamped ? "<- clamped" : ""});
  }
  table.Print(std::cout, "  ");
}

void PrintBands(const char* title, const int32_t* wanted, uint32_t count,
                const bcap::BandTable& stored, bool applied) {
  const size_t bands = bcap::inspect_band_count(kRateHz);
  std::cout << "\n  " << title << ", in 1/16 dB, from the lowest band at 48 kHz";
  if (applied) {
    std::cout << "; the file has " << Count(count, "value");
  }
  std::cout << "\n";
  Table table("r" + std::string(kBandsPerLine, 'r'));
  bool any_clamped = false;
  for (size_t first = 0; first < bands; first += kBandsPerLine) {
    const auto hz = std::lround(bcap::inspect_band(kRateHz, first).centre_hz);
    std::vector<std::string> row = {std::to_string(hz) + " Hz"};
    for (size_t band = first; band < std::min(first + kBandsPerLine, bands); ++band) {
      const bool clamped = applied && band < count && stored.values[band] != wanted[band];
      any_clamped = any_clamped || clamped;
      row.push_back(std::to_string(stored.values[band]) + (clamped ? "*" : ""));
    }
    table.Row(row);
  }
  table.Print(std::cout, "  ");
  if (any_clamped) {
    std::cout << "  * clamped by the library\n";
  }
}

void PrintList(const CoefficientFile& file) {
  Table table("llll");
  table.Row({"headset", "scene", "profile", "module"});
  for (const std::string& name : HeadsetNames(file)) {
    for (size_t scene = 0; scene < kScenes; ++scene) {
      const TuningChoice choice =
          ChooseTuning(file.effective(), name.c_str(), static_cast<int>(scene), 0);
      const bool matched = choice.step == TuningStep::kMatched;
      table.Row({scene == 0 ? Quoted(name) : "", SceneName(scene),
                 matched ? std::to_string(scene + 1) + " " + Quoted(choice.profile->profileName)
                         : "built-in values",
                 matched ? Quoted(choice.module->moduleName) : ""});
    }
  }
  table.Row({"any other", "all", "built-in values", ""});
  table.Print(std::cout, "");
}

}  // namespace

int RunResolve(const ResolveOptions& options) {
  const auto file = LoadForUse(options.file);
  if (options.list) {
    PrintList(*file);
    return ExitCodeOf(*file);
  }
  const TuningRequest request = RequestOf(options.situation);
  const TunedRuntime runtime(file->effective(), request);
  const TuningChoice& choice = runtime.choice();
  const bcap::Parameters stored = runtime.Stored();
  const bool applied = request.mode == 0;
  std::cout << ExplainChoice(*file, request, choice) << "\n\n";
  PrintParams(choice, stored, applied);
  PrintBands("band gains", choice.peqData, choice.peqNum, stored.peq_band_gain, applied);
  PrintBands("band energies", choice.nfmData, choice.nfmNum, stored.nfm_band_energy, applied);
  return ExitCodeOf(*file);
}

}  // namespace tune
