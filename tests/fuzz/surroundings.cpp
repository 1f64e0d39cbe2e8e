#include "tests/fuzz/surroundings.h"

#include <errno.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_runtime.h"
#include "tests/robustness/quiet_log.h"
#include "tests/robustness/scripted_session.h"

namespace {

// How far the waits have moved the monotonic clock, in seconds.
time_t g_clock_ahead_s;

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* now) noexcept {
  const int result = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
  if (clock == CLOCK_MONOTONIC) {
    now->tv_sec += g_clock_ahead_s;
  }
  return result;
}

int pthread_cond_clockwait(pthread_cond_t*, pthread_mutex_t*, clockid_t clock,
                           const timespec* until) {
  timespec now{};
  clock_gettime(clock, &now);
  if (until->tv_sec >= now.tv_sec) {
    g_clock_ahead_s += until->tv_sec - now.tv_sec + 1;
  }
  return ETIMEDOUT;
}

int usleep(useconds_t) {
  return 0;
}
}

namespace fuzz {

Surroundings::Surroundings() {
  static const QuietLog log(ANDROID_LOG_INFO);
  gAlgoVersion = 0;
  gRuntimeParam = {};
}

Surroundings::~Surroundings() {
  scripted_session::Reset();
  binaural_algorithm_release_1_0(&gRuntimeParam);
}

}  // namespace fuzz
