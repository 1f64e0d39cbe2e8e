// Parameter strings of the audio framework: "key=value;key=value" to a map, and back to log text.
#ifndef BINAURAL_RECORD_UTILS_UTILS_H_
#define BINAURAL_RECORD_UTILS_UTILS_H_

#include <string>
#include <unordered_map>

namespace vendor::corva::binaural_record::utils {

using AudioParamMap = std::unordered_map<std::string, std::string>;

// Pieces between semicolons; the key before the first "=", the value between the first and the
// second, byte for byte. A bare key has an empty value, the last occurrence of a key wins, an empty
// piece is skipped, a piece without a key is skipped with a WARNING. Any thread; throws bad_alloc.
AudioParamMap ParseAudioParams(const std::string& params);

// "key: '<key>' value: '<value>'" and a line feed for every entry, in the map's order; for the log.
std::string GetAudioParamString(const AudioParamMap& params);

}  // namespace vendor::corva::binaural_record::utils

#endif  // BINAURAL_RECORD_UTILS_UTILS_H_
