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
constexpr char kDeviceOpenLine[] = "adev_binaural_record_open";
constexpr char kTuningLine[] = "algo_change_scene_parameters binauralUse";

std::mutex gMutex;
char gLastError[256];
char gCoefficientRefusal[256];
char gPortState[16];
std::atomic<std::chrono::steady_clock::rep> gLastEmptyRead;
std::atomic<bool> gTunedFromFile;

template <size_t N>
bool Begins(const char* text, const char (&with)[N]) {
  return std::strncmp(text, with, N - 1) == 0;
}

// The device opens all the same, and two of the refusals are no errors to the module.
bool RefusesCoefficients(int priority, const char* text) {
  return Begins(text, kDeviceOpenLine) &&
         (priority >= ANDROID_LOG_ERROR || std::strstr(text, "COEFF_CONFIG_FILE fail") != nullptr ||
          std::strstr(text, "config error") != nullptr);
}

}  // namespace

void WatchModuleLog(int priority, const char* tag, const char* text) {
  if (RefusesCoefficients(priority, text)) {
    const std::lock_guard<std::mutex> lock(gMutex);
    std::snprintf(gCoefficientRefusal, sizeof(gCoefficientRefusal), "%s: %s", tag, text);
  }
  if (Begins(text, kTuningLine)) {
    gTunedFromFile = Begins(text + sizeof(kTuningLine) - 1, "Config");
  }
  const size_t prefix = sizeof(kStateLine) - 1;
  if (priority >= ANDROID_LOG_ERROR) {
    const std::lock_guard<std::mutex> lock(gMutex);
    std::snprintf(gLastError, sizeof(gLastError), "%s: %s", tag, text);
    if (Begins(text, kEmptyReadLine)) {
      gLastEmptyRead = std::chrono::steady_clock::now().time_since_epoch().count();
    }
  } else if (Begins(text, kStateLine)) {
    const std::lock_guard<std::mutex> lock(gMutex);
    std::snprintf(gPortState, sizeof(gPortState), "%.*s",
                  static_cast<int>(std::strcspn(text + prefix, ",")), text + prefix);
  }
}

std::string LastModuleError() {
  const std::lock_guard<std::mutex> lock(gMutex);
  return gLastError;
}

std::string CoefficientRefusal() {
  const std::lock_guard<std::mutex> lock(gMutex);
  return gCoefficientRefusal;
}

bool TunedFromFile() {
  return gTunedFromFile;
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
