#include "tests/support/log_capture.h"

#include <utility>

LogCapture* LogCapture::current_;

LogCapture::LogCapture(int minimum_priority) {
  current_ = this;
  __android_log_set_logger(Receive);
  __android_log_set_minimum_priority(minimum_priority);
}

LogCapture::~LogCapture() {
  __android_log_set_logger([](const __android_logger_data*, const char*) {});
  __android_log_set_minimum_priority(ANDROID_LOG_DEFAULT);
  current_ = nullptr;
}

void LogCapture::SetMinimumPriority(int priority) {
  __android_log_set_minimum_priority(priority);
}

void LogCapture::Receive(const __android_logger_data* data, const char* message) {
  LoggedLine line{data->priority, data->tag == nullptr ? "" : data->tag, message};
  std::lock_guard<std::mutex> lock(current_->mutex_);
  current_->lines_.push_back(std::move(line));
}

std::vector<LoggedLine> LogCapture::Take() {
  std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(lines_, {});
}

std::vector<LoggedLine> LogCapture::Take(const std::string& tag) {
  std::vector<LoggedLine> found;
  for (LoggedLine& line : Take()) {
    if (line.tag == tag) {
      found.push_back(std::move(line));
    }
  }
  return found;
}

std::vector<std::string> LogCapture::TakeErrors(const std::string& tag) {
  std::vector<std::string> found;
  for (LoggedLine& line : Take(tag)) {
    if (line.priority >= ANDROID_LOG_ERROR) {
      found.push_back(std::move(line.text));
    }
  }
  return found;
}
