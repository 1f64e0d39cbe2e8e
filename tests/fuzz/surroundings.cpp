#include "tests/fuzz/surroundings.h"

#include <errno.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_runtime.h"
#include "platform/host/binaural_host.h"
#include "tests/fuzz/fuzz.h"
#include "tests/robustness/quiet_log.h"
#include "tests/robustness/scripted_session.h"

namespace {

// How far the waits have moved the monotonic clock, in seconds.
time_t g_clock_ahead_s;

int CoefficientFile() {
  static const int file = memfd_create("coefficients", 0);
  return file;
}

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
  static const std::string path = "/proc/self/fd/" + std::to_string(CoefficientFile());
  host_redirect(CoefficientPath(), path.c_str());
  gAlgoVersion = 0;
  gRuntimeParam = {};
}

Surroundings::~Surroundings() {
  scripted_session::Reset();
  binaural_algorithm_release_1_0(&gRuntimeParam);
}

void SetCoefficientFile(const void* text, size_t size) {
  FUZZ_CHECK(ftruncate(CoefficientFile(), 0) == 0);
  FUZZ_CHECK(pwrite(CoefficientFile(), text, size, 0) == static_cast<ssize_t>(size));
}

const char* CoefficientPath() {
  return "/odm/etc/binaural_record_algo_coeffs.xml";
}

}  // namespace fuzz
