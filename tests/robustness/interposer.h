// Stands between the test program and the C library: fails the allocations that a test chooses and
// counts what real-time code must not do. Everything concerns the calling thread only.
//
// Plain builds interpose malloc and its family for the whole process, and the calls that wait, sleep
// or write. A sanitizer brings its own allocator: there only operator new and the product's own calls
// of the malloc family are seen (the linker's --wrap), and leaks are the sanitizer's to find.
#ifndef TESTS_ROBUSTNESS_INTERPOSER_H_
#define TESTS_ROBUSTNESS_INTERPOSER_H_

#include <cstdint>

namespace interposer {

constexpr uint64_t kNever = 0;

// Fails the n-th allocation from here on (the first is 1), alone or with all that follow.
class FailingAllocations {
 public:
  enum class Extent { kOnce, kForGood };
  FailingAllocations(uint64_t nth, Extent extent);
  ~FailingAllocations();
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;

  // Whether the n-th allocation has been asked for.
  bool reached() const;
};

// Blocks that are allocated and not freed, of all threads.
int64_t LiveBlocks();

#if !defined(BINAURAL_TEST_SANITIZED)
// What the calling thread has done while a watch lived.
struct Deeds {
  uint64_t allocations = 0;
  uint64_t frees = 0;
  uint64_t lock_calls = 0;  // pthread_mutex_lock
  uint64_t waits = 0;       // a lock that was held, a condition, a sleep
  uint64_t file_calls = 0;  // open, read, write and their like
};

class Watch {
 public:
  Watch();
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  Deeds deeds() const;
};
#endif

}  // namespace interposer

#endif  // TESTS_ROBUSTNESS_INTERPOSER_H_
