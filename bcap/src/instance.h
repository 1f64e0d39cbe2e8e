// An instance in its caller's memory: a header at the handle, which is aligned to 4 only, and behind it the
// core, aligned to 16 for vector loads and for the mutex.
#pragma once

#include <atomic>

#include "chain.h"
#include "mutex.h"
#include "parameters.h"

namespace bcap {

struct alignas(16) Core {
  Mutex mutex;
  // Fixed from bcap_init on.
  uint32_t sample_rate = 0;
  uint32_t block_size = 0;
  uint32_t mode = 0;

  Parameters pending BCAP_GUARDED_BY(mutex){};
  ChangeFlags changed BCAP_GUARDED_BY(mutex){};
  std::atomic<bool> reset_requested{false};

  // Belong to the thread that runs the stages.
  Parameters active{};
  Chain chain;
};

// Bytes to clear from the handle on, and what the size queries report: one place, so that they agree.
struct InstanceSize {
  uint32_t cleared_bytes;     // from the handle
  uint32_t persistent_bytes;  // for memory of any alignment
  uint32_t scratch_bytes;     // likewise
};
InstanceSize instance_size();

// The core of a live instance, or null for a null, misaligned, cleared or foreign handle.
Core* find_core(bcap_handle_t handle);

}  // namespace bcap
