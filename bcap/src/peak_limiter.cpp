// Look-ahead peak limiter; see peak_limiter.h. Real time: no allocation, lock, log, wait or file.
#include "peak_limiter.h"

#include <algorithm>
#include <cmath>

#include "constexpr_math.h"

namespace bcap {
namespace {

// Shorter is louder but lets the gain follow the waveform of a low voice; longer ducks what comes after.
constexpr float kReleaseSeconds = 0.08f;
constexpr float kAtRest = 0.99999f;  // a gain closer to 1 than that counts as 1

float group_peak(StereoBlock block, size_t first, size_t count) {
  float largest = 0.0f;
  for (size_t n = first; n < first + count; ++n) {
    largest = std::max(largest, std::max(std::fabs(block.left[n]), std::fabs(block.right[n])));
  }
  return largest;
}

}  // namespace

template <size_t kLookAheadSamples, size_t kLatencySamples>
void LimiterAround<kLookAheadSamples, kLatencySamples>::Prepare(uint32_t sample_rate_hz) {
  release_ = std::exp(-static_cast<float>(kGroupSamples) /
                      (kReleaseSeconds * static_cast<float>(sample_rate_hz)));
  double sum = 0.0;
  std::array<double, kGroups> hann{};
  for (size_t k = 0; k < kGroups; ++k) {
    const double s = std::sin(kPi * (static_cast<double>(k) + 0.5) / static_cast<double>(kGroups));
    hann[k] = s * s;
    sum += hann[k];
  }
  for (size_t k = 0; k < kGroups; ++k) {
    window_[k] = static_cast<float>(hann[k] / sum);
  }
  Reset();
}

template <size_t kLookAheadSamples, size_t kLatencySamples>
void LimiterAround<kLookAheadSamples, kLatencySamples>::Reset() {
  last_samples_ = {};
  needed_.fill(1.0f);
  released_.fill(1.0f);
  smooth_.fill(1.0f);
  gain_ = 1.0f;
}

template <size_t kLookAheadSamples, size_t kLatencySamples>
void LimiterAround<kLookAheadSamples, kLatencySamples>::PeaksBetween(
    StereoBlock block, std::array<float, kBlockGroups + 1>& largest) const {
  // sinc(t) sinc(t / 4) at t = 1/2, 3/2, 5/2, 7/2 (C. Duchon, "Lanczos filtering in one and two dimensions",
  // 1979), scaled for a gain of 1 at 0 Hz.
  constexpr std::array<float, 4> kTaps{0.618877f, -0.166011f, 0.059764f, -0.012630f};
  std::array<float, kBlockFrames> between{};
  for (size_t ear = 0; ear < kEars; ++ear) {
    std::array<float, kBefore + kBlockFrames> samples;
    std::copy_n(last_samples_[ear].begin(), kBefore, samples.begin());
    std::copy_n(block.ear(ear), kBlockFrames, samples.begin() + kBefore);
    for (size_t n = 0; n < kBlockFrames; ++n) {
      float midway = 0.0f;
      for (size_t k = 0; k < kTaps.size(); ++k) {
        midway += kTaps[k] * (samples[n + 3 - k] + samples[n + 4 + k]);
      }
      between[n] = std::max(between[n], std::fabs(midway));
    }
  }
  // between[n] lies behind sample n - 4 of this block.
  largest.fill(0.0f);
  for (size_t n = 0; n < kBlockFrames; ++n) {
    float& group = largest[(n + 4) / kGroupSamples];
    group = std::max(group, between[n]);
  }
}

template <size_t kLookAheadSamples, size_t kLatencySamples>
void LimiterAround<kLookAheadSamples, kLatencySamples>::Hear(StereoBlock block, float peak,
                                                             bool true_peak) {
  // The first two: the past first, then one gain per group of this block.
  std::array<float, kGroups + kBlockGroups> needed;
  std::array<float, kGroups + kBlockGroups> released;
  std::array<float, kBlockGroups> wanted;
  float* smooth = smooth_.data() + kWaiting;

  std::copy(smooth_.begin() + kBlockGroups, smooth_.end(), smooth_.begin());
  std::copy_n(needed_.begin(), kGroups, needed.begin());
  for (size_t group = 0; group < kBlockGroups; ++group) {
    const float largest = group_peak(block, group * kGroupSamples, kGroupSamples);
    needed[kGroups + group] = largest > peak ? peak / largest : 1.0f;
  }
  if (true_peak) {
    // What lies behind the last samples of a block is known one block later only; its group has then entered the
    // average once, with the smallest weight.
    std::array<float, kBlockGroups + 1> largest;
    PeaksBetween(block, largest);
    for (size_t group = 0; group < largest.size(); ++group) {
      float& need = needed[kGroups - 1 + group];
      need = largest[group] > peak ? std::min(need, peak / largest[group]) : need;
    }
  }
  for (size_t ear = 0; ear < kEars; ++ear) {
    std::copy_n(block.ear(ear) + kBlockFrames - kBefore, kBefore, last_samples_[ear].begin());
  }
  std::copy_n(needed.begin() + kBlockGroups, kGroups, needed_.begin());
  const auto is_one = [](float gain) { return gain == 1.0f; };
  if (std::all_of(needed.begin(), needed.end(), is_one) &&
      std::all_of(released_.begin(), released_.end(), is_one)) {
    std::fill_n(smooth, kBlockGroups, 1.0f);
    return;  // at rest
  }

  // The smallest gain from the group that leaves up to the one that enters.
  wanted.fill(1.0f);
  for (size_t k = 0; k <= kGroups; ++k) {
    for (size_t group = 0; group < kBlockGroups; ++group) {
      wanted[group] = std::min(wanted[group], needed[group + k]);
    }
  }

  const size_t past = kGroups - 1;
  std::copy_n(released_.begin(), past, released.begin());
  float last = released_[past - 1];
  for (size_t group = 0; group < kBlockGroups; ++group) {
    const float rising = 1.0f - (1.0f - last) * release_;
    last = std::min(wanted[group], rising < kAtRest ? rising : 1.0f);
    released[past + group] = last;
  }
  std::copy_n(released.begin() + kBlockGroups, past, released_.begin());

  std::array<float, kBlockGroups> sum{};
  for (size_t k = 0; k < kGroups; ++k) {
    for (size_t group = 0; group < kBlockGroups; ++group) {
      sum[group] += window_[k] * released[group + k];
    }
  }
  for (size_t group = 0; group < kBlockGroups; ++group) {
    // The average of ones is 1 but for rounding; set exactly, so that a limiter at rest changes no bit.
    smooth[group] = sum[group] < 1.0f - 1e-6f ? sum[group] : 1.0f;
  }
}

template <size_t kLookAheadSamples, size_t kLatencySamples>
void LimiterAround<kLookAheadSamples, kLatencySamples>::Apply(StereoBlock block) {
  for (size_t group = 0; group < kBlockGroups; ++group) {
    const float from = gain_;
    gain_ = smooth_[group];
    if (from == 1.0f && gain_ == 1.0f) {
      continue;
    }
    const float step = (gain_ - from) * (1.0f / kGroupSamples);
    for (size_t n = 0; n < kGroupSamples; ++n) {
      const float gain = from + step * static_cast<float>(n + 1);
      block.left[group * kGroupSamples + n] *= gain;
      block.right[group * kGroupSamples + n] *= gain;
    }
  }
}

template <size_t kLookAheadSamples>
void PeakLimiter<kLookAheadSamples>::Prepare(uint32_t sample_rate_hz) {
  limiter_.Prepare(sample_rate_hz);
  Reset();
}

template <size_t kLookAheadSamples>
void PeakLimiter<kLookAheadSamples>::Reset() {
  limiter_.Reset();
  delayed_ = {};
}

template <size_t kLookAheadSamples>
void PeakLimiter<kLookAheadSamples>::Process(StereoBlock block, float peak, bool true_peak) {
  limiter_.Hear(block, peak, true_peak);
  for (size_t ear = 0; ear < kEars; ++ear) {
    float* samples = block.ear(ear);
    auto& delayed = delayed_[ear];
    std::array<float, kLookAheadSamples> newest;
    std::copy_n(samples + kBlockFrames - kLookAheadSamples, kLookAheadSamples, newest.begin());
    std::copy_backward(samples, samples + kBlockFrames - kLookAheadSamples, samples + kBlockFrames);
    std::copy_n(delayed.begin(), kLookAheadSamples, samples);
    std::copy_n(newest.begin(), kLookAheadSamples, delayed.begin());
  }
  limiter_.Apply(block);
}

template class LimiterAround<448, 960>;
template class PeakLimiter<64>;
template class PeakLimiter<448>;

}  // namespace bcap
