// A loadable library for the loader's tests; the build makes one of each kind.
#include <hardware/hardware.h>

#ifdef FAKE_MISSING_DEPENDENCY
extern "C" void absent_everywhere();
extern "C" void need_absent_symbol() {
  absent_everywhere();
}
#endif

#ifdef FAKE_ID
namespace {
hw_module_methods_t g_methods{};
}

extern "C" {
hw_module_t HAL_MODULE_INFO_SYM = {HARDWARE_MODULE_TAG, 1,          0x0100,  FAKE_ID, "fake module",
                                   FAKE_NAME,           &g_methods, nullptr, {}};
}
#endif
