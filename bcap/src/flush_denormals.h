// Flushes denormal numbers to zero while it lives, then restores the thread's mode: decaying filters would
// otherwise slow down many times over in silence. One per stage.
#pragma once

#include <cstdint>

#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

namespace bcap {

class FlushDenormals {
 public:
  FlushDenormals() : saved_(Read()) { Write(saved_ | kFlush); }
  ~FlushDenormals() { Write(saved_); }
  FlushDenormals(const FlushDenormals&) = delete;
  FlushDenormals& operator=(const FlushDenormals&) = delete;

 private:
#if defined(__SSE2__)
  static constexpr uint32_t kFlush = 0x8040;  // flush results to zero, read denormals as zero
  static uint32_t Read() {
    return _mm_getcsr();
  }
  static void Write(uint32_t mode) {
    _mm_setcsr(mode);
  }
#elif defined(__arm__) && defined(__ARM_FP)
  static constexpr uint32_t kFlush = 1u << 24;
  static uint32_t Read() {
    uint32_t mode = 0;
    asm volatile("vmrs %0, fpscr" : "=r"(mode));
    return mode;
  }
  static void Write(uint32_t mode) {
    asm volatile("vmsr fpscr, %0" : : "r"(mode));
  }
#elif defined(__aarch64__)
  static constexpr uint64_t kFlush = 1u << 24;
  static uint64_t Read() {
    uint64_t mode = 0;
    asm volatile("mrs %0, fpcr" : "=r"(mode));
    return mode;
  }
  static void Write(uint64_t mode) {
    asm volatile("msr fpcr, %0" : : "r"(mode));
  }
#else
  static constexpr uint32_t kFlush = 0;
  static uint32_t Read() {
    return 0;
  }
  static void Write(uint32_t /*mode*/) {}
#endif
  decltype(Read()) saved_;
};

}  // namespace bcap
