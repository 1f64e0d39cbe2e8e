// What a device would choose, in words; see the header.
#include "tools/tune/situation.h"

#include <algorithm>
#include <unordered_set>

#include "tools/common/console.h"
#include "tools/common/failure.h"
#include "tools/tune/exit_codes.h"
#include "tools/tune/words.h"

namespace tune {
namespace {

std::string AtLine(const tinyxml2::XMLElement* element) {
  return element == nullptr ? "" : " (line " + std::to_string(element->GetLineNum()) + ")";
}

const tinyxml2::XMLElement* ProfileElement(const CoefficientFile& file, const TuningChoice& choice,
                                           int scene_index) {
  const auto* headset = file.HeadsetElement(choice.headset);
  const auto* profile = headset == nullptr ? nullptr : headset->FirstChildElement("profile");
  for (; scene_index > 0 && profile != nullptr; --scene_index) {
    profile = profile->NextSiblingElement("profile");
  }
  return profile;
}

std::string WhyBuiltIn(const CoefficientFile& file, const TuningRequest& request,
                       const TuningChoice& choice) {
  const std::string profile = "profile " + std::to_string(request.scene_index() + 1);
  switch (choice.step) {
    case TuningStep::kMatched:
      break;
    case TuningStep::kNoStore:
      if (!file.faults().empty()) {
        return "the module refuses the whole file for " + Count(file.faults().size(), "error") +
               " in it (see binaural-tune lint)";
      }
      return "the file's version selects no algorithm";
    case TuningStep::kNoHeadset:
      return "the file has no headset " + Quoted(request.headset) +
             DidYouMean(request.headset, HeadsetNames(file));
    case TuningStep::kNoProfile:
      return "the headset" + AtLine(file.HeadsetElement(choice.headset)) + " has no " + profile;
    case TuningStep::kModeNotInModule:
      return "the module of " + profile +
             AtLine(ProfileElement(file, choice, request.scene_index())) + " has no mode " +
             std::to_string(request.mode);
  }
  return "";
}

}  // namespace

std::unique_ptr<CoefficientFile> LoadForUse(const std::string& path) {
  auto file = std::make_unique<CoefficientFile>(path);
  if (!file->refusal().empty()) {
    throw tools::Failure(kFileErrors, path + ": " + file->refusal());
  }
  if (file->generation() == 2 && !file->document().Error()) {
    throw tools::Failure(
        kFileErrors, path + " is for the 2.0 library (version \"1.4.0\"), which decides itself");
  }
  if (!file->Accepted()) {
    tools::TheConsole().Line(path + ": the module does not use this file; find out why with: " +
                             "binaural-tune lint " + path);
  }
  return file;
}

int ExitCodeOf(const CoefficientFile& file) {
  return file.Accepted() ? kClean : kFileErrors;
}

TuningRequest RequestOf(const SituationOptions& options) {
  TuningRequest request;
  request.headset = options.headset.value_or("");
  request.scene = options.scene == "selfie" ? SCENE_SELFIE : SCENE_NORMAL;
  request.mirror = options.mirror;
  request.mode = options.mode;
  return request;
}

std::string ExplainChoice(const CoefficientFile& file, const TuningRequest& request,
                          const TuningChoice& choice) {
  std::string text = Quoted(request.headset) + ", scene " +
                     SceneName(static_cast<size_t>(request.scene_index())) + ", mode " +
                     std::to_string(request.mode) + ": ";
  if (choice.step == TuningStep::kMatched) {
    const auto module = static_cast<size_t>(choice.module - file.effective().moduleConfig);
    text += "profile " + std::to_string(request.scene_index() + 1) + " " +
            Quoted(choice.profile->profileName) +
            AtLine(ProfileElement(file, choice, request.scene_index())) + " with the module " +
            Quoted(choice.module->moduleName) + AtLine(file.ModuleElement(module)) + " is used";
  } else {
    text += "the built-in values are used, because " + WhyBuiltIn(file, request, choice);
  }
  if (request.mode != 0) {
    text += "; but nothing of it is applied, because only mode 0 is: the library keeps the values "
            "that it starts this mode with";
  }
  return text.back() == '?' ? text : text + ".";
}

std::vector<std::string> HeadsetNames(const CoefficientFile& file) {
  const AlgoConfigCoeff& store = file.effective();
  std::vector<std::string> names;
  std::unordered_set<std::string> seen;
  for (uint32_t i = 0; store.btConfig != nullptr && i < store.btHeadsetNum; ++i) {
    if (seen.insert(store.btConfig[i].btHeadsetName).second) {
      names.emplace_back(store.btConfig[i].btHeadsetName);
    }
  }
  return names;
}

}  // namespace tune
