// Stream logging for the module's sources: `BINAURAL_LOG(INFO) << __func__ << " enter.";`
//
// The level rule and the output are the base library's own: below the minimum priority for the tag
// the operands are not evaluated, and a message with line feeds becomes one line each. What differs
// is shortage of memory: the base library's message object aborts the process when it cannot be
// allocated, a line of ours is dropped. Any thread; needs LOG_TAG, one per source file.
#ifndef BINAURAL_RECORD_UTILS_LOG_H_
#define BINAURAL_RECORD_UTILS_LOG_H_

#include <sstream>

#include <android-base/logging.h>

namespace vendor::corva::binaural_record::utils {

class LogLine {
 public:
  LogLine(const char* file, unsigned line, android::base::LogSeverity severity, const char* tag)
      : file_(file), line_(line), severity_(severity), tag_(tag) {}
  ~LogLine();
  LogLine(const LogLine&) = delete;
  LogLine& operator=(const LogLine&) = delete;

  // An inserter that runs out of memory sets the stream's bad bit instead of throwing.
  std::ostream& stream() { return stream_; }

 private:
  const char* file_;
  unsigned line_;
  android::base::LogSeverity severity_;
  const char* tag_;
  std::ostringstream stream_;
};

}  // namespace vendor::corva::binaural_record::utils

#define BINAURAL_LOG(severity)                                                                     \
  WOULD_LOG(severity) && ::vendor::corva::binaural_record::utils::LogLine(                         \
                             __FILE__, __LINE__, SEVERITY_LAMBDA(severity), LOG_TAG)               \
                             .stream()

#endif  // BINAURAL_RECORD_UTILS_LOG_H_
