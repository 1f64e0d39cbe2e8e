// Observer of the module's log; see the header.
#include "tools/record/module_watch.h"

#include <android/log.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>

namespace tools {
namespace {

constexpr char kStateLine[] = "in_get_buffer_size: state=";
constexpr char kEmptyReadLine[] = "in_read, get no data";

std::mutex gMutex;
char gLastError[256];
char gPortState[16];
std::atomic<std::chrono::steady_clock::rep> gLastEmptyRead;

}  // namespace

void WatchModuleLog(int priority, const char* tag, const char* text) {
  const size_t prefix = sizeof(kStateLine) - 1;
  if (priority >= ANDROID_LOG_ERROR) {
    const std::lock_guard<std::mutex> lock(gMutex);
    std::snprintf(gLastError, sizeof(gLastError), "%s: %s", tag, text);
    if (std::strncmp(text, kEmptyReadLine, sizeof(kEmptyReadLine) - 1) == 0) {
      gLastEmptyRead = std::chrono::steady_clock::now().time_since_epoch().count();
    }
  } else if (std::strncmp(text, kStateLine, prefix) == 0) {
    const std::lock_guard<std::mutex> lock(gMutex);
    std::snprintf(gPortState, sizeof(gPortState), "%.*s",
                  static_cast<int>(std::strcspn(text + prefix, ",")), text + prefix);
  }
}

std::string LastModuleError() {
  const std::lock_guard<std::mutex> lock(gMutex);
  return gLastError;
}

std::string LastPortState() {
  const std::lock_guard<std::mutex> lock(gMutex);
  return gPortState;
}

std::chrono::steady_clock::time_point LastEmptyRead() {
  return std::chrono::steady_clock::time_point(
      std::chrono::steady_clock::duration(gLastEmptyRead.load()));
}

}  // namespace tools
