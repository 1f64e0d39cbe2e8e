// The whole store as tables: modules side by side, then each headset's profiles and band lists.
#include <algorithm>
#include <cmath>
#include <iostream>

#include "tools/tune/commands.h"
#include "tools/tune/runtime.h"
#include "tools/tune/situation.h"
#include "tools/tune/table.h"
#include "tools/tune/words.h"

namespace tune {
namespace {

constexpr size_t kModesPerTable = 5;

struct ModeColumn {
  const ModuleConfig* module;
  size_t mode;
};

std::string ListText(const int32_t* values, int32_t count) {
  std::string text;
  for (int32_t i = 0; i < count; ++i) {
    text += (i == 0 ? "" : ",") + std::to_string(values[i]);
  }
  return text;
}

void PrintModes(const std::vector<ModeColumn>& columns) {
  Table table("l" + std::string(columns.size(), 'r'));
  std::vector<std::string> names = {"module"};
  std::vector<std::string> modes = {"mode"};
  for (const ModeColumn& column : columns) {
    names.push_back(Quoted(column.module->moduleName));
    modes.push_back(std::to_string(column.mode));
  }
  table.Row(names);
  table.Row(modes);
  const auto add_row = [&](const char* name, const auto& text_of) {
    std::vector<std::string> row = {name};
    for (const ModeColumn& column : columns) {
      row.push_back(text_of(column.module->modes[column.mode]));
    }
    table.Row(row);
  };
  for (size_t i = 0; i < kAlgoAppliedParams; ++i) {
    add_row(kAlgoParamItems[i].name, [i](const AlgoModeParams& params) {
      const int32_t value = params.*kAlgoParamItems[i].field;
      const Unit unit = kAppliedParams[i].unit;
      return unit == Unit::kSixteenthDb ? std::to_string(value) + " (" + InUnit(unit, value) + ")"
             : unit == Unit::kSwitch    ? std::to_string(value) + " (" + InUnit(unit, value) + ")"
                                        : std::to_string(value);
    });
  }
  table.Row({"(not used:)"});
  for (size_t i = kAlgoAppliedParams; i < std::size(kAlgoParamItems); ++i) {
    add_row(kAlgoParamItems[i].name, [i](const AlgoModeParams& params) {
      return std::to_string(params.*kAlgoParamItems[i].field);
    });
  }
  for (const AlgoListItem& item : kAlgoListItems) {
    add_row(item.name, [&item](const AlgoModeParams& params) {
      return ListText(params.*item.values, params.*item.count);
    });
  }
  table.Print(std::cout, "  ");
  std::cout << "\n";
}

void PrintModules(const AlgoConfigCoeff& store) {
  std::vector<ModeColumn> columns;
  for (uint32_t i = 0; i < store.moduleNum; ++i) {
    for (size_t mode = 0; mode < kAlgoModes; ++mode) {
      if ((store.moduleConfig[i].modeConfigFlag >> mode & 1) != 0) {
        columns.push_back({&store.moduleConfig[i], mode});
      }
    }
  }
  for (size_t first = 0; first < columns.size(); first += kModesPerTable) {
    const auto begin = columns.begin() + static_cast<std::ptrdiff_t>(first);
    const size_t count = std::min(kModesPerTable, columns.size() - first);
    PrintModes({begin, begin + static_cast<std::ptrdiff_t>(count)});
  }
}

void PrintHeadset(const BtHeadsetConfig& headset, size_t index) {
  std::cout << "headset " << index + 1 << " " << Quoted(headset.btHeadsetName) << "\n";
  struct Column {
    std::string head;
    const int32_t* values;
    uint32_t count;
  };
  std::vector<Column> columns = {{"energy", headset.nfmBandEnergy, headset.nfmNum}};
  for (uint32_t p = 0; p < std::min<size_t>(headset.profileNum, kAlgoProfiles); ++p) {
    const ProfileConfig& profile = headset.profiles[p];
    std::cout << "  profile " << p + 1 << " " << Quoted(profile.profileName) << ", for scene "
              << (p < kScenes ? SceneName(p) : "none (not used)") << ", module "
              << (profile.module == nullptr ? "none" : Quoted(profile.module->moduleName)) << "\n";
    for (size_t mode = 0; mode < kAlgoModes; ++mode) {
      if (profile.peqBandGainNum[mode] > 0) {
        columns.push_back(
            {"gain " + std::to_string(p + 1) + (mode == 0 ? "" : " mode " + std::to_string(mode)),
             profile.peqBandGain[mode], profile.peqBandGainNum[mode]});
      }
    }
  }
  Table table("rr" + std::string(columns.size(), 'r'));
  std::vector<std::string> head = {"band", "centre"};
  uint32_t rows = 0;
  for (const Column& column : columns) {
    head.push_back(column.head);
    rows = std::max(rows, column.count);
  }
  table.Row(head);
  // Lists for 44.1 kHz have more values than there are bands at 48 kHz.
  const uint32_t rate_hz = rows > bcap::inspect_band_count(48000) ? 44100 : 48000;
  for (uint32_t band = 0; band < rows; ++band) {
    const bool exists = band < bcap::inspect_band_count(rate_hz);
    const auto hz = exists ? std::lround(bcap::inspect_band(rate_hz, band).centre_hz) : 0;
    std::vector<std::string> row = {std::to_string(band + 1),
                                    exists ? std::to_string(hz) + " Hz" : "none"};
    for (const Column& column : columns) {
      row.push_back(band < column.count ? std::to_string(column.values[band]) : "-");
    }
    table.Row(row);
  }
  table.Print(std::cout, "  ");
  std::cout << "\n";
}

}  // namespace

int RunShow(const std::string& path) {
  const auto file = LoadForUse(path);
  const AlgoConfigCoeff& store = file->store();
  std::cout << path << ": " << Count(store.moduleNum, "module") << ", "
            << Count(store.btHeadsetNum, "headset")
            << (file->Accepted() ? "" : " (as far as it can be read)")
            << "; boosts, gains and energies in 1/16 dB\n\n";
  if (store.moduleConfig != nullptr) {
    PrintModules(store);
  }
  for (uint32_t i = 0; store.btConfig != nullptr && i < store.btHeadsetNum; ++i) {
    PrintHeadset(store.btConfig[i], i);
  }
  return ExitCodeOf(*file);
}

}  // namespace tune
