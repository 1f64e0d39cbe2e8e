// A mutex that the compiler's thread-safety analysis understands (clang, -Wthread-safety). Setters lock
// it, stages only try; it is held for the length of a few stores or one copy of the parameters.
#pragma once

#include <mutex>

#ifdef __clang__
#define BCAP_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define BCAP_THREAD_ANNOTATION(x)
#endif
#define BCAP_GUARDED_BY(m) BCAP_THREAD_ANNOTATION(guarded_by(m))

namespace bcap {

class BCAP_THREAD_ANNOTATION(capability("mutex")) Mutex {
 public:
  void lock() BCAP_THREAD_ANNOTATION(acquire_capability()) { mutex_.lock(); }
  bool try_lock() BCAP_THREAD_ANNOTATION(try_acquire_capability(true)) { return mutex_.try_lock(); }
  void unlock() BCAP_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

class BCAP_THREAD_ANNOTATION(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) BCAP_THREAD_ANNOTATION(acquire_capability(mutex))
      : mutex_(mutex) {
    mutex_.lock();
  }
  ~MutexLock() BCAP_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace bcap
