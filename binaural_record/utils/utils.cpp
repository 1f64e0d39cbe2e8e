// Parameter strings; called by the device's and the stream's parameter operations on their callers'
// threads.
#define LOG_TAG "BinauralRecordUtils"

#include "binaural_record/utils/utils.h"

#include <algorithm>
#include <string_view>

#include "binaural_record/utils/log.h"

namespace vendor::corva::binaural_record::utils {

AudioParamMap ParseAudioParams(const std::string& params) {
  // Not the base library's Split: it is built without exceptions, so that its pieces are lost, or the
  // process ends, when memory runs out inside it.
  AudioParamMap map;
  std::string_view rest = params;
  while (!rest.empty()) {
    const std::string_view piece = rest.substr(0, rest.find(';'));
    rest.remove_prefix(std::min(piece.size() + 1, rest.size()));
    if (piece.empty()) {
      continue;
    }
    const std::string_view key = piece.substr(0, piece.find('='));
    if (key.empty()) {
      BINAURAL_LOG(WARNING) << __func__ << ": Invalid audio parameter " << piece;
      continue;
    }
    // Deliberate: everything from the second "=" on is dropped, so a value never contains one.
    const std::string_view value = piece.substr(std::min(key.size() + 1, piece.size()));
    map[std::string(key)] = value.substr(0, value.find('='));
  }
  return map;
}

std::string GetAudioParamString(const AudioParamMap& params) {
  std::string text;
  for (const auto& [key, value] : params) {
    text += "key: '" + key + "' value: '" + value + "'\n";
  }
  return text;
}

}  // namespace vendor::corva::binaural_record::utils
