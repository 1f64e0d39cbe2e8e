// An instance of the capture library as a test drives it, and signals to feed it. Samples are 16-bit,
// levels relative to a full-scale square wave (0 dB).
#pragma once

#include <cmath>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include "bcap.h"
#include "bcap_inspect.h"

constexpr size_t kBlock = 512;

struct Stereo {
  std::vector<int16_t> left;
  std::vector<int16_t> right;

  Stereo() = default;
  explicit Stereo(size_t frames) : left(frames), right(frames) {}
  size_t frames() const { return left.size(); }
  Stereo Swapped() const {
    Stereo other = *this;
    std::swap(other.left, other.right);
    return other;
  }
  // Frames from `first` on, `count` of them.
  Stereo Part(size_t first, size_t count) const {
    Stereo part;
    part.left.assign(&left[first], &left[first] + count);
    part.right.assign(&right[first], &right[first] + count);
    return part;
  }
  bool operator==(const Stereo& other) const { return left == other.left && right == other.right; }
};

inline int16_t to_pcm(double value) {
  const double scaled = value * 32768.0;
  return static_cast<int16_t>(std::lrint(scaled < -32768.0  ? -32768.0
                                         : scaled > 32767.0 ? 32767.0
                                                            : scaled));
}

class Capture {
 public:
  explicit Capture(uint32_t mode = 0, uint32_t rate = 48000) : config_{rate, 512, mode, 600} {
    memory_.resize(bcap_query_memory(&config_));
    scratch_.resize(bcap_query_scratch(&config_));
    bcap_init(&config_, memory_.data(), &handle_);
    if (handle_ == nullptr) {
      throw std::runtime_error("configuration refused");
    }
  }
  ~Capture() { bcap_shutdown(handle_); }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  bcap_handle_t handle() const { return handle_; }

  // Every switch off; both band tables are flat from the start.
  Capture& AllOff() {
    bcap_hpf_enable_set(handle_, 0);
    bcap_lrc_enable_set(handle_, 0);
    return *this;
  }

  // The settings of the built-in profile for a scene ahead.
  Capture& Everything() {
    bcap_hpf_enable_set(handle_, 1);
    bcap_pregain_enable_set(handle_, 1);
    bcap_pregain_boost_set(handle_, 256);
    bcap_rnn_enable_set(handle_, 1);
    bcap_postgain_enable_set(handle_, 1);
    bcap_postgain_boost_set(handle_, 320);
    bcap_postgain_limiter_peak_set(handle_, 241);
    bcap_rmx_amount_set(handle_, 9);
    bcap_peq_band_gain_tuning_set(handle_, 73, A_PEQ_TUNING_DATA_PRESET1_SR48K);
    bcap_nfm_band_energy_tuning_set(handle_, 73, A_NFM_TUNING_DATA_SR48K);
    return *this;
  }

  // One block, interleaved and in place, as the module does it.
  int ProcessInPlace(int16_t* frames) {
    int16_t* channels[2] = {frames, frames + 1};
    const bcap_buffer_desc_t desc{2, 2, 4, channels};
    return bcap_pre_process(handle_, &desc, &desc, scratch_.data());
  }

  // Whole blocks, from planar to planar memory.
  Stereo Process(const Stereo& input) {
    Stereo in = input;
    Stereo out(in.frames());
    for (size_t at = 0; at + kBlock <= in.frames(); at += kBlock) {
      int16_t* from[2] = {&in.left[at], &in.right[at]};
      int16_t* to[2] = {&out.left[at], &out.right[at]};
      const bcap_buffer_desc_t source{2, 2, 2, from};
      const bcap_buffer_desc_t sink{2, 2, 2, to};
      if (bcap_pre_process(handle_, &source, &sink, scratch_.data()) != 0) {
        throw std::runtime_error("block refused");
      }
    }
    return out;
  }

 private:
  bcap_config_t config_;
  std::vector<char> memory_;
  std::vector<char> scratch_;
  bcap_handle_t handle_ = nullptr;
};

inline size_t whole_blocks(double seconds, double rate = 48000.0) {
  return static_cast<size_t>(seconds * rate / kBlock) * kBlock;
}

inline double from_db(double db) {
  return std::pow(10.0, db / 20.0);
}

// A sine of the given peak in each ear.
inline Stereo sine(double hz, double left_peak, double right_peak, size_t frames,
                   double rate = 48000.0) {
  Stereo s(frames);
  for (size_t n = 0; n < frames; ++n) {
    const double value = std::sin(2.0 * M_PI * hz * static_cast<double>(n) / rate);
    s.left[n] = to_pcm(left_peak * value);
    s.right[n] = to_pcm(right_peak * value);
  }
  return s;
}

// White noise, independent in both ears, of the given root mean square, nearly normal.
inline Stereo noise(double rms, size_t frames, uint32_t seed = 1) {
  uint64_t random = seed;
  const auto uniform = [&random] {  // -0.5 .. 0.5, D. Knuth's linear congruential generator MMIX
    random = random * 6364136223846793005u + 1442695040888963407u;
    return static_cast<double>(random >> 40) / (1 << 24) - 0.5;
  };
  // Three uniform numbers have a variance of 3 / 12.
  const auto normal = [&uniform] { return 2.0 * (uniform() + uniform() + uniform()); };
  Stereo s(frames);
  for (size_t n = 0; n < frames; ++n) {
    s.left[n] = to_pcm(rms * normal());
    s.right[n] = to_pcm(rms * normal());
  }
  return s;
}

// Root mean square of a part of one ear, dB.
inline double level_db(const std::vector<int16_t>& samples, size_t first, size_t count) {
  double sum = 1e-12;
  for (size_t n = first; n < first + count; ++n) {
    sum += static_cast<double>(samples[n]) * samples[n];
  }
  return 10.0 * std::log10(sum / static_cast<double>(count) / (32768.0 * 32768.0));
}
inline double level_db(const std::vector<int16_t>& samples, size_t first) {
  return level_db(samples, first, samples.size() - first);
}
