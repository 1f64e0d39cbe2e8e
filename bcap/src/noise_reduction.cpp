// Noise reduction with both ears; see noise_reduction.h. Real time: no allocation, lock, log, wait or file.
#include "noise_reduction.h"

#include <algorithm>
#include <cmath>

#include "vector_math.h"

namespace bcap {
namespace {

// -28 dB: lower makes pauses dead and lets the remaining noise warble, higher leaves more of it.
constexpr float kGainFloor = 0.04f;

const BandLayout& network_layout() {
  return band_layout(48000);
}

}  // namespace

void NoiseReduction::Prepare(uint32_t sample_rate_hz) {
  layout_ = &band_layout(sample_rate_hz);
  const auto place = [](const BandLayout& layout, float hz) {
    size_t below = 0;
    while (below + 2 < layout.count && layout.centre_hz[below + 1] <= hz) {
      ++below;
    }
    const float share =
        (hz - layout.centre_hz[below]) / (layout.centre_hz[below + 1] - layout.centre_hz[below]);
    return Position{
        static_cast<uint16_t>(below),
        static_cast<uint16_t>(std::lrint(Position::kWhole * std::clamp(share, 0.0f, 1.0f)))};
  };
  for (size_t band = 0; band < kNetworkBands; ++band) {
    network_band_in_layout_[band] = place(*layout_, network_layout().centre_hz[band]);
  }
  for (size_t band = 0; band < layout_->count; ++band) {
    band_in_network_[band] = place(network_layout(), layout_->centre_hz[band]);
  }
  Reset();
}

void NoiseReduction::Reset() {
  voice_ = 1.0f;
  features_.Reset();
  network_.Reset();
}

void NoiseReduction::ToNetworkBands(const BandSpectra& bands, BandSpectra& network_bands) const {
  // What lies between two bands is read per bin, for bands of the two rates differ in width.
  std::array<float, kMaxBands> per_bin;
  const auto convert = [&](const std::array<float, kMaxBands>& from,
                           std::array<float, kMaxBands>& to) {
    for (size_t band = 0; band < layout_->count; ++band) {
      per_bin[band] =
          from[band] / static_cast<float>(layout_->edge[band + 1] - layout_->edge[band]);
    }
    const auto& edge = network_layout().edge;
    for (size_t band = 0; band < kNetworkBands; ++band) {
      const Position& position = network_band_in_layout_[band];
      to[band] = position.Read(per_bin.data()) * static_cast<float>(edge[band + 1] - edge[band]);
    }
  };
  convert(bands.energy[0], network_bands.energy[0]);
  convert(bands.energy[1], network_bands.energy[1]);
  convert(bands.cross_re, network_bands.cross_re);
  convert(bands.cross_im, network_bands.cross_im);
}

void NoiseReduction::Shape() {
  float mean = 0.0f;
  for (size_t band = kVoiceFrom; band < kVoiceTo; ++band) {
    mean += network_gains_[band] / static_cast<float>(kVoiceTo - kVoiceFrom);
  }
  const float presence = std::min(mean / kVoicePresent, 1.0f);
  const float rise = presence * presence * presence - voice_;
  voice_ += (rise > 0.0f ? kVoiceRise : kVoiceFall) * rise;
  const float common = kNoVoiceGain + (1.0f - kNoVoiceGain) * voice_;
  for (float& gain : network_gains_) {
    gain = std::clamp(gain * common, kGainFloor, 1.0f);
  }
}

void NoiseReduction::Process(const BandSpectra& bands, float amount, float* gains) {
  NetworkFeatures features;
  bool heard;
  if (layout_ == &network_layout()) {
    heard = features_.Process(bands, features);
  } else {
    BandSpectra network_bands;
    ToNetworkBands(bands, network_bands);
    heard = features_.Process(network_bands, features);
  }
  if (heard) {  // else the gains of before hold, and the network goes on from there after the gap
    network_.Process(features, network_gains_);
    Shape();
  }
  for (size_t band = 0; band < layout_->count; ++band) {
    const Position& position = band_in_network_[band];
    gains[band] = position.Read(network_gains_.data());
  }
  for (size_t band = 0; band < layout_->count; ++band) {
    gains[band] = vector_exp2(amount * vector_log2(gains[band]));
  }
}

}  // namespace bcap
