// Short-time spectra of both ears: 1024-point frames, one 512-frame block apart, and back to time.
// Called by the one-pass chain, once per block, on the capture thread.
//
// Method: a real frame of 1024 samples is one complex transform of 512 points (even samples real, odd
// samples imaginary) by a self-sorting mixed radix 4 and 2 algorithm (C. Van Loan, "Computational
// Frameworks for the Fast Fourier Transform", SIAM 1992, section 1.7), split by symmetry. The two ears
// run through the same code one after the other, so equal ears stay equal bit for bit, and exchanged
// ears give exchanged results.
//
// Scale: samples are [-1, 1); a spectrum is the plain sum over the windowed frame. A bin at k stands for
// k * sample rate / 1024 Hz. Windows, the same before and after: 64 zeros, a rising slope of 448, 64 ones, a
// falling slope of 448. The slopes are square roots of a Hann window's, so that an untouched spectrum comes back as
// its input; that they are shorter than a block leaves time for the look-ahead of the limiter at the end.
#pragma once

#include <array>
#include <cstddef>

namespace bcap {

constexpr size_t kBlockFrames = 512;
constexpr size_t kEars = 2;
constexpr size_t kFrameSamples = 2 * kBlockFrames;
constexpr size_t kBins = kFrameSamples / 2 + 1;  // 0 Hz to half the sample rate, both included
constexpr size_t kOverlap = 448;                 // samples that two frames have in common

// Bins past kBins are padding: their value means nothing.
struct alignas(16) Spectrum {
  std::array<float, kBins + 3> re;
  std::array<float, kBins + 3> im;
};

using StereoSpectrum = std::array<Spectrum, kEars>;

// Working memory of one transform; holds nothing between calls.
struct alignas(16) TransformScratch {
  std::array<float, kFrameSamples / 2> re;
  std::array<float, kFrameSamples / 2> im;
};

// frame: kFrameSamples samples.
void forward_real_transform(const float* frame, Spectrum& spectrum, TransformScratch& scratch);

// The exact inverse; the imaginary parts of the first and the last bin are ignored. Destroys `spectrum`.
void inverse_real_transform(Spectrum& spectrum, float* frame, TransformScratch& scratch);

// One block in, the spectrum of the frame that ends with it; the spectrum of the frame before it back to time, so
// that whoever decides what becomes of a frame has heard the next one.
// Latency: kLatency samples, from a block that Analyse takes to the one that Synthesise gives. `scratch` may be the
// memory of the samples: they are read before and written after it is used.
class StereoStft {
 public:
  static constexpr size_t kLatency = kBlockFrames + kOverlap;

  void Reset();
  void Analyse(const float* left, const float* right, TransformScratch& scratch);
  // Of the frame that ends with the last block, and of the frame one block before: after Analyse, until Synthesise.
  const StereoSpectrum& newest() const { return spectra_[newest_]; }
  StereoSpectrum& leaving() { return spectra_[1 - newest_]; }
  // Destroys leaving().
  void Synthesise(float* left, float* right, TransformScratch& scratch);
  // In place of both: what they do to untouched spectra, without a transform. From the second call in
  // a row on bit for bit, and with no seam to Analyse and Synthesise before or after.
  void PassThrough(float* left, float* right);

 private:
  struct Ear {
    std::array<float, kLatency> history;  // the last samples that came in, oldest first
    // Of the frame that left last, its even and its odd samples; only where running_.
    std::array<float, kOverlap / 2> overlap_even;
    std::array<float, kOverlap / 2> overlap_odd;
  };
  static void Remember(Ear& ear, const float* block);

  std::array<Ear, kEars> ears_{};
  std::array<StereoSpectrum, 2> spectra_{};  // where running_: of the last two frames
  size_t newest_ = 0;
  bool running_ = false;  // the last block went through the transform
};

}  // namespace bcap
