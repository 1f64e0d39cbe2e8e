// What a WAV file's header says about its length; libsndfile plays a file that was cut off without a word.
#ifndef TOOLS_COMMON_WAV_HEADER_H_
#define TOOLS_COMMON_WAV_HEADER_H_

#include <string>

namespace tools {

// A sentence when the file holds less than its header announces (a copy that broke off, a full disk); else
// empty, also for other formats, for what cannot be read and for a streamed file, whose header does not know.
std::string WavShortfall(const std::string& path);

}  // namespace tools

#endif  // TOOLS_COMMON_WAV_HEADER_H_
