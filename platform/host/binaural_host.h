// Where device paths lead on a development machine. The process has one table, held by the shared
// library libbinaural_host.so, so that the program and the module it loads see the same one. Product
// code never calls this: the linker's --wrap hands its file accesses to wraps.cpp, which asks here.
#ifndef PLATFORM_HOST_BINAURAL_HOST_H
#define PLATFORM_HOST_BINAURAL_HOST_H

#include <climits>

// A path by value: the stand-ins must work where memory is refused, so resolving allocates nothing.
struct HostPath {
  char text[PATH_MAX];
};

// Makes `device_path`, and everything below it when it names a folder, lead to `host_path`. The
// longest matching entry wins. A null or empty `host_path` removes the entry. Any thread.
void host_redirect(const char* device_path, const char* host_path);

// Where `path` leads: itself when no entry covers it, the empty path when the result would be longer
// than a path can be. Any thread.
HostPath host_resolve(const char* path) noexcept;

#endif  // PLATFORM_HOST_BINAURAL_HOST_H
