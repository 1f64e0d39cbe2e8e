#include "platform/host/host_loader.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "platform/host/binaural_host.h"

namespace {

#ifdef __LP64__
#define LIBRARY_FOLDER "lib64"
#else
#define LIBRARY_FOLDER "lib"
#endif
constexpr const char* kFolders[] = {"/odm/" LIBRARY_FOLDER "/hw", "/vendor/" LIBRARY_FOLDER "/hw",
                                    "/system/" LIBRARY_FOLDER "/hw"};
constexpr const char* kVariantProperties[] = {"ro.hardware", "ro.product.board",
                                              "ro.board.platform", "ro.arch"};

std::map<std::string, std::string> g_properties;
std::string g_error;

std::string canonical(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) == nullptr ? std::string() : resolved;
}

// The variants that may follow the base name, in search order.
std::vector<std::string> variants(const std::string& base_name) {
  std::vector<std::string> found;
  const auto add_property = [&found](const std::string& name) {
    const auto property = g_properties.find(name);
    if (property != g_properties.end() && !property->second.empty()) {
      found.push_back(property->second);
    }
  };
  add_property("ro.hardware." + base_name);
  for (const char* name : kVariantProperties) {
    add_property(name);
  }
  found.emplace_back("default");
  return found;
}

// A link that leads out of the folder is passed over.
bool is_inside(const std::string& file, const std::string& folder) {
  const std::string real_file = canonical(file);
  const std::string real_folder = canonical(folder);
  return !real_file.empty() && !real_folder.empty() &&
         real_file.compare(0, real_folder.size() + 1, real_folder + "/") == 0;
}

}  // namespace

void host_set_property(const char* name, const char* value) {
  if (value == nullptr) {
    g_properties.erase(name);
  } else {
    g_properties[name] = value;
  }
}

int host_load_module(const char* path, const char* class_id, const hw_module_t** module) {
  *module = nullptr;
  void* handle = dlopen(path, RTLD_NOW);
  if (handle == nullptr) {
    const char* reason = dlerror();
    g_error = reason == nullptr ? std::string(path) + ": cannot be loaded" : reason;
    return -EINVAL;
  }
  auto* found = static_cast<hw_module_t*>(dlsym(handle, HAL_MODULE_INFO_SYM_AS_STR));
  if (found == nullptr) {
    g_error = std::string(path) + ": has no symbol " HAL_MODULE_INFO_SYM_AS_STR;
  } else if (std::strcmp(found->id, class_id) != 0) {
    g_error = std::string(path) + ": is of class \"" + found->id + "\", not \"" + class_id + "\"";
  } else {
    found->dso = handle;
    *module = found;
    return 0;
  }
  dlclose(handle);
  return -EINVAL;
}

int hw_get_module_by_class(const char* class_id, const char* instance, const hw_module_t** module) {
  const std::string base_name =
      instance == nullptr ? std::string(class_id) : std::string(class_id) + "." + instance;
  g_error = "no file " + base_name + ".*.so in";
  for (const std::string& variant : variants(base_name)) {
    for (const char* device_folder : kFolders) {
      const std::string folder = host_resolve(device_folder).text;
      std::string file = folder;
      file.append("/").append(base_name).append(".").append(variant).append(".so");
      // The first file taken decides; if it does not load, no other variant is tried.
      if (is_inside(file, folder) && access(file.c_str(), R_OK) == 0) {
        return host_load_module(file.c_str(), class_id, module);
      }
    }
  }
  for (const char* device_folder : kFolders) {
    g_error += std::string(" ") + host_resolve(device_folder).text;
  }
  return -ENOENT;
}

int hw_get_module(const char* id, const hw_module_t** module) {
  return hw_get_module_by_class(id, nullptr, module);
}

const char* host_loader_error() {
  return g_error.c_str();
}
