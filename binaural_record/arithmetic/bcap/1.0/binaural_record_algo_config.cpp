// Reads the coefficient file into a store. Runs on the thread that opens the device, or in the tuning
// tool. Each parsing step is one function that bears the step's name, because the log lines begin with
// it. A step returns false when it, or a step below it, has found a fault; with a listener it has then
// still looked at the rest of its element.
#define LOG_TAG "BinauralRecordParseBcapAlgoConfig"

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_config.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <ostream>
#include <string>

#include <sys/stat.h>
#include <tinyxml2.h>

#include "binaural_record/utils/locks.h"
#include "binaural_record/utils/log.h"

using tinyxml2::XMLElement;
using vendor::corva::binaural_record::utils::gRuntimeMutex;
using vendor::corva::binaural_record::utils::RuntimeLock;

AlgoConfigCoeff coeffBuf;

namespace {

class Reading {
 public:
  Reading(AlgoConfigCoeff* into, const CoefficientFaultListener& listener)
      : store(into), listener_(listener) {}

  // Logs a fault and tells the listener. Returns false, so that a check can end in it.
  bool Fail(CoefficientRule rule, const char* step, const XMLElement* element, const char* name,
            const std::string& message) {
    BINAURAL_LOG(ERROR) << step << message;
    wants_more_ = listener_ && listener_({rule, step, message.c_str(), element, name});
    return false;
  }

  // Whether a step that has got this far looks at its next part.
  bool GoesOn(bool ok_so_far) const { return ok_so_far || wants_more_; }

  AlgoConfigCoeff* const store;

