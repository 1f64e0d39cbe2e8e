// The format in one table; see the header.
#include "tools/tune/file_layout.h"

#include <algorithm>

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_config.h"

namespace tune {
namespace {

const std::vector<ElementKind>& Kinds() {
  static const std::vector<ElementKind> kinds = {
      {"tuning", "", {kAlgoVersionAttribute}, {"module", "btheadset"}},
      {"module", "tuning", {"name"}, {"mode"}},
      {"mode", "module", {"value"}, {"param"}},
      {"param", "mode", {"name", "value"}, {}},
      {"btheadset", "tuning", {"name"}, {"nfm_band_energy_tuning", "profile"}},
      {"nfm_band_energy_tuning", "btheadset", {"value"}, {}},
      {"profile", "btheadset", {"name"}, {"include", "peq_band_gain_tuning"}},
      {"include", "profile", {"module_name"}, {}},
      {"peq_band_gain_tuning", "profile", {"mode", "value"}, {}},
  };
  return kinds;
}

bool IsPlainDecimal(std::string_view text) {
  while (!text.empty() && text.front() == ' ') {
    text.remove_prefix(1);
  }
  while (!text.empty() && text.back() == ' ') {
    text.remove_suffix(1);
  }
  if (!text.empty() && text.front() == '-') {
    text.remove_prefix(1);
  }
  return !text.empty() && std::all_of(text.begin(), text.end(),
                                      [](char letter) { return letter >= '0' && letter <= '9'; });
}

}  // namespace

const ElementKind* KindOf(std::string_view name) {
  for (const ElementKind& kind : Kinds()) {
    if (name == kind.name) {
      return &kind;
    }
  }
  return nullptr;
}

bool IsReadAsWritten(const std::string& text) {
  if (!IsPlainDecimal(text)) {
    return false;
  }
  const size_t digit = text.find_first_of("123456789");
  const size_t last = text.find_last_of("0123456789");
  const std::string digits =
      digit == std::string::npos ? "0" : text.substr(digit, last - digit + 1);
  const std::string read = std::to_string(ReadCoefficientInteger(text.c_str()));
  return read == digits || read == "-" + digits;
}

std::vector<std::string> Fields(const char* list) {
  std::vector<std::string> fields(1);
  for (; *list != '\0'; ++list) {
    if (*list == ',') {
      fields.emplace_back();
    } else {
      fields.back() += *list;
    }
  }
  return fields;
}

}  // namespace tune
