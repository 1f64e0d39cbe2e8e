// Measures what is recorded: peaks, clipped samples, loudness. Fed by the capture thread; the live
// values may be read from any thread, the final ones once the capture thread has ended.
#ifndef TOOLS_RECORD_METER_H
#define TOOLS_RECORD_METER_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ebur128.h>
#include <memory>

namespace tools {

// Decibels relative to full scale of a 16-bit magnitude; minus infinity for 0.
double DbFullScale(int magnitude);

class Meter {
 public:
  Meter(int channels, int sample_rate_hz);
  void Add(const int16_t* samples, size_t frames);

  // The largest magnitude of a channel since the last call; any thread.
  int TakePeak(size_t channel) { return recent_peak_[channel].exchange(0); }
  // Samples at either end of the 16-bit range; any thread.
  uint64_t clipped_samples() const { return clipped_samples_; }

  // Largest magnitude of the whole recording.
  int peak(size_t channel) const { return peak_[channel]; }
  // Integrated loudness in LUFS (EBU R 128, gated); minus infinity when nothing passed the gate.
  double IntegratedLoudnessLufs() const;
  int channels() const { return channels_; }

 private:
  struct FreeLoudness {
    void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
  };
  const int channels_;
  std::array<std::atomic<int>, 2> recent_peak_{};
  std::atomic<uint64_t> clipped_samples_{0};
  std::array<int, 2> peak_{};
  std::unique_ptr<ebur128_state, FreeLoudness> loudness_;
};

}  // namespace tools

#endif
