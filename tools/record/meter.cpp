// The recorder's meter; see the header.
#include "tools/record/meter.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace tools {

double DbFullScale(int magnitude) {
  return magnitude > 0 ? 20.0 * std::log10(magnitude / 32768.0)
                       : -std::numeric_limits<double>::infinity();
}

Meter::Meter(int channels, int sample_rate_hz)
    : channels_(std::min(channels, 2)),
      loudness_(ebur128_init(static_cast<unsigned>(channels),
                             static_cast<unsigned long>(sample_rate_hz), EBUR128_MODE_I)) {}

void Meter::Add(const int16_t* samples, size_t frames) {
  const auto channels = static_cast<size_t>(channels_);
  uint64_t clipped = 0;
  for (size_t channel = 0; channel < channels; ++channel) {
    int peak = 0;
    for (size_t frame = 0; frame < frames; ++frame) {
      const int sample = samples[frame * channels + channel];
      peak = std::max(peak, std::abs(sample));
      clipped += sample == INT16_MAX || sample == INT16_MIN ? 1 : 0;
    }
    peak_[channel] = std::max(peak_[channel], peak);
    // Only this thread raises the value; a reader may take it in between, which loses nothing.
    recent_peak_[channel] = std::max(recent_peak_[channel].load(), peak);
  }
  clipped_samples_ += clipped;
  if (loudness_ != nullptr) {
    ebur128_add_frames_short(loudness_.get(), samples, frames);
  }
}

double Meter::IntegratedLoudnessLufs() const {
  double lufs = -std::numeric_limits<double>::infinity();
  if (loudness_ != nullptr) {
    ebur128_loudness_global(loudness_.get(), &lufs);
  }
  return lufs;
}

}  // namespace tools
