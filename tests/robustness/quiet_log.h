// A log sink for tests that count or fail allocations: it keeps no text and asks for no memory.
#pragma once

#include <android/log.h>

#include <atomic>
#include <cstdint>

class QuietLog {
 public:
  explicit QuietLog(int minimum_priority) {
    __android_log_set_logger(
        [](const __android_logger_data*, const char*) { lines_.fetch_add(1); });
    __android_log_set_minimum_priority(minimum_priority);
  }
  ~QuietLog() { __android_log_set_minimum_priority(ANDROID_LOG_DEFAULT); }
  QuietLog(const QuietLog&) = delete;
  QuietLog& operator=(const QuietLog&) = delete;

  static uint64_t lines() { return lines_; }

 private:
  static inline std::atomic<uint64_t> lines_{0};
};
