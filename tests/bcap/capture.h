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
inline const std::vector<int32_t> kPreset1(A_PEQ_TUNING_DATA_PRESET1_SR48K,
                                           A_PEQ_TUNING_DATA_PRESET1_SR48K + 73);

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
  Stereo Then(const Stereo& next) const {
    Stereo both = *this;
    both.left.insert(both.left.end(), next.left.begin(), next.left.end());
    both.right.insert(both.right.end(), next.right.begin(), next.right.end());
    return both;
  }
  bool operator==(const Stereo& other) const { return left == other.left && right == other.right; }
};

inline int16_t to_pcm(double value) {
  return static_cast<int16_t>(std::lrint(std::fmin(std::fmax(value * 32768.0, -32768.0), 32767.0)));
}

class Capture {
 public:
  explicit Capture(uint32_t mode = 0, uint32_t rate = 48000) : config_{rate, 512, mode, 600} {
    memory_.assign(bcap_query_memory(&config_), '\xA5');  // as it may come from a heap
    scratch_.assign(bcap_query_scratch(&config_), '\xA5');
    bcap_init(&config_, memory_.data(), &handle_);
    if (handle_ == nullptr) {
      throw std::runtime_error("configuration refused");
    }
  }
  ~Capture() { bcap_shutdown(handle_); }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  bcap_handle_t handle() const { return handle_; }

  Capture& Set(int (*setter)(bcap_handle_t, int32_t), int32_t value) {
    setter(handle_, value);
    return *this;
  }
  // Its table of energies; flat when null.
  Capture& NearField(const int32_t* energies = A_NFM_TUNING_DATA_SR48K) {
    bcap_nfm_band_energy_tuning_set(handle_, 73, energies);
    return *this;
  }
  Capture& Equalise(const std::vector<int32_t>& gains) {
    bcap_peq_band_gain_tuning_set(handle_, static_cast<int32_t>(gains.size()), gains.data());
    return *this;
  }

  // Every switch off; both band tables are flat from the start.
  Capture& AllOff() { return Set(bcap_hpf_enable_set, 0).Set(bcap_lrc_enable_set, 0); }
  // The stages with a gain, at one in sixteenths of a decibel.
  Capture& GainBefore(int32_t boost) {
    return Set(bcap_pregain_enable_set, 1).Set(bcap_pregain_boost_set, boost);
  }
  Capture& MakeUpGain(int32_t boost) {
    return Set(bcap_postgain_enable_set, 1).Set(bcap_postgain_boost_set, boost);
  }

  // The settings of the built-in profile for a scene ahead.
  Capture& Everything() {
    GainBefore(256).MakeUpGain(320).Set(bcap_postgain_limiter_peak_set, 241);
    Set(bcap_hpf_enable_set, 1).Set(bcap_rnn_enable_set, 1).Set(bcap_rmx_amount_set, 9);
    return NearField().Equalise(kPreset1);
  }

  // Whole blocks, from planar to planar memory, or interleaved and in place as the module does it.
  Stereo Process(const Stereo& input, bool in_place = false) {
    Stereo in = input;
    Stereo out(in.frames());
    for (size_t at = 0; at + kBlock <= in.frames(); at += kBlock) {
      int16_t frames[2 * kBlock];
      for (size_t n = 0; n < kBlock; ++n) {
        frames[2 * n] = in.left[at + n];
        frames[2 * n + 1] = in.right[at + n];
      }
      int16_t* interleaved[2] = {frames, frames + 1};
      int16_t* from[2] = {&in.left[at], &in.right[at]};
      int16_t* to[2] = {&out.left[at], &out.right[at]};
      const bcap_buffer_desc_t both{2, 2, 4, interleaved}, source{2, 2, 2, from}, sink{2, 2, 2, to};
      if (bcap_pre_process(handle_, in_place ? &both : &source, in_place ? &both : &sink,
                           scratch_.data()) != 0) {
        throw std::runtime_error("block refused");
      }
      for (size_t n = 0; in_place && n < kBlock; ++n) {
        out.left[at + n] = frames[2 * n];
        out.right[at + n] = frames[2 * n + 1];
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

// Largest second difference of one ear from a sample on: a click stands out of a tone by it.
inline double steepest(const std::vector<int16_t>& samples, size_t first) {
  double largest = 0.0;
  for (size_t n = first; n < samples.size(); ++n) {
    largest = std::fmax(largest, std::fabs(samples[n] - 2.0 * samples[n - 1] + samples[n - 2]));
  }
  return largest / 32768.0;
}
