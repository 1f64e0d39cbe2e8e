// Short-time spectra of both ears; see transform.h. Real time: no allocation, lock, log, wait or file.
#include "transform.h"

#include <algorithm>

#include "constexpr_math.h"

namespace bcap {
namespace {

constexpr size_t kPoints = kFrameSamples / 2;  // of the complex transform
static_assert(kPoints == size_t{4} * 4 * 4 * 4 * 2,
              "the passes below are four of radix 4 and one of radix 2");

// exp(-2 pi i m k / kPoints) for m = 1, 2, 3: the factors of one radix-4 pass, contiguous in k.
struct Twiddles {
  std::array<std::array<float, kPoints / 4>, 3> re{};
  std::array<std::array<float, kPoints / 4>, 3> im{};
};

constexpr Twiddles make_twiddles() {
  Twiddles t;
  for (size_t m = 0; m < 3; ++m) {
    for (size_t k = 0; k < kPoints / 4; ++k) {
      // At most 3/4 of a turn; brought into (-pi, pi] for the series.
      const double turn = static_cast<double>((m + 1) * k) / kPoints;
      const double angle = 2.0 * kPi * (turn > 0.5 ? turn - 1.0 : turn);
      t.re[m][k] = static_cast<float>(constexpr_cosine(angle));
      t.im[m][k] = static_cast<float>(-constexpr_sine(angle));
    }
  }
  return t;
}

// exp(-pi i k / kPoints): half steps, which part the even from the odd samples.
struct HalfSteps {
  std::array<float, kPoints> re{};
  std::array<float, kPoints> im{};
};

constexpr HalfSteps make_half_steps() {
  HalfSteps t;
  for (size_t k = 0; k < kPoints; ++k) {
    const double angle = kPi * static_cast<double>(k) / kPoints;
    t.re[k] = static_cast<float>(constexpr_cosine(angle));
    t.im[k] = static_cast<float>(-constexpr_sine(angle));
  }
  return t;
}

// A slope of the window at even samples and at odd ones, as the complex transform takes them.
struct Slope {
  std::array<float, kOverlap / 2> even{};
  std::array<float, kOverlap / 2> odd{};
};

// Shifted by half a sample the rising and the falling slope are symmetric, so that their squares add up to exactly 1.
constexpr Slope make_slope(bool rising, float scale) {
  Slope slope;
  for (size_t n = 0; n < kOverlap; ++n) {
    const double at = static_cast<double>(rising ? n : kOverlap - 1 - n) + 0.5;
    const auto value =
        scale * static_cast<float>(constexpr_sine(0.5 * kPi * at / static_cast<double>(kOverlap)));
    (n % 2 == 0 ? slope.even : slope.odd)[n / 2] = value;
  }
  return slope;
}

constexpr Twiddles kTwiddles = make_twiddles();
constexpr HalfSteps kHalfSteps = make_half_steps();
constexpr float kInverseScale = 1.0f / kFrameSamples;
constexpr Slope kRising = make_slope(true, 1.0f);
constexpr Slope kFalling = make_slope(false, 1.0f);
constexpr Slope kRisingBack = make_slope(true, kInverseScale);
constexpr Slope kFallingBack = make_slope(false, kInverseScale);
// Where among the even or the odd samples of a frame: rising slope, ones, falling slope.
constexpr size_t kRise = (kBlockFrames - kOverlap) / 2;
constexpr size_t kOnes = kBlockFrames / 2;
constexpr size_t kFall = kOnes + kRise;

// One self-sorting radix-4 pass over transforms of `kLength` points, `kPoints / kLength` of them
// interleaved. With real and imaginary parts exchanged on both sides it is the inverse pass.
template <size_t kLength>
void radix4_pass(const float* __restrict in_re, const float* __restrict in_im,
                 float* __restrict out_re, float* __restrict out_im) {
  constexpr size_t kStride = kPoints / kLength;
  constexpr size_t kQuarter = kLength / 4;
  for (size_t p = 0; p < kQuarter; ++p) {
    const float w1_re = kTwiddles.re[0][p * kStride], w1_im = kTwiddles.im[0][p * kStride];
    const float w2_re = kTwiddles.re[1][p * kStride], w2_im = kTwiddles.im[1][p * kStride];
    const float w3_re = kTwiddles.re[2][p * kStride], w3_im = kTwiddles.im[2][p * kStride];
    for (size_t q = 0; q < kStride; ++q) {
      const size_t from = q + kStride * p;
      const float a_re = in_re[from], a_im = in_im[from];
      const float b_re = in_re[from + kStride * kQuarter], b_im = in_im[from + kStride * kQuarter];
      const float c_re = in_re[from + kStride * 2 * kQuarter],
                  c_im = in_im[from + kStride * 2 * kQuarter];
      const float d_re = in_re[from + kStride * 3 * kQuarter],
                  d_im = in_im[from + kStride * 3 * kQuarter];
      const float even_re = a_re + c_re, even_im = a_im + c_im;
      const float even_difference_re = a_re - c_re, even_difference_im = a_im - c_im;
      const float odd_re = b_re + d_re, odd_im = b_im + d_im;
      const float odd_difference_re = b_re - d_re, odd_difference_im = b_im - d_im;
      const float x1_re = even_difference_re + odd_difference_im;
      const float x1_im = even_difference_im - odd_difference_re;
      const float x2_re = even_re - odd_re, x2_im = even_im - odd_im;
      const float x3_re = even_difference_re - odd_difference_im;
      const float x3_im = even_difference_im + odd_difference_re;
      const size_t to = q + kStride * 4 * p;
      out_re[to] = even_re + odd_re;
      out_im[to] = even_im + odd_im;
      out_re[to + kStride] = x1_re * w1_re - x1_im * w1_im;
      out_im[to + kStride] = x1_re * w1_im + x1_im * w1_re;
      out_re[to + 2 * kStride] = x2_re * w2_re - x2_im * w2_im;
      out_im[to + 2 * kStride] = x2_re * w2_im + x2_im * w2_re;
      out_re[to + 3 * kStride] = x3_re * w3_re - x3_im * w3_im;
      out_im[to + 3 * kStride] = x3_re * w3_im + x3_im * w3_re;
    }
  }
}

void radix2_pass(const float* __restrict in, float* __restrict out) {
  constexpr size_t kHalf = kPoints / 2;
  for (size_t q = 0; q < kHalf; ++q) {
    out[q] = in[q] + in[q + kHalf];
    out[q + kHalf] = in[q] - in[q + kHalf];
  }
}

// Five passes, an odd number: starts in (a_re, a_im), ends in (b_re, b_im), destroys both.
void complex_transform(float* a_re, float* a_im, float* b_re, float* b_im) {
  radix4_pass<512>(a_re, a_im, b_re, b_im);
  radix4_pass<128>(b_re, b_im, a_re, a_im);
  radix4_pass<32>(a_re, a_im, b_re, b_im);
  radix4_pass<8>(b_re, b_im, a_re, a_im);
  radix2_pass(a_re, b_re);
  radix2_pass(a_im, b_im);
}

// Spectrum Z of (even samples) + i (odd samples) -> spectrum of the real frame.
void split(const TransformScratch& z, Spectrum& out) {
  const float* __restrict z_re = z.re.data();
  const float* __restrict z_im = z.im.data();
  float* __restrict out_re = out.re.data();
  float* __restrict out_im = out.im.data();
  for (size_t k = 1; k < kPoints; ++k) {
    const float even_re = 0.5f * (z_re[k] + z_re[kPoints - k]);
    const float even_im = 0.5f * (z_im[k] - z_im[kPoints - k]);
    const float odd_re = 0.5f * (z_im[k] + z_im[kPoints - k]);
    const float odd_im = 0.5f * (z_re[kPoints - k] - z_re[k]);
    out_re[k] = even_re + kHalfSteps.re[k] * odd_re - kHalfSteps.im[k] * odd_im;
    out_im[k] = even_im + kHalfSteps.re[k] * odd_im + kHalfSteps.im[k] * odd_re;
  }
  out_re[0] = z_re[0] + z_im[0];
  out_im[0] = 0.0f;
  out_re[kPoints] = z_re[0] - z_im[0];
  out_im[kPoints] = 0.0f;
}

// The inverse of split(), times 2.
void merge(const Spectrum& in, TransformScratch& z) {
  const float* __restrict in_re = in.re.data();
  const float* __restrict in_im = in.im.data();
  float* __restrict z_re = z.re.data();
  float* __restrict z_im = z.im.data();
  for (size_t k = 1; k < kPoints; ++k) {
    const float even_re = in_re[k] + in_re[kPoints - k];
    const float even_im = in_im[k] - in_im[kPoints - k];
    const float turned_re = in_re[k] - in_re[kPoints - k];
    const float turned_im = in_im[k] + in_im[kPoints - k];
    const float odd_re = kHalfSteps.re[k] * turned_re + kHalfSteps.im[k] * turned_im;
    const float odd_im = kHalfSteps.re[k] * turned_im - kHalfSteps.im[k] * turned_re;
    z_re[k] = even_re - odd_im;
    z_im[k] = even_im + odd_re;
  }
  z_re[0] = in_re[0] + in_re[kPoints];
  z_im[0] = in_re[0] - in_re[kPoints];
}

// Even samples, already windowed, in spectrum.re and odd ones in spectrum.im -> spectrum. Never inlined, for with relaxed arithmetic
// two copies may round differently, and both ears are to go through the same one; likewise its inverse.
[[gnu::noinline]] void transform_in_place(Spectrum& spectrum, TransformScratch& scratch) {
  complex_transform(spectrum.re.data(), spectrum.im.data(), scratch.re.data(), scratch.im.data());
  split(scratch, spectrum);
}

// Spectrum -> even samples in spectrum.re, odd samples in spectrum.im, both times kFrameSamples.
[[gnu::noinline]] void invert_in_place(Spectrum& spectrum, TransformScratch& scratch) {
  merge(spectrum, scratch);
  complex_transform(scratch.im.data(), scratch.re.data(), spectrum.im.data(), spectrum.re.data());
}

// before: the kOverlap samples before the block.
void window_frame(const float* __restrict before, const float* __restrict block, Spectrum& out) {
  float* __restrict even = out.re.data();
  float* __restrict odd = out.im.data();
  std::fill_n(even, kRise, 0.0f);
  std::fill_n(odd, kRise, 0.0f);
  for (size_t n = 0; n < kOverlap / 2; ++n) {
    even[kRise + n] = kRising.even[n] * before[2 * n];
    odd[kRise + n] = kRising.odd[n] * before[2 * n + 1];
  }
  for (size_t n = 0; n < kRise; ++n) {
    even[kOnes + n] = block[2 * n];
    odd[kOnes + n] = block[2 * n + 1];
  }
  for (size_t n = 0; n < kOverlap / 2; ++n) {
    even[kFall + n] = kFalling.even[n] * block[2 * (kRise + n)];
    odd[kFall + n] = kFalling.odd[n] * block[2 * (kRise + n) + 1];
  }
}

}  // namespace

void forward_real_transform(const float* frame, Spectrum& spectrum, TransformScratch& scratch) {
  for (size_t n = 0; n < kPoints; ++n) {
    spectrum.re[n] = frame[2 * n];
    spectrum.im[n] = frame[2 * n + 1];
  }
  transform_in_place(spectrum, scratch);
}

void inverse_real_transform(Spectrum& spectrum, float* frame, TransformScratch& scratch) {
  invert_in_place(spectrum, scratch);
  for (size_t n = 0; n < kPoints; ++n) {
    frame[2 * n] = kInverseScale * spectrum.re[n];
    frame[2 * n + 1] = kInverseScale * spectrum.im[n];
  }
}

void StereoStft::Reset() {
  ears_ = {};
  running_ = false;
}

void StereoStft::Remember(Ear& ear, const float* block) {
  auto& history = ear.history;
  std::copy(history.begin() + kBlockFrames, history.end(), history.begin());
  std::copy_n(block, kBlockFrames, history.begin() + kOverlap);
}

void StereoStft::Analyse(const float* left, const float* right, TransformScratch& scratch) {
  newest_ = 1 - newest_;
  const std::array<const float*, kEars> blocks{left, right};
  for (size_t ear = 0; ear < kEars; ++ear) {
    auto& [history, overlap_even, overlap_odd] = ears_[ear];
    if (!running_) {
      for (size_t n = 0; n < kOverlap / 2; ++n) {
        overlap_even[n] = kFalling.even[n] * kFalling.even[n] * history[2 * n];
        overlap_odd[n] = kFalling.odd[n] * kFalling.odd[n] * history[2 * n + 1];
      }
      window_frame(history.data(), history.data() + kOverlap, leaving()[ear]);
    }
    window_frame(history.data() + kBlockFrames, blocks[ear], spectra_[newest_][ear]);
    Remember(ears_[ear], blocks[ear]);
  }
  for (size_t ear = 0; ear < kEars; ++ear) {
    if (!running_) {
      transform_in_place(leaving()[ear], scratch);
    }
    transform_in_place(spectra_[newest_][ear], scratch);
  }
  running_ = true;
}

void StereoStft::Synthesise(float* left, float* right, TransformScratch& scratch) {
  for (Spectrum& ear : leaving()) {
    invert_in_place(ear, scratch);
  }
  const std::array<float*, kEars> blocks{left, right};
  for (size_t ear = 0; ear < kEars; ++ear) {
    float* __restrict block = blocks[ear];
    float* __restrict overlap_even = ears_[ear].overlap_even.data();
    float* __restrict overlap_odd = ears_[ear].overlap_odd.data();
    const float* __restrict even = leaving()[ear].re.data();
    const float* __restrict odd = leaving()[ear].im.data();
    for (size_t n = 0; n < kOverlap / 2; ++n) {
      block[2 * n] = overlap_even[n] + kRisingBack.even[n] * even[kRise + n];
      block[2 * n + 1] = overlap_odd[n] + kRisingBack.odd[n] * odd[kRise + n];
    }
    for (size_t n = 0; n < kRise; ++n) {
      block[kOverlap + 2 * n] = kInverseScale * even[kOnes + n];
      block[kOverlap + 2 * n + 1] = kInverseScale * odd[kOnes + n];
    }
    for (size_t n = 0; n < kOverlap / 2; ++n) {
      overlap_even[n] = kFallingBack.even[n] * even[kFall + n];
      overlap_odd[n] = kFallingBack.odd[n] * odd[kFall + n];
    }
  }
}

void StereoStft::PassThrough(float* left, float* right) {
  const std::array<float*, kEars> blocks{left, right};
  for (size_t ear = 0; ear < kEars; ++ear) {
    auto& [history, overlap_even, overlap_odd] = ears_[ear];
    std::array<float, kBlockFrames> leaving;
    std::copy_n(history.begin(), kBlockFrames, leaving.begin());
    for (size_t n = 0; n < kOverlap / 2 && running_; ++n) {
      float& even = leaving[2 * n];
      float& odd = leaving[2 * n + 1];
      even = overlap_even[n] + kRising.even[n] * kRising.even[n] * even;
      odd = overlap_odd[n] + kRising.odd[n] * kRising.odd[n] * odd;
    }
    Remember(ears_[ear], blocks[ear]);
    std::copy_n(leaving.begin(), kBlockFrames, blocks[ear]);
  }
  running_ = false;
}

}  // namespace bcap