 private:
  const CoefficientFaultListener& listener_;
  bool wants_more_ = false;
};

struct FreeBlock {
  void operator()(void* block) const { std::free(block); }
};

struct CloseFile {
  void operator()(FILE* file) const { std::fclose(file); }
};

// The attribute's text, or null after a fault.
const char* RequiredAttribute(Reading& reading, const char* step, const XMLElement& element,
                              const char* attribute, const char* missing_text) {
  const char* text = element.Attribute(attribute);
  if (text == nullptr) {
    reading.Fail(CoefficientRule::kMissingAttribute, step, &element, attribute, missing_text);
  }
  return text;
}

template <size_t N>
bool ReadName(Reading& reading, const char* step, const XMLElement& element, char (&name)[N],
              const char* missing_text, const char* too_long_text) {
  const char* text = RequiredAttribute(reading, step, element, "name", missing_text);
  if (text == nullptr) {
    return false;
  }
  if (std::strlen(text) >= N) {
    return reading.Fail(CoefficientRule::kNameTooLong, step, &element, "name", too_long_text);
  }
  std::memset(name, 0, N);
  std::memcpy(name, text, std::strlen(text));
  return true;
}

// Reads the text of the attribute "value" as a comma list.
bool ReadList(Reading& reading, const char* step, const XMLElement& element, const char* text,
              int32_t* values, size_t capacity, uint32_t* count, const char* error_text) {
  if (parse_and_save_item_coeffs(values, static_cast<int>(capacity), text, count) == 0) {
    return true;
  }
  const auto rule = *text == '\0' ? CoefficientRule::kEmptyList : CoefficientRule::kListTooLong;
  return reading.Fail(rule, step, &element, "value", error_text);
}

uint32_t CountChildren(const XMLElement& parent, const char* name) {
  uint32_t count = 0;
  for (auto* child = parent.FirstChildElement(name); child != nullptr;
       child = child->NextSiblingElement(name)) {
    ++count;
  }
  return count;
}

AlgoModeParams StartParams() {
  AlgoModeParams params{};
  for (const AlgoParamItem& item : kAlgoParamItems) {
    params.*item.field = item.start;
  }
  for (const AlgoListItem& item : kAlgoListItems) {
    std::copy(std::begin(item.start), std::end(item.start), params.*item.values);
    params.*item.count = kAlgoDraValues;
  }
  return params;
}

bool StoreParam(Reading& reading, const char* step, const XMLElement& element, const char* name,
                const char* value, AlgoModeParams* params) {
  for (const AlgoParamItem& item : kAlgoParamItems) {
    if (std::strcmp(name, item.name) == 0) {
      params->*item.field = ReadCoefficientInteger(value);
      return true;
    }
  }
  for (const AlgoListItem& item : kAlgoListItems) {
    if (std::strcmp(name, item.name) == 0) {
      uint32_t count = 0;
      const bool ok = ReadList(reading, step, element, value, params->*item.values, kAlgoDraValues,
                               &count, item.error);
      if (ok) {
        params->*item.count = static_cast<int32_t>(count);
      }
      return ok;
    }
  }
  return reading.Fail(CoefficientRule::kUnknownParameter, step, &element, "name",
                      std::string(" valName = ") + name + " error");
}

// ---- modules ----

bool parse_single_profile_mode_config(Reading& reading, const XMLElement& element,
                                      ModuleConfig* module) {
  const char* text = RequiredAttribute(reading, __func__, element, "value", " Load modeStr fail.");
  bool ok = text != nullptr;
  AlgoModeParams* params = nullptr;
  uint32_t mode = 0;
  if (ok) {
    mode = static_cast<uint32_t>(ReadCoefficientInteger(text));
    BINAURAL_LOG(INFO) << __func__ << " mode config is " << static_cast<int32_t>(mode);
    ok = mode < kAlgoModes || reading.Fail(CoefficientRule::kModeOutOfRange, __func__, &element,
                                           "value", " profileMode config error!");
  }
  // With a listener the parameters of a mode that has no place are checked all the same.
  AlgoModeParams without_place;
  params = ok ? &module->modes[mode] : &without_place;
  *params = StartParams();
  for (auto* param = element.FirstChildElement("param"); param != nullptr && reading.GoesOn(ok);
       param = param->NextSiblingElement("param")) {
    const char* name = param->Attribute("name");
    const char* value = param->Attribute("value");
    if (name == nullptr || value == nullptr) {
      ok = reading.Fail(CoefficientRule::kMissingAttribute, __func__, param,
                        name == nullptr ? "name" : "value", " valName or valValue parse fail.");
      continue;
    }
    BINAURAL_LOG(INFO) << __func__ << " valName = " << name << " valValue = " << value;
    ok = StoreParam(reading, __func__, *param, name, value, params) && ok;
  }
  if (!ok) {
    return false;
  }
  module->modeConfigFlag |= 1u << mode;
  BINAURAL_LOG(INFO) << __func__ << " modeConfigFlag=" << module->modeConfigFlag;
  return true;
}

bool parse_single_module_config(Reading& reading, const XMLElement& element, uint32_t index) {
  ModuleConfig* module = &reading.store->moduleConfig[index];
  bool ok = ReadName(reading, __func__, element, module->moduleName, " Load moduleName fail.",
                     " moduleName len is too long.");
  if (ok) {
    BINAURAL_LOG(INFO) << __func__ << " moduleName=" << module->moduleName;
  }
  uint32_t mode_counter = 0;
  for (auto* mode = element.FirstChildElement("mode"); mode != nullptr && reading.GoesOn(ok);
       mode = mode->NextSiblingElement("mode")) {
    if (parse_single_profile_mode_config(reading, *mode, module)) {
      ++mode_counter;
    } else {
      ok = false;
    }
  }
  // Deliberate: these two lines speak of a headset.
  if (ok) {
    BINAURAL_LOG(INFO) << __func__ << " parse_single_headset_config moduleIndex=" << index
                       << " modeCounter=" << mode_counter;
  } else {
    BINAURAL_LOG(ERROR) << __func__ << " parse_single_headset_config fail. moduleIndex=" << index
                        << " modeCounter=" << mode_counter;
  }
  return ok;
}

bool parse_module_coeff_config(Reading& reading, const XMLElement& tuning) {
  BINAURAL_LOG(INFO) << __func__ << " total moduleNum is " << reading.store->moduleNum;
  const XMLElement* element = tuning.FirstChildElement("module");
  bool ok = true;
  for (uint32_t i = 0; i < reading.store->moduleNum && reading.GoesOn(ok); ++i) {
    if (!parse_single_module_config(reading, *element, i)) {
      BINAURAL_LOG(ERROR) << __func__ << " parse_single_module_config fail.";
      ok = false;
    }
    element = element->NextSiblingElement("module");
  }
  if (!ok) {
    BINAURAL_LOG(ERROR) << __func__ << " parse_module_coeff_config fail.";
  }
  return ok;
}

// ---- headsets ----

bool parse_nfm_band_energy_config(Reading& reading, const XMLElement& headset_element,
                                  BtHeadsetConfig* headset) {
  const XMLElement* element = headset_element.FirstChildElement("nfm_band_energy_tuning");
  if (element == nullptr) {
    return reading.Fail(CoefficientRule::kMissingElement, __func__, &headset_element,
                        "nfm_band_energy_tuning", " get nfm_band_energy_tuning fail.");
  }
  const char* text =
      RequiredAttribute(reading, __func__, *element, "value", " valValue parse fail.");
  if (text == nullptr) {
    return false;
  }
  BINAURAL_LOG(INFO) << __func__ << " valValue = " << text;
  return ReadList(reading, __func__, *element, text, headset->nfmBandEnergy, kAlgoBandValues,
                  &headset->nfmNum, " parse_and_save_item_coeffs error.");
}

bool parse_profile_module_config(Reading& reading, const XMLElement& profile_element,
                                 ProfileConfig* profile) {
  const XMLElement* element = profile_element.FirstChildElement("include");
  if (element == nullptr) {
    return reading.Fail(CoefficientRule::kMissingElement, __func__, &profile_element, "include",
                        " load include fail.");
  }
  const char* name =
      RequiredAttribute(reading, __func__, *element, "module_name", " load moduleName fail.");
  if (name == nullptr) {
    return false;
  }
  for (uint32_t i = 0; i < reading.store->moduleNum; ++i) {
    const ModuleConfig& module = reading.store->moduleConfig[i];
    if (std::strcmp(name, module.moduleName) == 0) {
      profile->moduleConfigFound = 1;
      profile->module = &module;
      BINAURAL_LOG(INFO) << __func__ << " got config moduleName=" << name;
      return true;
    }
  }
  // Deliberate: a failure of the whole file, although the text speaks of a default.
  return reading.Fail(CoefficientRule::kUnknownModule, __func__, element, "module_name",
                      std::string(" do not got module config, should use default, module name ") +
                          name);
}

bool ReadPeqElement(Reading& reading, const char* step, const XMLElement& element,
                    ProfileConfig* profile) {
  const char* mode_text = RequiredAttribute(reading, step, element, "mode", " get modeVal fail.");
  if (mode_text == nullptr) {
    return false;
  }
  BINAURAL_LOG(INFO) << step << " modeVal = " << mode_text;
  const auto mode = static_cast<uint32_t>(ReadCoefficientInteger(mode_text));
  if (mode >= kAlgoModes) {  // a negative value too
    return reading.Fail(CoefficientRule::kModeOutOfRange, step, &element, "mode",
                        " parse modeVal fail.");
  }
  BINAURAL_LOG(INFO) << step << " modeIndex " << mode;
  const char* text = RequiredAttribute(reading, step, element, "value", " get valValue fail.");
  if (text == nullptr) {
    return false;
  }
  BINAURAL_LOG(INFO) << step << " valValue = " << text;
  return ReadList(reading, step, element, text, profile->peqBandGain[mode], kAlgoBandValues,
                  &profile->peqBandGainNum[mode], " parse_and_save_item_coeffs error.");
}

bool parse_peq_band_gain_config(Reading& reading, const XMLElement& profile_element,
                                ProfileConfig* profile) {
  const XMLElement* element = profile_element.FirstChildElement("peq_band_gain_tuning");
  if (element == nullptr) {
    return reading.Fail(CoefficientRule::kMissingElement, __func__, &profile_element,
                        "peq_band_gain_tuning", " load peq_band_gain_tuning fail.");
  }
  bool ok = true;
  for (size_t i = 0; i < kAlgoModes && element != nullptr && reading.GoesOn(ok); ++i) {
    ok = ReadPeqElement(reading, __func__, *element, profile) && ok;
    element = element->NextSiblingElement("peq_band_gain_tuning");
  }
  return ok;
}

bool parse_profile_configs(Reading& reading, const XMLElement& headset_element,
                           BtHeadsetConfig* headset) {
  BINAURAL_LOG(INFO) << __func__ << " btHeadsetNum is " << reading.store->btHeadsetNum;
  const XMLElement* element = headset_element.FirstChildElement("profile");
  bool ok = true;
  uint32_t position = 0;
  for (; position < kAlgoProfiles && element != nullptr && reading.GoesOn(ok); ++position) {
    ProfileConfig* profile = &headset->profiles[position];
    // Deliberate: the first message speaks of a module's name.
    if (ReadName(reading, __func__, *element, profile->profileName, " load moduleName fail ",
                 " profileName len is too long. ")) {
      BINAURAL_LOG(INFO) << __func__ << " profileName=" << profile->profileName;
    } else {
      ok = false;
    }
    if (reading.GoesOn(ok) && !parse_profile_module_config(reading, *element, profile)) {
      BINAURAL_LOG(ERROR) << __func__ << " parse_profile_module_config fail.";
      ok = false;
    }
    if (reading.GoesOn(ok) && !parse_peq_band_gain_config(reading, *element, profile)) {
      BINAURAL_LOG(ERROR) << __func__ << " parse_peq_band_gain_config fail";
      ok = false;
    }
    element = element->NextSiblingElement("profile");
  }
  if (!ok) {
    return false;
  }
  headset->profileNum = position;
  BINAURAL_LOG(INFO) << __func__ << " profileNum=" << position;
  return true;
}

bool parse_single_headset_config(Reading& reading, const XMLElement& element,
                                 BtHeadsetConfig* headset) {
  bool ok = ReadName(reading, __func__, element, headset->btHeadsetName,
                     " Load btHeadsetName fail.", " btHeadsetName len is too long.");
  if (ok) {
    BINAURAL_LOG(INFO) << __func__ << " btHeadsetName=" << headset->btHeadsetName;
  }
  if (reading.GoesOn(ok) && !parse_nfm_band_energy_config(reading, element, headset)) {
    BINAURAL_LOG(ERROR) << __func__ << " parse_nfm_band_energy_config fail.";
    ok = false;
  }
  if (reading.GoesOn(ok) && !parse_profile_configs(reading, element, headset)) {
    BINAURAL_LOG(ERROR) << __func__ << " parse_profile_configs fail.";
    ok = false;
  }
  return ok;
}

bool parse_bt_headset_coeff_config(Reading& reading, const XMLElement& tuning) {
  BINAURAL_LOG(INFO) << __func__ << " coeffBuf->btHeadsetNum is " << reading.store->btHeadsetNum;
  const XMLElement* element = tuning.FirstChildElement("btheadset");
  bool ok = true;
  for (uint32_t h = 0; h < reading.store->btHeadsetNum && reading.GoesOn(ok); ++h) {
    if (!parse_single_headset_config(reading, *element, &reading.store->btConfig[h])) {
      BINAURAL_LOG(ERROR) << __func__ << " parse_single_headset_config fail";
      ok = false;
    }
    element = element->NextSiblingElement("btheadset");
  }
  if (!ok) {
    BINAURAL_LOG(ERROR) << __func__ << " parse_bt_headset_coeff_config fail.";
  }
  return ok;
}

// ---- the whole file ----

void LogHeadsets(const char* step, const AlgoConfigCoeff& store) {
  constexpr const char* kScenes[] = {"SCENE_NORMAL", "SCENE_SELFIE", "SCENE_SELFIE_MIRROR"};
  // Deliberate: "enhansement".
  constexpr const char* kModes[kAlgoModes] = {"onepass", "pre_processing", "record analysis",
                                              "enhansement"};
  for (uint32_t h = 0; h < store.btHeadsetNum; ++h) {
    const BtHeadsetConfig& headset = store.btConfig[h];
    BINAURAL_LOG(INFO) << step << " index " << h << " nfmNum " << headset.nfmNum << " profileNum "
                       << headset.profileNum;
    for (uint32_t p = 0; p < std::size(kScenes) && p < headset.profileNum; ++p) {
      for (size_t m = 0; m < kAlgoModes; ++m) {
        BINAURAL_LOG(INFO) << step << " enter, " << kScenes[p] << " " << kModes[m] << ": "
                           << headset.profiles[p].module->modes[m];
      }
    }
  }
}

// Zero-filled; null only when memory is short, also for a count of 0.
template <typename Record>
Record* AllocateRecords(uint32_t count) {
  return static_cast<Record*>(std::calloc(std::max(count, 1u), sizeof(Record)));
}

bool ReadFile(Reading& reading, const char* step, const char* path,
              tinyxml2::XMLDocument* document) {
  AlgoConfigCoeff* store = reading.store;
  if (IsSpecialFile(path)) {
    return reading.Fail(CoefficientRule::kUnreadable, step, nullptr, nullptr,
                        " Load BINAURAL_ALGO_COEFF_CONFIG_FILE fail ErrorID " +
                            std::to_string(tinyxml2::XML_ERROR_FILE_READ_ERROR) +
                            "ErrorStr not a regular file");
  }
  if (!LoadCoefficientDocument(path, document)) {
    return reading.Fail(CoefficientRule::kUnreadable, step, nullptr, nullptr,
                        " Load BINAURAL_ALGO_COEFF_CONFIG_FILE fail ErrorID " +
                            std::to_string(document->ErrorID()) + "ErrorStr " +
                            document->ErrorStr());
  }
  BINAURAL_LOG(INFO) << step << " Load BINAURAL_ALGO_COEFF_CONFIG_FILE success.";
  bool ok = true;
  if (document->FirstChild() == nullptr || document->FirstChild()->ToDeclaration() == nullptr) {
    ok = reading.Fail(CoefficientRule::kNoDeclaration, step, nullptr, nullptr,
                      " Load BINAURAL_ALGO_COEFF_CONFIG_FILE declaration NULL.");
  }
  if (!reading.GoesOn(ok)) {
    return false;
  }
  const XMLElement* tuning = document->FirstChildElement("tuning");
  if (tuning == nullptr) {
    return reading.Fail(CoefficientRule::kMissingElement, step, nullptr, "tuning",
                        " Load BinauralCoeff fail.");
  }
  store->moduleNum = CountChildren(*tuning, "module");
  store->btHeadsetNum = CountChildren(*tuning, "btheadset");
  const std::string counts = " moduleNum=" + std::to_string(store->moduleNum) +
                             " btHeadsetNum=" + std::to_string(store->btHeadsetNum);
  if (store->moduleNum == 0 || store->btHeadsetNum == 0) {
    ok = reading.Fail(CoefficientRule::kMissingElement, step, tuning,
                      store->moduleNum == 0 ? "module" : "btheadset", counts + " config error.");
    if (!reading.GoesOn(ok)) {
      return false;
    }
  }
  BINAURAL_LOG(INFO) << step << counts;

  store->btConfig = AllocateRecords<BtHeadsetConfig>(store->btHeadsetNum);
  if (store->btConfig == nullptr) {
    return reading.Fail(CoefficientRule::kOutOfMemory, step, nullptr, nullptr,
                        " calloc coeffBuf->btConfig failed.");
  }
  store->moduleConfig = AllocateRecords<ModuleConfig>(store->moduleNum);
  if (store->moduleConfig == nullptr) {
    return reading.Fail(CoefficientRule::kOutOfMemory, step, nullptr, nullptr,
                        " calloc coeffBuf->moduleConfig failed.");
  }
  ok = parse_module_coeff_config(reading, *tuning) && ok;
  if (reading.GoesOn(ok)) {
    ok = parse_bt_headset_coeff_config(reading, *tuning) && ok;
  }
  if (!ok) {
    return false;
  }
  store->parseConfigSuccessFlag = 1;
  LogHeadsets(step, *store);
  return true;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const AlgoModeParams& params) {
  for (size_t i = 0; i < kAlgoAppliedParams; ++i) {
    out << (i == 0 ? "" : " ") << kAlgoParamItems[i].label << "="
        << params.*kAlgoParamItems[i].field;
  }
  return out;
}

bool LoadCoefficientDocument(const char* path, tinyxml2::XMLDocument* document) {
  const std::unique_ptr<FILE, CloseFile> file(std::fopen(path, "rbe"));
  // Without a file the library only makes its error text.
  const auto error = file == nullptr ? document->LoadFile(path) : document->LoadFile(file.get());
  return error == tinyxml2::XML_SUCCESS;
}

int ParseCoefficients(const char* path, tinyxml2::XMLDocument* document, AlgoConfigCoeff* store,
                      const CoefficientFaultListener& listener) noexcept {
  constexpr char kStep[] = "adev_parse_algo_config_coeff_1_0";
  ReleaseCoefficients(store);
  *store = {};
  try {
    Reading reading(store, listener);
    return ReadFile(reading, kStep, path, document) ? 0 : -1;
  } catch (const std::bad_alloc&) {
    BINAURAL_LOG(ERROR) << kStep << " out of memory.";
    store->parseConfigSuccessFlag = 0;
    return -1;
  }
}

int AlgoGenerationOfVersion(const char* version) noexcept {
  if (version == nullptr) {
    return 0;
  }
  return std::strcmp(version, "1.1.0") == 0 ? 1 : std::strcmp(version, "1.4.0") == 0 ? 2 : 0;
}

// The platform's atoi differs in width between targets when a number does not fit.
int32_t ReadCoefficientInteger(const char* text) noexcept {
  constexpr long long kLow = std::numeric_limits<int32_t>::min();
  constexpr long long kHigh = std::numeric_limits<int32_t>::max();
  return static_cast<int32_t>(std::clamp(std::strtoll(text, nullptr, 10), kLow, kHigh));
}

bool IsSpecialFile(const char* path) noexcept {
  struct stat status;
  return stat(path, &status) == 0 && !S_ISREG(status.st_mode);
}

void ReleaseCoefficients(AlgoConfigCoeff* store) noexcept {
  std::free(store->btConfig);
  store->btConfig = nullptr;
  std::free(store->moduleConfig);
  store->moduleConfig = nullptr;
}

int adev_parse_algo_config_coeff_1_0() noexcept {
  tinyxml2::XMLDocument document;
  AlgoConfigCoeff parsed{};
  const int result = ParseCoefficients(BINAURAL_ALGO_COEFF_CONFIG_FILE, &document, &parsed);
  RuntimeLock lock(gRuntimeMutex);
  ReleaseCoefficients(&coeffBuf);
  coeffBuf = parsed;
  return result;
}

void adev_release_algo_config_coeff_1_0() noexcept {
  RuntimeLock lock(gRuntimeMutex);
  ReleaseCoefficients(&coeffBuf);
}

AlgoConfigCoeff* get_bcap_algo_config_coeff_1_0() noexcept {
  return &coeffBuf;
}

int parse_and_save_item_coeffs(int* dst, int capacity, const char* text, unsigned* count) noexcept {
  if (text == nullptr || *text == '\0') {
    BINAURAL_LOG(ERROR) << __func__ << " valStr = " << (text == nullptr ? "" : text) << " error.";
    return -1;
  }
  const size_t bytes = std::strlen(text) + 1;
  std::unique_ptr<char, FreeBlock> copy(static_cast<char*>(std::calloc(bytes, 1)));
  if (copy == nullptr) {
    BINAURAL_LOG(ERROR) << __func__ << " calloc failed.";
    return -1;
  }
  std::memcpy(copy.get(), text, bytes);
  int index = 0;
  char* rest = nullptr;
  for (char* field = strtok_r(copy.get(), ",", &rest); field != nullptr;
       field = strtok_r(nullptr, ",", &rest)) {
    if (index >= capacity) {
      BINAURAL_LOG(ERROR) << __func__ << " index error arrLen " << capacity << " index " << index;
      return -1;
    }
    dst[index++] = ReadCoefficientInteger(field);
  }
  *count = static_cast<unsigned>(index);
  BINAURAL_LOG(INFO) << __func__ << " arrLen = " << capacity << " index = " << index;
  return 0;
}
