// Stand-ins that the linker's --wrap puts in place of the five calls by which the product reaches
// device paths. Linked into the module and into every test or tool that contains product sources.
#include <cstdio>

#include <dlfcn.h>
#include <sys/stat.h>
#include <tinyxml2.h>
#include <unistd.h>

#include "platform/host/binaural_host.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker fixes these names.
extern "C" {

int __real_access(const char* path, int mode);
int __real_stat(const char* path, struct stat* status);
void* __real_dlopen(const char* path, int flags);
FILE* __real_fopen(const char* path, const char* mode);
tinyxml2::XMLError __real__ZN8tinyxml211XMLDocument8LoadFileEPKc(tinyxml2::XMLDocument* document,
                                                                 const char* path);

int __wrap_access(const char* path, int mode) {
  return __real_access(host_resolve(path).text, mode);
}

int __wrap_stat(const char* path, struct stat* status) {
  return __real_stat(host_resolve(path).text, status);
}

FILE* __wrap_fopen(const char* path, const char* mode) {
  return __real_fopen(host_resolve(path).text, mode);
}

// The device's loader takes flags 0 as immediate binding; this machine's C library refuses it.
void* __wrap_dlopen(const char* path, int flags) {
  const int host_flags = flags == 0 ? RTLD_NOW : flags;
  return path == nullptr ? __real_dlopen(nullptr, host_flags)
                         : __real_dlopen(host_resolve(path).text, host_flags);
}

// tinyxml2::XMLDocument::LoadFile(const char*): `this` is the first argument on every target here.
tinyxml2::XMLError __wrap__ZN8tinyxml211XMLDocument8LoadFileEPKc(tinyxml2::XMLDocument* document,
                                                                 const char* path) {
  return __real__ZN8tinyxml211XMLDocument8LoadFileEPKc(document, host_resolve(path).text);
}
}
// NOLINTEND(bugprone-reserved-identifier)
