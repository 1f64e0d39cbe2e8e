// Noise reduction with both ears: from what both ears hold in each band to one gain per band, common to
// both ears, so that no sound changes its direction. Features of both ears go through a small recurrent
// network; its gains fall further while there is no voice at all, never fall below a floor, which keeps the
// ambience alive, and are scaled by the amount.
// Called by the one-pass chain, once per block, on the capture thread. Its gains are for the frame before the one it
// hears: the network is trained for that, and knows by then whether a sound is the beginning of a word.
#pragma once

#include <array>
#include <cstdint>

#include "band_layout.h"
#include "noise_features.h"
#include "noise_network.h"

namespace bcap {

// A voice is somewhere in these bands, about 190 Hz to 4.5 kHz; while their mean gain stays below
// kVoicePresent, all gains sink further, so that the rest of the noise lies still instead of warbling. It
// comes back within two blocks, for beginnings of words, and goes within a quarter of a second.
// The network is trained with this behind it, so that it keeps the mean up where a voice is.
inline constexpr size_t kVoiceFrom = 4;
inline constexpr size_t kVoiceTo = 52;
inline constexpr float kVoicePresent = 0.30f;
inline constexpr float kVoiceRise = 0.5f;
inline constexpr float kVoiceFall = 0.08f;
inline constexpr float kNoVoiceGain = 0.03f;

class NoiseReduction {
 public:
  void Prepare(uint32_t sample_rate_hz);  // 48000 or 44100; then Reset()
  void Reset();
  // amount: 0 (all gains 1) to 1 (full), monotone between; may change from block to block.
  // bands: of the newest frame. gains: of the frame before, one per band of the layout, 0 < gain <= 1.
  void Process(const BandSpectra& bands, float amount, float* gains);

 private:
  // Where the centre of a band lies among the centres of the other rate's bands: `share` of the way from
  // band `below` to the next. Two bytes each: there are 148 of them.
  struct Position {
    static constexpr float kWhole = 32768.0f;
    uint16_t below;
    uint16_t share;  // of kWhole

    float Read(const float* values) const {
      return values[below] +
             static_cast<float>(share) / kWhole * (values[below + 1] - values[below]);
    }
  };

  void ToNetworkBands(const BandSpectra& bands, BandSpectra& network_bands) const;
  void Shape();

  const BandLayout* layout_ = nullptr;
  NoiseFeatures features_;
  NoiseNetwork network_;
  NetworkGains network_gains_{};  // shaped, of the last block that was no gap
  float voice_ = 1.0f;            // 0: no voice for a while, 1: voice
  std::array<Position, kNetworkBands> network_band_in_layout_{};
  std::array<Position, kMaxBands> band_in_network_{};
};

}  // namespace bcap
