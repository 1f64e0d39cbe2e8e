#include "platform/host/binaural_host.h"

#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace {

std::mutex g_mutex;
std::map<std::string, std::string> g_redirects;  // device path -> host path, guarded by g_mutex

// Whether `path` is `folder` or lies below it; "/odm" covers "/odm/etc" but not "/odmx".
bool covers(std::string_view folder, std::string_view path) {
  return path.substr(0, folder.size()) == folder &&
         (path.size() == folder.size() || path[folder.size()] == '/');
}

}  // namespace

void host_redirect(const char* device_path, const char* host_path) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  if (host_path == nullptr || *host_path == '\0') {
    g_redirects.erase(device_path);
  } else {
    g_redirects[device_path] = host_path;
  }
}

HostPath host_resolve(const char* path) noexcept {
  const char* head = "";
  const char* tail = path;
  HostPath resolved;
  const std::lock_guard<std::mutex> lock(g_mutex);
  // Sorted keys, each a prefix of the path: the last one that covers it is the longest.
  for (const auto& [device_path, host_path] : g_redirects) {
    if (covers(device_path, path)) {
      head = host_path.c_str();
      tail = path + device_path.size();
    }
  }
  const int length = std::snprintf(resolved.text, sizeof resolved.text, "%s%s", head, tail);
  if (length < 0 || static_cast<size_t>(length) >= sizeof resolved.text) {
    resolved.text[0] = '\0';
  }
  return resolved;
}
