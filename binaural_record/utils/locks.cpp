#include "binaural_record/utils/locks.h"

#include <time.h>

#include <type_traits>

namespace vendor::corva::binaural_record::utils {

RuntimeMutex gRuntimeMutex;

static_assert(std::is_trivially_destructible<StaticMutex>::value,
              "a thread that outlives static destructors must not find a destroyed mutex");

namespace {

pthread_mutex_t gMutex;
pthread_once_t gMutexOnce = PTHREAD_ONCE_INIT;

void InitMutex() {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
  if (pthread_mutex_init(&gMutex, &attributes) != 0) {
    // A kernel without priority inheritance: a plain recursive mutex cannot fail.
    pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_NONE);
    pthread_mutex_init(&gMutex, &attributes);
  }
  pthread_mutexattr_destroy(&attributes);
}

}  // namespace

Condition::Condition() {
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  pthread_cond_init(&condition_, &attributes);
  pthread_condattr_destroy(&attributes);
}

timespec Condition::DeadlineAfter(int limit_ms) {
  timespec deadline{};
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += limit_ms / 1000;
  deadline.tv_nsec += limit_ms % 1000 * 1000000L;
  if (deadline.tv_nsec >= 1000000000L) {
    ++deadline.tv_sec;
    deadline.tv_nsec -= 1000000000L;
  }
  return deadline;
}

void RuntimeMutex::lock() {
  pthread_once(&gMutexOnce, InitMutex);
  pthread_mutex_lock(&gMutex);
}

void RuntimeMutex::unlock() {
  pthread_mutex_unlock(&gMutex);
}

}  // namespace vendor::corva::binaural_record::utils
