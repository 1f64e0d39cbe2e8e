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

std::vector<std::string> LogCapture::TakeTexts(const std::string& tag) {
  std::vector<std::string> texts;
  for (const LoggedLine& line : Take()) {
    if (line.tag == tag) {
      texts.push_back("??VDIWEF?"[line.priority] + (" " + line.text));
    }
  }
  return texts;
}

std::vector<std::string> LogCapture::TakeErrors(const std::string& tag) {
  std::vector<std::string> texts;
  for (const LoggedLine& line : Take()) {
    if (line.tag == tag && line.priority >= ANDROID_LOG_ERROR) {
      texts.push_back(line.text);
    }
  }
  return texts;
}
