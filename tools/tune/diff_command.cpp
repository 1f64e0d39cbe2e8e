// Compares what two files mean: for each headset and scene, what the module would send to the library and
// what the library would hold. How the files are written does not matter.
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <map>

#include "tools/tune/commands.h"
#include "tools/tune/exit_codes.h"
#include "tools/tune/runtime.h"
#include "tools/tune/situation.h"
#include "tools/tune/table.h"
#include "tools/tune/words.h"

namespace tune {
namespace {

constexpr size_t kMostBandsListed = 6;

struct SceneTuning {
  bool built_in;
  AlgoModeParams params;
  bcap::Parameters stored;
};

SceneTuning TuningOf(const CoefficientFile& file, const std::string& headset, size_t scene) {
  const TunedRuntime runtime(file.effective(), RequestForSceneIndex(headset, scene));
  return {runtime.choice().step != TuningStep::kMatched, *runtime.choice().params,
          runtime.Stored()};
}

using Lines = std::vector<std::vector<std::string>>;

void CompareParams(const SceneTuning& before, const SceneTuning& after, Lines* lines) {
  for (size_t i = 0; i < std::size(kAlgoParamItems); ++i) {
    const AlgoParamItem& item = kAlgoParamItems[i];
    const int32_t old_value = before.params.*item.field;
    const int32_t new_value = after.params.*item.field;
    // A headset's own tuning against the built-in one: the latter has no unused parameters.
    const bool incomparable = before.built_in != after.built_in && i >= kAlgoAppliedParams;
    if (old_value == new_value || incomparable) {
      continue;
    }
    std::string remark = "not used";
    if (i < kAlgoAppliedParams) {
      const AppliedParam& applied = kAppliedParams[i];
      const int32_t old_stored = before.stored.*applied.stored;
      const int32_t new_stored = after.stored.*applied.stored;
      remark = old_stored == new_stored
                   ? "the same after clamping"
                   : InUnit(applied.unit, old_stored) + " -> " + InUnit(applied.unit, new_stored);
    }
    lines->push_back(
        {item.name, std::to_string(old_value) + " -> " + std::to_string(new_value), remark});
  }
  for (const AlgoListItem& item : kAlgoListItems) {
    const bool same =
        before.params.*item.count == after.params.*item.count &&
        std::equal(std::begin(before.params.*item.values), std::end(before.params.*item.values),
                   std::begin(after.params.*item.values));
    if (!same && before.built_in == after.built_in) {
      lines->push_back({item.name, "differs", "not used"});
    }
  }
}

void CompareBands(const char* title, const bcap::BandTable& before, const bcap::BandTable& after,
                  Lines* lines) {
  std::vector<size_t> changed;
  for (size_t band = 0; band < before.values.size(); ++band) {
    if (before.values[band] != after.values[band]) {
      changed.push_back(band);
    }
  }
  if (changed.empty()) {
    return;
  }
  const auto change = [&](size_t band) { return after.values[band] - before.values[band]; };
  if (changed.size() > kMostBandsListed) {
    const size_t most = *std::max_element(changed.begin(), changed.end(), [&](size_t a, size_t b) {
      return std::abs(change(a)) < std::abs(change(b));
    });
    lines->push_back(
        {title, Count(changed.size(), "band"),
         "most in band " + std::to_string(most + 1) + ": " + SixteenthDb(change(most))});
    return;
  }
  for (const size_t band : changed) {
    lines->push_back(
        {std::string(title) + ", band " + std::to_string(band + 1),
         std::to_string(before.values[band]) + " -> " + std::to_string(after.values[band]),
         SixteenthDb(change(band))});
  }
}

Lines Compare(const SceneTuning& before, const SceneTuning& after) {
  Lines lines;
  if (before.built_in != after.built_in) {
    lines.push_back({"tuning", before.built_in ? "built-in -> file" : "file -> built-in", ""});
  }
  CompareParams(before, after, &lines);
  CompareBands("band gains", before.stored.peq_band_gain, after.stored.peq_band_gain, &lines);
  CompareBands("band energies", before.stored.nfm_band_energy, after.stored.nfm_band_energy,
               &lines);
  return lines;
}

// Scenes with the same differences are printed together.
bool PrintHeadset(const std::string& name, const std::vector<Lines>& scenes) {
  std::map<size_t, std::string> heads;  // first scene with these differences -> their names
  for (size_t scene = 0; scene < scenes.size(); ++scene) {
    const size_t first = static_cast<size_t>(
        std::find(scenes.begin(), scenes.end(), scenes[scene]) - scenes.begin());
    if (!scenes[scene].empty()) {
      heads[first] += (heads[first].empty() ? "" : ", ") + std::string(SceneName(scene));
    }
  }
  if (heads.empty()) {
    return false;
  }
  std::cout << "headset " << Quoted(name) << "\n";
  for (const auto& [first, names] : heads) {
    std::cout << "  " << names << "\n";
    Table table("lll");
    for (const auto& line : scenes[first]) {
      table.Row(line);
    }
    table.Print(std::cout, "    ");
  }
  return true;
}

}  // namespace

int RunDiff(const std::string& old_path, const std::string& new_path) {
  const auto old_file = LoadForUse(old_path);
  const auto new_file = LoadForUse(new_path);
  std::vector<std::string> names = HeadsetNames(*old_file);
  for (const std::string& name : HeadsetNames(*new_file)) {
    if (std::find(names.begin(), names.end(), name) == names.end()) {
      names.push_back(name);
    }
  }
  bool any = false;
  for (const std::string& name : names) {
    std::vector<Lines> scenes;
    for (size_t scene = 0; scene < kScenes; ++scene) {
      scenes.push_back(Compare(TuningOf(*old_file, name, scene), TuningOf(*new_file, name, scene)));
    }
    any = PrintHeadset(name, scenes) || any;
  }
  if (!old_file->Accepted() || !new_file->Accepted()) {
    return kFileErrors;
  }
  return any ? kFindings : kClean;
}

}  // namespace tune
