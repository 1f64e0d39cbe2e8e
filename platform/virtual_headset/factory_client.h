// Test access to the stand-in for the factory client library.
#ifndef PLATFORM_VIRTUAL_HEADSET_FACTORY_CLIENT_H_
#define PLATFORM_VIRTUAL_HEADSET_FACTORY_CLIENT_H_

#include <cstdint>

namespace virtual_headset {

// Calls of binaural_record_factory_create in this process so far.
uint64_t FactoryCreateCalls();

}  // namespace virtual_headset

#endif  // PLATFORM_VIRTUAL_HEADSET_FACTORY_CLIENT_H_
