// What the module writes to the platform's logger during a test, line by line.
//
// Installs itself in the real logger (liblog) for its lifetime and sets the minimum priority, so that
// level rules are the logger's own. One at a time; lines may come from any thread.
#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <android/log.h>

struct LoggedLine {
  int priority;
  std::string tag;
  std::string text;
};

class LogCapture {
 public:
  explicit LogCapture(int minimum_priority = ANDROID_LOG_VERBOSE) {
    current_ = this;
    __android_log_set_logger(Receive);
    SetMinimumPriority(minimum_priority);
  }
  ~LogCapture() {
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    SetMinimumPriority(ANDROID_LOG_DEFAULT);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  void SetMinimumPriority(int priority) { __android_log_set_minimum_priority(priority); }

  // All lines since the last call, in order.
  std::vector<LoggedLine> Take() {
    std::lock_guard<std::mutex> lock(mutex_);
    return std::exchange(lines_, {});
  }
  // Texts of one tag as "I text", with the letter of the level; the others are dropped.
  std::vector<std::string> TakeTexts(const std::string& tag) {
    std::vector<std::string> texts;
    for (const LoggedLine& line : Take()) {
      if (line.tag == tag) {
        texts.push_back("??VDIWEF?"[line.priority] + (" " + line.text));
      }
    }
    return texts;
  }
  // Texts of one tag at ERROR and above; the others are dropped.
  std::vector<std::string> TakeErrors(const std::string& tag) {
    std::vector<std::string> texts;
    for (const LoggedLine& line : Take()) {
      if (line.tag == tag && line.priority >= ANDROID_LOG_ERROR) {
        texts.push_back(line.text);
      }
    }
    return texts;
  }

 private:
  static void Receive(const __android_logger_data* data, const char* message) {
    LoggedLine line{data->priority, data->tag == nullptr ? "" : data->tag, message};
    std::lock_guard<std::mutex> lock(current_->mutex_);
    current_->lines_.push_back(std::move(line));
  }

  static inline LogCapture* current_ = nullptr;

  std::mutex mutex_;
  std::vector<LoggedLine> lines_;
};
