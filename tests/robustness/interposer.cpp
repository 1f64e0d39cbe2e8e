#include "tests/robustness/interposer.h"

#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <new>

namespace {

struct Failing {
  uint64_t nth;  // 0: none
  bool for_good;
  uint64_t seen;
};

thread_local Failing t_failing;
std::atomic<int64_t> g_live_blocks;

// Counts one allocation of this thread; true when it is to fail.
bool Refuse() {
  auto& [nth, for_good, seen] = t_failing;
  const bool refuse = nth != 0 && (++seen == nth || (for_good && seen > nth));
  errno = refuse ? ENOMEM : errno;
  return refuse;
}

void* Counted(void* block) {
  g_live_blocks += block != nullptr;
  return block;
}

}  // namespace

namespace interposer {

FailingAllocations::FailingAllocations(uint64_t nth, bool for_good) {
  t_failing = {nth, for_good, 0};
}
FailingAllocations::~FailingAllocations() {
  t_failing = {};
}
bool FailingAllocations::reached() const {
  return t_failing.seen >= t_failing.nth;
}

int64_t LiveBlocks() {
  return g_live_blocks;
}

}  // namespace interposer

#if defined(BINAURAL_TEST_SANITIZED)

extern "C" {
void* __real_malloc(size_t bytes);
void* __real_calloc(size_t count, size_t bytes);
char* __real_strdup(const char* text);
}

// operator new of the whole program, and the malloc family as the product's objects call it.
void* operator new(size_t bytes) {
  void* block = Refuse() ? nullptr : __real_malloc(bytes);
  if (Counted(block) == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

void* operator new(size_t bytes, const std::nothrow_t&) noexcept {
  return Refuse() ? nullptr : Counted(__real_malloc(bytes));
}

void operator delete(void* block) noexcept {
  g_live_blocks -= block != nullptr;
  free(block);
}
void operator delete(void* block, size_t) noexcept {
  operator delete(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  operator delete(block);
}

extern "C" {
void* __wrap_malloc(size_t bytes) {
  return Refuse() ? nullptr : __real_malloc(bytes);
}
void* __wrap_calloc(size_t count, size_t bytes) {
  return Refuse() ? nullptr : __real_calloc(count, bytes);
}
char* __wrap_strdup(const char* text) {
  return Refuse() ? nullptr : __real_strdup(text);
}
}

#else

thread_local interposer::Deeds* interposer::t_deeds;

namespace {

// The C library's function of that name, behind ours.
template <auto kFunction>
auto Next(const char* name) {
  static std::atomic<void*> address{nullptr};
  if (address == nullptr) {
    address = dlsym(RTLD_NEXT, name);
  }
  return reinterpret_cast<decltype(kFunction)>(address.load());
}

void Note(interposer::Deed deed) {
  if (interposer::t_deeds != nullptr) {
    ++(*interposer::t_deeds)[deed];
  }
}

}  // namespace

extern "C" {

// The C library's allocator under the names that it keeps for programs that bring their own.
void* __libc_malloc(size_t bytes);
void* __libc_calloc(size_t count, size_t bytes);
void* __libc_realloc(void* block, size_t bytes);
void* __libc_memalign(size_t alignment, size_t bytes);
void __libc_free(void* block);

void* malloc(size_t bytes) noexcept {
  Note(interposer::kAllocation);
  return Counted(Refuse() ? nullptr : __libc_malloc(bytes));
}

void* calloc(size_t count, size_t bytes) noexcept {
  Note(interposer::kAllocation);
  return Counted(Refuse() ? nullptr : __libc_calloc(count, bytes));
}

void* realloc(void* block, size_t bytes) noexcept {
  Note(interposer::kAllocation);
  void* moved = Refuse() ? nullptr : __libc_realloc(block, bytes);
  return block == nullptr ? Counted(moved) : moved;
}

void* aligned_alloc(size_t alignment, size_t bytes) noexcept {
  Note(interposer::kAllocation);
  return Counted(Refuse() ? nullptr : __libc_memalign(alignment, bytes));
}

void free(void* block) noexcept {
  if (block != nullptr) {
    Note(interposer::kFree);
    --g_live_blocks;
  }
  __libc_free(block);
}

// A function that notes the deed and goes on to the C library's of that name, behind it.
#define PASS_ON(deed, Result, name, parameters, ...)                                               \
  Result name parameters {                                                                         \
    Note(interposer::deed);                                                                        \
    return Next<name>(#name)(__VA_ARGS__);                                                         \
  }
PASS_ON(kWait, int, pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t* mutex),
        condition, mutex)
PASS_ON(kWait, int, pthread_cond_clockwait,
        (pthread_cond_t * condition, pthread_mutex_t* mutex, clockid_t clock,
         const timespec* until),
        condition, mutex, clock, until)
PASS_ON(kWait, int, usleep, (useconds_t microseconds), microseconds)
PASS_ON(kWait, int, nanosleep, (const timespec* duration, timespec* rest), duration, rest)
PASS_ON(kFileCall, ssize_t, read, (int fd, void* buffer, size_t bytes), fd, buffer, bytes)
PASS_ON(kFileCall, ssize_t, write, (int fd, const void* buffer, size_t bytes), fd, buffer, bytes)
PASS_ON(kFileCall, ssize_t, writev, (int fd, const iovec* pieces, int count), fd, pieces, count)

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  Note(interposer::kLock);
  if (interposer::t_deeds != nullptr) {
    const int result = pthread_mutex_trylock(mutex);
    if (result != EBUSY) {
      return result;
    }
    Note(interposer::kWait);
  }
  return Next<pthread_mutex_lock>("pthread_mutex_lock")(mutex);
}

}  // extern "C"

#endif
