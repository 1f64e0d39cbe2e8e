// Walks the document once for structure, headsets and modules, beside the faults that the module's parser
// told; see the header.
#include "tools/tune/lint.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "tools/common/console.h"
#include "tools/tune/file_layout.h"
#include "tools/tune/lint_rules.h"
#include "tools/tune/runtime.h"
#include "tools/tune/source_text.h"
#include "tools/tune/words.h"

namespace tune {

using tinyxml2::XMLAttribute;
using tinyxml2::XMLElement;
using tinyxml2::XMLNode;

namespace {

constexpr size_t kMostListed = 1000;
constexpr size_t kMostSuggestions = 200;  // a suggestion compares with every name there is
constexpr size_t kLargeFileBytes = 1u << 20;
constexpr uint32_t kBands48000 = 73;
constexpr uint32_t kBands44100 = 75;
constexpr int kScenesMode = 0;  // the mode that a recording runs in

std::string Tag(const char* name) {
  return "<" + tools::EscapeControls(std::string_view(name).substr(0, 40)) + ">";
}

bool Contains(const std::vector<std::string>& names, const char* name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

std::vector<std::string> ParameterNames() {
  std::vector<std::string> names;
  for (const AlgoParamItem& item : kAlgoParamItems) {
    names.emplace_back(item.name);
  }
  for (const AlgoListItem& item : kAlgoListItems) {
    names.emplace_back(item.name);
  }
  return names;
}

const AlgoListItem* ListItem(const char* name) {
  for (const AlgoListItem& item : kAlgoListItems) {
    if (std::strcmp(item.name, name) == 0) {
      return &item;
    }
  }
  return nullptr;
}

const AlgoParamItem* ParamItem(const char* name) {
  for (const AlgoParamItem& item : kAlgoParamItems) {
    if (std::strcmp(item.name, name) == 0) {
      return &item;
    }
  }
  return nullptr;
}

class Linter {
 public:
  Linter(const CoefficientFile& file, bool strict) : file_(file), strict_(strict) {
    result_.path = file.path();
  }

  LintResult Run();

 private:
  void Add(RuleIndex rule, size_t offset, const std::string& message);
  void AddAt(RuleIndex rule, const XMLElement* element, const std::string& message) {
    Add(rule, OffsetOf(element), message);
  }
  void AddAtValue(RuleIndex rule, const XMLElement* element, const char* attribute,
                  const std::string& message) {
    Add(rule, OffsetOfValue(file_.text(), element, attribute), message);
  }
  // Something that is said once for all places, with their number.
  void AddOnce(const std::string& message, const XMLElement* element);
  std::string Suggest(std::string_view name, const std::vector<std::string>& candidates);

  void CheckText();
  void CheckXml();
  void AddFault(const Fault& fault);
  void AddMissingAttribute(const XMLElement& element, const std::string& attribute_name);
  bool CheckVersion();
  void CheckStructure(const XMLNode& parent, const ElementKind* kind);
  void CheckAttributes(const XMLElement& element, const ElementKind& kind);
  void CheckFirstOnly(const XMLElement& parent, const char* name);
  void CheckModules();
  void CheckMode(const XMLElement& mode, int value);
  void CheckParam(const XMLElement& param, bool applied);
  void CheckHeadsets();
  void CheckProfile(const XMLElement& profile, size_t position);
  void CheckScenes(size_t headset, const XMLElement& element, bool name_is_unique);
  void CheckName(const XMLElement& headset);
  // Null element or attribute: nothing to check. Returns whether the text was a number as written.
  void CheckNumber(const XMLElement& element, const char* attribute);
  void CheckFields(const XMLElement& element);
  enum class Bands { kGains, kEnergies };
  void CheckBandList(const XMLElement& element, Bands bands);

  const CoefficientFile& file_;
  const bool strict_;
  LintResult result_;
  std::map<std::string, std::pair<const XMLElement*, size_t>> once_;
  std::unordered_set<std::string> included_;
  size_t suggestions_ = 0;
  ClampProbe probe_;
};

void Linter::Add(RuleIndex rule_index, size_t offset, const std::string& message) {
  const Rule& rule = Rules()[rule_index];
  const Severity severity =
      strict_ && rule.severity == Severity::kWarning ? Severity::kError : rule.severity;
  ++result_.counts[static_cast<size_t>(severity)];
  if (result_.diagnostics.size() < kMostListed) {
    result_.diagnostics.push_back({&rule, severity, offset, 1, 1, message});
  }
}

void Linter::AddOnce(const std::string& message, const XMLElement* element) {
  auto& [first, count] = once_[message];
  first = count == 0 ? element : first;
  ++count;
}

std::string Linter::Suggest(std::string_view name, const std::vector<std::string>& candidates) {
  return ++suggestions_ > kMostSuggestions ? "" : DidYouMean(name, candidates);
}

LintResult Linter::Run() {
  if (!file_.refusal().empty()) {
    Add(kUnreadable, 0, file_.refusal());
    return result_;
  }
  CheckText();
  if (file_.document().Error()) {
    CheckXml();
  } else if (CheckVersion()) {
    for (const Fault& fault : file_.faults()) {
      AddFault(fault);
    }
    CheckStructure(file_.document(), nullptr);
    if (file_.tuning() != nullptr) {
      CheckHeadsets();
      CheckModules();
    }
    for (const auto& [message, places] : once_) {
      const size_t others = places.second - 1;
      AddAt(kUnused, places.first,
            message + (others == 0 ? "" : " (and " + Count(others, "other place") + ")"));
    }
  }
  auto& diagnostics = result_.diagnostics;
  std::stable_sort(diagnostics.begin(), diagnostics.end(),
                   [](const Diagnostic& a, const Diagnostic& b) { return a.offset < b.offset; });
  PositionFinder finder(file_.text());
  for (Diagnostic& diagnostic : diagnostics) {
    const Position position = finder.Find(diagnostic.offset);
    diagnostic.line = position.line;
    diagnostic.column = position.column;
  }
  return result_;
}

void Linter::CheckText() {
  if (file_.text().size() > kLargeFileBytes) {
    Add(kLargeFile, 0,
        "the file has " + std::to_string(file_.text().size() >> 10) +
            " KiB; every device open reads it twice, whole");
  }
  const size_t invalid = FirstInvalidUtf8(file_.text());
  if (invalid != std::string_view::npos) {
    Add(kInvalidUtf8, invalid, "this byte is not UTF-8; names that hold it match byte by byte");
  }
}

void Linter::CheckXml() {
  const auto& document = file_.document();
  std::string name = document.ErrorName() == nullptr ? "" : document.ErrorName();
  if (document.ErrorID() == tinyxml2::XML_ERROR_EMPTY_DOCUMENT) {
    Add(kXml, 0, "the file is empty; expected an XML declaration and a <tuning> element");
    return;
  }
  std::string words;
  for (const char letter : name.substr(name.find("ERROR_") == 4 ? 10 : 4)) {
    words += letter == '_' ? ' ' : static_cast<char>(std::tolower(letter));
  }
  Add(kXml, OffsetOfLine(file_.text(), document.ErrorLineNum()), "not well-formed XML: " + words);
}

bool Linter::CheckVersion() {
  const XMLElement* tuning = file_.tuning();
  if (tuning == nullptr || file_.generation() == 1) {
    return true;
  }
  const char* version = tuning->Attribute(kAlgoVersionAttribute);
  if (file_.generation() == 2) {
    AddAtValue(
        kOtherGeneration, tuning, kAlgoVersionAttribute,
        "version \"1.4.0\" hands the file to the 2.0 library, whose rules are its own; the rest "
        "is not checked");
    return false;
  }
  constexpr char kExpected[] = "; expected \"1.1.0\"";
  if (version == nullptr) {
    AddAt(kVersion, tuning,
          std::string("<tuning> lacks the attribute \"") + kAlgoVersionAttribute +
              "\" (spelled so), so no version is selected" + kExpected);
  } else {
    AddAtValue(kVersion, tuning, kAlgoVersionAttribute,
               "version " + Quoted(version) + " selects nothing" + kExpected);
  }
  return true;
}

void Linter::AddMissingAttribute(const XMLElement& element, const std::string& attribute_name) {
  std::vector<std::string> present;
  const ElementKind* kind = KindOf(element.Name());
  for (auto* attribute = element.FirstAttribute(); attribute != nullptr;
       attribute = attribute->Next()) {
    if (kind == nullptr || !Contains(kind->attributes, attribute->Name())) {
      present.emplace_back(attribute->Name());
    }
  }
  const std::string near = NearestName(attribute_name, present);
  AddAt(kMissingAttribute, &element,
        Tag(element.Name()) + " lacks the attribute \"" + attribute_name + "\"" +
            (near.empty() ? "" : "; it has " + Quoted(near)));
}

void Linter::AddFault(const Fault& fault) {
  const XMLElement* element = fault.element;
  const std::string kind = element == nullptr ? "" : element->Name();
  const char* attribute = fault.name.c_str();
  const char* value = element == nullptr ? nullptr : element->Attribute(attribute);
  const std::string text = value == nullptr ? "" : value;
  switch (fault.rule) {
    case CoefficientRule::kUnreadable:
      Add(kUnreadable, 0, "cannot be read");
      break;
    case CoefficientRule::kNoDeclaration:
      Add(kDeclaration, 0,
          "the file does not begin with an XML declaration; expected <?xml version=\"1.0\" "
          "encoding=\"UTF-8\"?>");
      break;
    case CoefficientRule::kMissingElement:
      AddAt(kMissingElement, element,
            (element == nullptr ? "the file" : Tag(kind.c_str())) + " lacks a " + Tag(attribute) +
                " element");
      break;
    case CoefficientRule::kMissingAttribute:
      if (element != nullptr) {
        AddMissingAttribute(*element, fault.name);
      }
      break;
    case CoefficientRule::kNameTooLong:
      AddAtValue(kNameLength, element, attribute,
                 "a name of " + Count(text.size(), "byte") + "; at most " +
                     (kind == "btheadset" ? "127" : "63"));
      break;
    case CoefficientRule::kModeOutOfRange:
      AddAtValue(kModeRange, element, attribute,
                 "mode " + Quoted(text) + " is read as " +
                     std::to_string(ReadCoefficientInteger(text.c_str())) + "; expected 0 to 3");
      break;
    case CoefficientRule::kUnknownParameter:
      AddAtValue(kUnknownParameter, element, attribute,
                 "there is no parameter " + Quoted(text) + Suggest(text, ParameterNames()));
      break;
    case CoefficientRule::kUnknownModule: {
      std::vector<std::string> modules;
      for (size_t i = 0; i < file_.store().moduleNum && suggestions_ < kMostSuggestions; ++i) {
        modules.emplace_back(file_.store().moduleConfig[i].moduleName);
      }
      AddAtValue(kUnknownModule, element, attribute,
                 "there is no module " + Quoted(text) + Suggest(text, modules));
      break;
    }
    case CoefficientRule::kEmptyList:
      AddAtValue(kEmptyList, element, attribute, "the list is empty; expected numbers and commas");
      break;
    case CoefficientRule::kListTooLong:
      AddAtValue(kListLength, element, attribute,
                 "too many numbers; at most " +
                     std::to_string(kind == "param" ? kAlgoDraValues : kAlgoBandValues));
      break;
    case CoefficientRule::kOutOfMemory:
      Add(kUnreadable, 0, "not enough memory to read the file");
      break;
  }
}

// ---- structure: what is ignored, what stands twice ----

void Linter::CheckAttributes(const XMLElement& element, const ElementKind& kind) {
  for (const XMLAttribute* attribute = element.FirstAttribute(); attribute != nullptr;
       attribute = attribute->Next()) {
    const std::string name = attribute->Name();
    // Editors find the schema through attributes of this prefix.
    const bool for_editors = name.rfind("xmlns", 0) == 0 || name.rfind("xsi:", 0) == 0;
    if (!Contains(kind.attributes, attribute->Name()) && !for_editors) {
      AddAt(kIgnored, &element,
            "the attribute " + Quoted(name) + " of " + Tag(kind.name) + " is ignored" +
                Suggest(name, kind.attributes));
    }
  }
}

// `kind` null: the document.
void Linter::CheckStructure(const XMLNode& parent, const ElementKind* kind) {
  static const std::vector<std::string> kTop = {"tuning"};
  const std::vector<std::string>& expected = kind == nullptr ? kTop : kind->children;
  for (const XMLNode* node = parent.FirstChild(); node != nullptr; node = node->NextSibling()) {
    const XMLElement* element = node->ToElement();
    if (element == nullptr) {
      if (node->ToText() != nullptr && kind != nullptr) {
        AddAt(kIgnored, parent.ToElement(),
              "the text " + Quoted(node->Value()) + " inside " + Tag(kind->name) + " is ignored");
      }
      continue;
    }
    if (Contains(expected, element->Name())) {
      const bool second_tuning = kind == nullptr && element != file_.tuning();
      if (second_tuning) {
        AddAt(kDuplicate, element, "a second <tuning>; the first wins");
        continue;
      }
      const ElementKind* child_kind = KindOf(element->Name());
      CheckAttributes(*element, *child_kind);
      CheckStructure(*element, child_kind);
      continue;
    }
    const ElementKind* known = KindOf(element->Name());
    std::string hint;
    if (known != nullptr && *known->parent != '\0') {
      hint = "; it belongs into " + Tag(known->parent);
    } else if (known == nullptr) {
      hint = Suggest(element->Name(), expected);
    }
    AddAt(kIgnored, element,
          Tag(element->Name()) + " is ignored " +
              (kind == nullptr ? "outside <tuning>" : "inside " + Tag(kind->name)) + hint);
  }
}

// Of elements of which only the first is read.
void Linter::CheckFirstOnly(const XMLElement& parent, const char* name) {
  const XMLElement* first = parent.FirstChildElement(name);
  const auto* other = first == nullptr ? nullptr : first->NextSiblingElement(name);
  for (; other != nullptr; other = other->NextSiblingElement(name)) {
    AddAt(kDuplicate, other, "another " + Tag(name) + "; the first wins");
  }
}

// ---- numbers ----

void Linter::CheckNumber(const XMLElement& element, const char* attribute) {
  const char* text = element.Attribute(attribute);
  if (text != nullptr && !IsReadAsWritten(text)) {
    AddAtValue(kNumber, &element, attribute,
               Quoted(text) + " is read as " + std::to_string(ReadCoefficientInteger(text)));
  }
}

// The fields of the comma list in "value".
void Linter::CheckFields(const XMLElement& element) {
  const char* text = element.Attribute("value");
  if (text == nullptr || *text == '\0') {
    return;
  }
  size_t index = 0;
  size_t empty = 0;
  for (const std::string& field : Fields(text)) {
    if (field.empty()) {
      ++empty;
      continue;
    }
    if (!IsReadAsWritten(field)) {
      Add(kNumber, OffsetOfField(file_.text(), &element, "value", index),
          Quoted(field) + " is read as " + std::to_string(ReadCoefficientInteger(field.c_str())));
    }
    ++index;
  }
  if (empty > 0) {
    AddAtValue(
        kNumber, &element, "value",
        "empty fields of the list (" + std::to_string(empty) +
            ") vanish, so that what follows moves down; numbers read: " + std::to_string(index));
  }
}

void Linter::CheckBandList(const XMLElement& element, Bands bands) {
  CheckFields(element);
  const char* text = element.Attribute("value");
  int32_t values[kAlgoBandValues];
  unsigned count = 0;
  if (parse_and_save_item_coeffs(values, kAlgoBandValues, text, &count) != 0) {
    return;  // the parser's fault says it
  }
  const char* rest = bands == Bands::kGains ? "0 (no change)" : "-2080 (left alone)";
  if (count > kBands44100) {
    AddAtValue(kBandLimit, &element, "value",
               std::to_string(count) +
                   " values, but there are only 75 bands at most; expected 73 for "
                   "48 kHz or 75 for 44.1 kHz");
  } else if (count != kBands48000 && count != kBands44100) {
    AddAtValue(kBandCount, &element, "value",
               Count(count, "value") +
                   "; expected 73 for 48 kHz or 75 for 44.1 kHz. Bands without a value rest at " +
                   rest);
  }
  const auto stored =
      bands == Bands::kGains ? probe_.Gains(values, count) : probe_.Energies(values, count);
  std::string examples;
  size_t clamped = 0;
  size_t first = 0;
  for (uint32_t band = 0; band < std::min(count, kBands44100); ++band) {
    if (stored[band] == values[band]) {
      continue;
    }
    first = clamped == 0 ? band : first;
    if (++clamped <= 3) {
      examples += std::string(clamped == 1 ? "" : ", ") + std::to_string(values[band]) + " to " +
                  std::to_string(stored[band]) + " in band " + std::to_string(band + 1);
    }
  }
  if (clamped > 0) {
    Add(kClamped, OffsetOfField(file_.text(), &element, "value", first),
        "the library clamps " + examples +
            (clamped > 3 ? " and " + std::to_string(clamped - 3) + " more" : ""));
  }
}

// ---- modules ----

void Linter::CheckParam(const XMLElement& param, bool applied) {
  const char* name = param.Attribute("name");
  const char* text = param.Attribute("value");
  if (name == nullptr || text == nullptr) {
    return;
  }
  if (ListItem(name) != nullptr) {
    CheckFields(param);
  } else if (ParamItem(name) != nullptr) {
    CheckNumber(param, "value");
  } else {
    return;
  }
  const size_t index = AppliedIndex(name);
  if (index == kAlgoAppliedParams) {
    AddOnce("the parameter \"" + std::string(name) + "\" is stored and not used by this generation",
            &param);
    return;
  }
  if (!applied) {
    return;
  }
  const int32_t value = ReadCoefficientInteger(text);
  if (kAppliedParams[index].unit == Unit::kSwitch) {
    if (value != 0 && value != 1) {
      AddAtValue(kSwitch, &param, "value",
                 std::string(name) + " is a switch; " + std::to_string(value) + " means on");
    }
    return;
  }
  const int32_t stored = probe_.Param(index, value);
  if (stored != value) {
    const ClampProbe::Range range = probe_.ParamRange(index);
    AddAtValue(kClamped, &param, "value",
               "the library clamps " + std::string(name) + " " + std::to_string(value) + " to " +
                   std::to_string(stored) + "; it takes " + std::to_string(range.low) + " to " +
                   std::to_string(range.high));
  }
}

void Linter::CheckMode(const XMLElement& mode, int value) {
  if (value > kScenesMode && value < static_cast<int>(kAlgoModes)) {
    AddOnce("mode " + std::to_string(value) +
                " is stored and not used: only mode 0 is ever applied",
            &mode);
  }
  std::map<std::string, const XMLElement*> seen;
  for (auto* param = mode.FirstChildElement("param"); param != nullptr;
       param = param->NextSiblingElement("param")) {
    CheckParam(*param, value == kScenesMode);
    const char* name = param->Attribute("name");
    if (name != nullptr && !seen.emplace(name, param).second) {
      AddAt(kDuplicate, param, Quoted(name) + " once more in this mode; the last wins");
    }
  }
}

void Linter::CheckModules() {
  std::unordered_set<std::string> names;
  for (auto* module = file_.tuning()->FirstChildElement("module"); module != nullptr;
       module = module->NextSiblingElement("module")) {
    const char* name = module->Attribute("name");
    if (name != nullptr && !names.insert(name).second) {
      AddAtValue(kDuplicate, module, "name",
                 "a second module " + Quoted(name) + "; profiles include the first");
    } else if (name != nullptr && included_.count(name) == 0) {
      AddAtValue(kUnused, module, "name", "no profile includes the module " + Quoted(name));
    }
    std::unordered_set<int> modes;
    for (auto* mode = module->FirstChildElement("mode"); mode != nullptr;
         mode = mode->NextSiblingElement("mode")) {
      const char* text = mode->Attribute("value");
      CheckNumber(*mode, "value");
      const int value = text == nullptr ? -1 : ReadCoefficientInteger(text);
      CheckMode(*mode, value);
      if (text != nullptr && !modes.insert(value).second) {
        AddAt(kDuplicate, mode,
              "mode " + std::to_string(value) +
                  " once more; the last wins, and begins from the start values again");
      }
    }
  }
}

// ---- headsets ----

void Linter::CheckName(const XMLElement& headset) {
  const char* name = headset.Attribute("name");
  if (name == nullptr) {
    return;
  }
  const std::string_view text = name;
  if (text.empty()) {
    AddAtValue(kNeverMatches, &headset, "name",
               "the empty name matches only while no headset's name has been set");
  } else if (text.find_first_of(";=") != std::string_view::npos) {
    AddAtValue(kNeverMatches, &headset, "name",
               "a name with \";\" or \"=\" can never match: parameter strings cut it off there");
  } else if (std::strchr(" \t\n", text.front()) != nullptr ||
             std::strchr(" \t\n", text.back()) != nullptr) {
    AddAtValue(
        kNeverMatches, &headset, "name",
        "a name that begins or ends with a blank matches only a headset whose name does, too");
  }
}

void Linter::CheckProfile(const XMLElement& profile, size_t position) {
  if (position >= kAlgoProfiles) {
    AddAt(kIgnored, &profile, "the profile is ignored; only the first 5 of a headset are read");
    return;
  }
  if (position >= kScenes) {
    AddOnce("profile " + std::to_string(position + 1) +
                " of a headset is stored and not used; there are three scenes",
            &profile);
  }
  CheckFirstOnly(profile, "include");
  const XMLElement* include = profile.FirstChildElement("include");
  const char* module = include == nullptr ? nullptr : include->Attribute("module_name");
  if (module != nullptr) {
    included_.insert(module);
  }
  std::unordered_set<int> modes;
  bool readable = true;
  size_t index = 0;
  for (auto* peq = profile.FirstChildElement("peq_band_gain_tuning"); peq != nullptr;
       peq = peq->NextSiblingElement("peq_band_gain_tuning"), ++index) {
    if (index >= kAlgoModes) {
      AddAt(kIgnored, peq, "the list is ignored; only the first 4 of a profile are read");
      continue;
    }
    CheckNumber(*peq, "mode");
    const char* text = peq->Attribute("mode");
    const int mode = text == nullptr ? -1 : ReadCoefficientInteger(text);
    readable = readable && mode >= 0 && mode < static_cast<int>(kAlgoModes);
    if (mode == kScenesMode) {
      CheckBandList(*peq, Bands::kGains);
    } else if (mode > 0 && mode < static_cast<int>(kAlgoModes)) {
      CheckFields(*peq);
      AddOnce("band gains for mode " + std::to_string(mode) +
                  " are stored and not used: only mode 0 is ever applied",
              peq);
    }
    if (text != nullptr && !modes.insert(mode).second) {
      AddAt(kDuplicate, peq,
            "band gains for mode " + std::to_string(mode) + " once more; the last wins");
    }
  }
  if (index > 0 && readable && modes.count(kScenesMode) == 0) {
    AddAt(kBandCount, &profile, "no band gains for mode 0: the equaliser stays flat");
  }
}

// `name_is_unique` saves comparing with all other headsets.
void Linter::CheckScenes(size_t headset, const XMLElement& element, bool name_is_unique) {
  AlgoConfigCoeff store = file_.store();
  store.parseConfigSuccessFlag = 1;  // a fault elsewhere is reported elsewhere
  if (name_is_unique) {
    store.btConfig += headset;
    store.btHeadsetNum = 1;
  }
  const BtHeadsetConfig& record = file_.store().btConfig[headset];
  const XMLElement* profile = element.FirstChildElement("profile");
  for (size_t scene = 0; scene < kScenes; ++scene) {
    // A profile that is there is judged in a file without faults only: a fault of its own, or of its
    // module, would show here once more.
    const bool unclear = profile != nullptr && !file_.faults().empty();
    const TuningChoice choice =
        ChooseTuning(store, record.btHeadsetName, static_cast<int>(scene), kScenesMode);
    if (!unclear && choice.step != TuningStep::kMatched) {
      const std::string why =
          choice.step == TuningStep::kModeNotInModule
              ? "the module of profile " + std::to_string(scene + 1) + " has no mode 0"
              : "there is no profile " + std::to_string(scene + 1);
      AddAt(kScene, profile != nullptr ? profile : &element,
            "the scene \"" + std::string(SceneName(scene)) + "\" of " +
                Quoted(record.btHeadsetName) + " gets the built-in values: " + why);
    }
    profile = profile == nullptr ? nullptr : profile->NextSiblingElement("profile");
  }
}

void Linter::CheckHeadsets() {
  std::unordered_map<std::string, size_t> uses;
  const XMLElement* headset = file_.tuning()->FirstChildElement("btheadset");
  for (auto* other = headset; other != nullptr; other = other->NextSiblingElement("btheadset")) {
    ++uses[other->Attribute("name") == nullptr ? "" : other->Attribute("name")];
  }
  std::unordered_set<std::string> seen;
  for (size_t index = 0; headset != nullptr;
       headset = headset->NextSiblingElement("btheadset"), ++index) {
    const char* name = headset->Attribute("name");
    CheckName(*headset);
    CheckFirstOnly(*headset, "nfm_band_energy_tuning");
    if (const auto* nfm = headset->FirstChildElement("nfm_band_energy_tuning")) {
      CheckBandList(*nfm, Bands::kEnergies);
    }
    size_t position = 0;
    for (auto* profile = headset->FirstChildElement("profile"); profile != nullptr;
         profile = profile->NextSiblingElement("profile")) {
      CheckProfile(*profile, position++);
    }
    if (name == nullptr || std::strlen(name) >= kBtHeadsetNameBytes) {
      continue;
    }
    if (!seen.insert(name).second) {
      AddAtValue(kDuplicate, headset, "name",
                 "a second headset " + Quoted(name) +
                     "; the first wins in every scene for which it has a profile that fits");
    } else if (file_.store().btConfig != nullptr) {
      CheckScenes(index, *headset, uses[name] == 1);
    }
  }
}

}  // namespace

LintResult Lint(const CoefficientFile& file, bool strict) {
  return Linter(file, strict).Run();
}

}  // namespace tune
