// The module's mutexes. All of them are constant-initialised and trivially destructible, which the
// C++ library's mutex is not everywhere: session and reader threads may outlive static destructors.
#ifndef BINAURAL_RECORD_UTILS_LOCKS_H_
#define BINAURAL_RECORD_UTILS_LOCKS_H_

#include <pthread.h>

#include <mutex>

namespace vendor::corva::binaural_record::utils {

// For globals. Meets BasicLockable.
class StaticMutex {
 public:
  void lock() { pthread_mutex_lock(&mutex_); }
  void unlock() { pthread_mutex_unlock(&mutex_); }

 private:
  friend class Condition;

  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

using StaticLock = std::lock_guard<StaticMutex>;

// Waited for with a deadline on the monotonic clock.
class Condition {
 public:
  Condition();
  ~Condition() { pthread_cond_destroy(&condition_); }
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;

  void NotifyAll() { pthread_cond_broadcast(&condition_); }

  // Waits until `predicate` holds; false when it does not after `limit_ms`. The caller holds `mutex`.
  template <typename Predicate>
  bool WaitFor(StaticMutex& mutex, int limit_ms, Predicate predicate) {
    const timespec deadline = DeadlineAfter(limit_ms);
    while (!predicate()) {
      if (pthread_cond_timedwait(&condition_, &mutex.mutex_, &deadline) != 0) {
        return predicate();
      }
    }
    return true;
  }

 private:
  static timespec DeadlineAfter(int limit_ms);

  pthread_cond_t condition_;
};

// The lock over the algorithm's runtime: `gRuntimeParam` with its buffers, instance and timestamp
// slots, and the coefficient store.
//
// Taken by control threads for the length of a release, an initialisation or a settings store, and
// by the capture thread section by section (ring operation, one processed block). Recursive, so that
// a release and a re-initialisation can be one section; priority-inheriting where the platform offers
// it, so that a control thread holding it runs at the capture thread's priority. Never held across
// a call into the Bluetooth session library. Inside it: gPreBuffMutex or gPostBuffMutex, one at a
// time, the capture library's instance mutex, and the registry's mutex.
class RuntimeMutex {
 public:
  void lock();
  void unlock();
};

using RuntimeLock = std::lock_guard<RuntimeMutex>;

extern RuntimeMutex gRuntimeMutex;

}  // namespace vendor::corva::binaural_record::utils

#endif  // BINAURAL_RECORD_UTILS_LOCKS_H_
