// A module whose device never opens.
#include <hardware/hardware.h>

namespace {
int Open(const hw_module_t*, const char*, hw_device_t**) {
  return -12;
}
hw_module_methods_t gMethods = {Open};
}  // namespace

__attribute__((visibility("default")))
hw_module_t HAL_MODULE_INFO_SYM = {HARDWARE_MODULE_TAG, 1,          HARDWARE_HAL_API_VERSION,
                                   MODULE_CLASS,        "refusing", "tests",
                                   &gMethods,           nullptr,    {}};
