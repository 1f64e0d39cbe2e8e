// A loadable library for the loader's and the recorder's tests, whose device never opens; the build
// makes one of each kind.
#include <hardware/hardware.h>

#ifdef FAKE_MISSING_DEPENDENCY
extern "C" void absent_everywhere();
extern "C" void need_absent_symbol() {
  absent_everywhere();
}
#endif

namespace {
int Open(const hw_module_t*, const char*, hw_device_t**) {
  return -12;
}
hw_module_methods_t g_methods{Open};
}  // namespace

extern "C" {
hw_module_t HAL_MODULE_INFO_SYM = {HARDWARE_MODULE_TAG, 1,       0x0100, FAKE_ID, "fake", "tests",
                                   &g_methods,          nullptr, {}};
}
