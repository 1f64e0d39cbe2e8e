// The line object behind BINAURAL_LOG: formats on the heap, gives up the line when there is none.
#include "binaural_record/utils/log.h"

#include <cerrno>
#include <new>
#include <string>

namespace vendor::corva::binaural_record::utils {

LogLine::~LogLine() {
  const int saved_errno = errno;
  try {
    if (stream_.good()) {
      std::string message = stream_.str();
      for (size_t begin = 0; begin < message.size();) {
        const size_t end = message.find('\n', begin);
        if (end != std::string::npos) {
          message[end] = '\0';
        }
        android::base::LogMessage::LogLine(file_, line_, severity_, tag_, message.c_str() + begin);
        begin = end == std::string::npos ? message.size() : end + 1;
      }
    }
  } catch (const std::bad_alloc&) {
    // The line is lost; the operation that wrote it goes on.
  }
  errno = saved_errno;
}

}  // namespace vendor::corva::binaural_record::utils
