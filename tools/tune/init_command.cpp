// A coefficient file to start from: the built-in values, with every parameter explained. Ranges come from
// the library, values from the module's choice for a headset that no file knows.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "tools/common/failure.h"
#include "tools/tune/commands.h"
#include "tools/tune/exit_codes.h"
#include "tools/tune/runtime.h"
#include "tools/tune/words.h"

namespace tune {
namespace {

constexpr const char* kModules[kScenes] = {"normal", "selfie", "selfie_mirror"};
constexpr const char* kProfiles[kScenes] = {"normal", "selfie", "selfie mirror"};
constexpr const char* kSceneComments[kScenes] = {
    "The scene behind the camera.", "The person in front of the camera.",
    "The same for the mirrored picture: left and right change places."};

constexpr char kHead[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<!--
  Tuning of the binaural recording. As written here, everything sounds like the built-in values.
  Check the file before it goes to a device:  binaural-tune lint FILE
  One error anywhere turns the whole file off. The module reads it when its device is opened.

  module     a named set of parameters; mode 0 is the recording mode, the only one that is applied.
  btheadset  one headset model; the name is compared, whole and by upper and lower case, with the
             Bluetooth name of the connected headset.
  profile    the position is the scene: normal, selfie, selfie mirrored. The name is only logged.

)";

constexpr char kUnits[] = R"(
  Boosts, band gains and band energies are in 1/16 dB, limiter peaks in 1/256 of full scale. Band lists have
  73 values for 48 kHz, from the lowest band to the highest.
-->
)";

void CheckName(const std::string& name) {
  const bool has_controls = name.find_first_of("\r\n\t") != std::string::npos;
  if (name.empty() || name.size() >= kBtHeadsetNameBytes || has_controls ||
      name.find_first_of(";=") != std::string::npos || name.front() == ' ' || name.back() == ' ' ||
      FirstInvalidUtf8(name) != std::string::npos) {
    throw tools::Failure(
        kUsage, "no headset can be named " + Quoted(name),
        "give 1 to 127 bytes of UTF-8 without \";\" and \"=\", as the headset itself "
        "tells its Bluetooth name");
  }
}

std::string List(const int32_t* values, uint32_t count) {
  std::string text;
  for (uint32_t i = 0; i < count; ++i) {
    text += (i == 0 ? "" : ",") + std::to_string(values[i]);
  }
  return text;
}

void WriteParameterTable(std::ostream& out) {
  ClampProbe probe;
  for (size_t i = 0; i < kAlgoAppliedParams; ++i) {
    const auto range = probe.ParamRange(i);
    const bool is_switch = kAppliedParams[i].unit == Unit::kSwitch;
    out << "    " << PadRight(kAlgoParamItems[i].name, 23)
        << PadRight(is_switch ? "0, 1"
                              : std::to_string(range.low) + ".." + std::to_string(range.high),
                    11)
        << kAppliedParams[i].meaning << "\n";
  }
}

void Write(std::ostream& out, const std::vector<std::string>& headsets) {
  out << kHead;
  WriteParameterTable(out);
  out << kUnits << "<tuning " << kAlgoVersionAttribute << "=\"1.1.0\">\n";
  TuningChoice choices[kScenes];
  for (size_t scene = 0; scene < kScenes; ++scene) {
    choices[scene] = ChooseTuning(AlgoConfigCoeff{}, "", static_cast<int>(scene), 0);
    out << "\n  <!-- " << kSceneComments[scene] << " -->\n  <module name=\"" << kModules[scene]
        << "\">\n    <mode value=\"0\">\n";
    for (size_t i = 0; i < kAlgoAppliedParams; ++i) {
      out << "      <param name=\"" << kAlgoParamItems[i].name << "\" value=\""
          << choices[scene].params->*kAlgoParamItems[i].field << "\"/>\n";
    }
    out << "    </mode>\n  </module>\n";
  }
  for (const std::string& headset : headsets) {
    out << "\n  <btheadset name=\"" << EscapedForXml(headset)
        << "\">\n    <nfm_band_energy_tuning value=\""
        << List(choices[0].nfmData, choices[0].nfmNum) << "\"/>\n";
    for (size_t scene = 0; scene < kScenes; ++scene) {
      out << "    <profile name=\"" << kProfiles[scene] << "\">\n      <include module_name=\""
          << kModules[scene] << "\"/>\n      <peq_band_gain_tuning mode=\"0\" value=\""
          << List(choices[scene].peqData, choices[scene].peqNum) << "\"/>\n    </profile>\n";
    }
    out << "  </btheadset>\n";
  }
  out << "</tuning>\n";
}

}  // namespace

int RunInit(const InitOptions& options) {
  for (const std::string& name : options.headsets) {
    CheckName(name);
  }
  std::ostringstream text;
  Write(text, options.headsets.empty() ? std::vector<std::string>{"My Headset"} : options.headsets);
  if (options.output.empty()) {
    std::cout << text.str();
    return kClean;
  }
  if (!options.force && std::filesystem::exists(options.output)) {
    throw tools::Failure(kIo, options.output + " exists already",
                         "choose another name, or --force");
  }
  std::ofstream file(options.output, std::ios::binary);
  file << text.str();
  file.close();
  if (!file) {
    throw tools::Failure(kIo, options.output + " cannot be written");
  }
  return kClean;
}

}  // namespace tune
