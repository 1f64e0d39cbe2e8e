// Stands between the test program and the C library: fails the allocations that a test chooses and
// counts what real-time code must not do. Everything concerns the calling thread only.
//
// Plain builds interpose malloc and its family for the whole process, and the calls that wait, sleep
// or write. A sanitizer brings its own allocator: there only operator new and the product's own calls
// of the malloc family are seen (the linker's --wrap), and leaks are the sanitizer's to find.
#pragma once

#include <array>
#include <cstdint>

namespace interposer {

// Fails the n-th allocation from here on (the first is 1), alone or with all that follow.
class FailingAllocations {
 public:
  FailingAllocations(uint64_t nth, bool for_good);
  ~FailingAllocations();

  // Whether the n-th allocation has been asked for.
  bool reached() const;
};

// Blocks that are allocated and not freed, of all threads.
int64_t LiveBlocks();

#if !defined(BINAURAL_TEST_SANITIZED)
// What real-time code must not do: the malloc family, free, pthread_mutex_lock; a lock that was held, a
// condition, a sleep; read, write and their like.
enum Deed { kAllocation, kFree, kLock, kWait, kFileCall, kDeeds };
using Deeds = std::array<uint64_t, kDeeds>;

// Where the calling thread's are counted; null: it is not watched.
extern thread_local Deeds* t_deeds;

// How often the calling thread does each during a call.
template <typename Call>
Deeds DeedsOf(Call call) {
  Deeds deeds{};
  t_deeds = &deeds;
  call();
  t_deeds = nullptr;
  return deeds;
}
#endif

}  // namespace interposer
