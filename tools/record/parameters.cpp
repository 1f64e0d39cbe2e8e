// Parameter texts of the recorder; see the header.
#include "tools/record/parameters.h"

#include <algorithm>
#include <array>

namespace tools {
namespace {

constexpr char kMode[] = "binaural_recording_algorithmMode";
constexpr char kOrientation[] = "binaural_recording_orientation";
constexpr char kMirror[] = "binaural_recording_mirror";
constexpr char kHeadset[] = "binaural_recording_bt_name";

void WarnAboutMode(const std::string& text, std::vector<std::string>& warnings) {
  const std::optional<std::string> mode = ParameterValue(text, kMode);
  if (mode == "2" || mode == "3") {
    warnings.push_back(
        "the module accepts mode " + *mode +
        ", but every read fails from then on; a later change to mode 0 or 1 helps only "
        "while its buffer of a few blocks is not full");
  }
}

}  // namespace

std::optional<std::string> ParameterValue(const std::string& text, const std::string& key) {
  std::optional<std::string> value;
  for (size_t start = 0; start <= text.size();) {
    const size_t end = std::min(text.find(';', start), text.size());
    const std::string pair = text.substr(start, end - start);
    const size_t equals = pair.find('=');
    if (pair.substr(0, equals) == key) {
      const std::string tail = equals == std::string::npos ? "" : pair.substr(equals + 1);
      value = tail.substr(0, tail.find('='));  // the module drops what follows a second "=", too
    }
    start = end + 1;
  }
  return value;
}

std::vector<std::string> InitialParameters(const RecordOptions& options) {
  std::vector<std::string> texts;
  const auto add = [&texts](const char* key, const std::string& value) {
    texts.push_back(std::string(key) + "=" + value);
  };
  if (options.headset_given) {
    add(kHeadset, options.headset);
  }
  if (!options.orientation.empty()) {
    add(kOrientation, options.orientation);
  }
  if (options.mirror) {
    add(kMirror, "true");
  }
  if (options.mode) {
    add(kMode, std::to_string(*options.mode));
  }
  texts.insert(texts.end(), options.set.begin(), options.set.end());
  return texts;
}

std::vector<std::string> ParameterWarnings(const RecordOptions& options) {
  std::vector<std::string> warnings;
  const auto check_form = [&warnings](const std::string& text) {
    if (text.find('=') == std::string::npos) {
      warnings.push_back("\"" + text +
                         "\" sets nothing; parameters have the form key=value;key=value");
    }
  };
  for (const std::string& text : InitialParameters(options)) {
    WarnAboutMode(text, warnings);
    check_form(text);
  }
  for (const TimedParameters& timed : options.at) {
    WarnAboutMode(timed.parameters, warnings);
    check_form(timed.parameters);
    for (const char* key : {kOrientation, kMirror, kHeadset}) {
      if (ParameterValue(timed.parameters, key) && !ParameterValue(timed.parameters, kMode)) {
        warnings.push_back(std::string(key) +
                           " set in mid-stream is taken up at the next change of mode only");
      }
    }
  }
  if (options.mirror && options.orientation != "front") {
    warnings.emplace_back("--mirror matters to the front camera only; add --orientation front");
  }
  return warnings;
}

int ModeInEffect(const RecordOptions& options, size_t timed_sent) {
  std::vector<std::string> texts = InitialParameters(options);
  for (size_t i = 0; i < timed_sent; ++i) {
    texts.push_back(options.at[i].parameters);
  }
  constexpr std::array<const char*, 4> kModes{"0", "1", "2", "3"};
  int mode = 0;
  for (const std::string& text : texts) {
    const std::string value = ParameterValue(text, kMode).value_or("");
    const auto* found = std::find(kModes.begin(), kModes.end(), value);
    mode = found == kModes.end() ? mode : static_cast<int>(found - kModes.begin());
  }
  return mode;
}

}  // namespace tools
