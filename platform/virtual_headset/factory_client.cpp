// Stand-in for the factory client library: there is no service to bring up, so it only counts.
#include "platform/virtual_headset/factory_client.h"

#include <atomic>

#include "binaural_record_factory.h"

namespace {
std::atomic<uint64_t> g_calls{0};
}

extern "C" int binaural_record_factory_create() {
  ++g_calls;
  return 0;
}

uint64_t virtual_headset::FactoryCreateCalls() {
  return g_calls;
}
