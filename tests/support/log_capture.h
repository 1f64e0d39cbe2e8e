// What the module writes to the platform's logger during a test, line by line.
//
// Installs itself in the real logger (liblog) for its lifetime and sets the minimum priority, so that
// level rules are the logger's own. One at a time; lines may come from any thread.
#ifndef TESTS_SUPPORT_LOG_CAPTURE_H_
#define TESTS_SUPPORT_LOG_CAPTURE_H_

#include <mutex>
#include <string>
#include <vector>

#include <android/log.h>

struct LoggedLine {
  int priority;
  std::string tag;
  std::string text;
};

class LogCapture {
 public:
  explicit LogCapture(int minimum_priority = ANDROID_LOG_VERBOSE);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  void SetMinimumPriority(int priority);

  // All lines since the last call, in order.
  std::vector<LoggedLine> Take();
  // Texts of one tag as "I text", with the letter of the level; the others are dropped.
  std::vector<std::string> TakeTexts(const std::string& tag);
  // Texts of one tag at ERROR and above; the others are dropped.
  std::vector<std::string> TakeErrors(const std::string& tag);

 private:
  static void Receive(const __android_logger_data* data, const char* message);

  static LogCapture* current_;

  std::mutex mutex_;
  std::vector<LoggedLine> lines_;
};

#endif  // TESTS_SUPPORT_LOG_CAPTURE_H_
