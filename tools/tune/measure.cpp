// Measurements, loudness by libebur128 and spectra by kissfft; see the header.
#include "tools/tune/measure.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include <ebur128.h>
#include <kiss_fftr.h>

namespace tune {
namespace {

constexpr size_t kSpectrogramFrame = 2048;
constexpr size_t kSpectrogramBins = kSpectrogramFrame / 2 + 1;
constexpr size_t kAverageFrame = 8192;  // long enough for thirds of an octave in the bass
constexpr size_t kMostColumns = 1500;   // more than a picture shows
constexpr double kSilence = -std::numeric_limits<double>::infinity();
constexpr double kFullScale = 32768.0;
constexpr double kQuietestDb = -130.0;

struct FreeState {
  void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
};
using State = std::unique_ptr<ebur128_state, FreeState>;

State NewState(const Recording& recording, unsigned channels, int modes) {
  return State(ebur128_init(channels, recording.sample_rate_hz, modes));
}

std::vector<int16_t> Channel(const Recording& recording, size_t channel) {
  std::vector<int16_t> samples(recording.frames());
  for (size_t n = 0; n < samples.size(); ++n) {
    samples[n] = recording.samples[2 * n + channel];
  }
  return samples;
}

double PowerDb(double power) {
  return power > 0.0 ? 10.0 * std::log10(power) : kSilence;
}

// Mean squares of pieces of the channel, full scale 1.
std::vector<double> Powers(const Recording& recording, size_t channel, double piece_seconds) {
  const auto piece = static_cast<size_t>(piece_seconds * recording.sample_rate_hz);
  std::vector<double> powers;
  for (size_t begin = 0; begin + piece <= recording.frames(); begin += piece) {
    double sum = 0.0;
    for (size_t n = begin; n < begin + piece; ++n) {
      const double sample = recording.samples[2 * n + channel] / kFullScale;
      sum += sample * sample;
    }
    powers.push_back(sum / static_cast<double>(piece));
  }
  return powers;
}

double NoiseFloor(const Recording& recording, size_t channel) {
  std::vector<double> powers = Powers(recording, channel, 0.05);
  if (powers.empty()) {
    return kSilence;
  }
  const auto tenth = powers.begin() + static_cast<std::ptrdiff_t>(powers.size() / 10);
  std::nth_element(powers.begin(), tenth, powers.end());
  return PowerDb(*tenth);
}

ChannelLevels MeasureChannel(const Recording& recording, size_t channel) {
  const State state = NewState(recording, 1, EBUR128_MODE_I | EBUR128_MODE_TRUE_PEAK);
  const std::vector<int16_t> samples = Channel(recording, channel);
  ebur128_add_frames_short(state.get(), samples.data(), samples.size());
  ChannelLevels levels{kSilence, kSilence, NoiseFloor(recording, channel)};
  ebur128_loudness_global(state.get(), &levels.loudness_lufs);
  double peak = 0.0;
  ebur128_true_peak(state.get(), 0, &peak);
  levels.true_peak_dbtp = peak > 0.0 ? 20.0 * std::log10(peak) : kSilence;
  return levels;
}

// Squared magnitudes of a Hann window's spectrum, scaled so that a full-scale sine reads -3 dB in sum.
class PowerSpectrum {
 public:
  explicit PowerSpectrum(size_t frame)
      : config_(kiss_fftr_alloc(static_cast<int>(frame), 0, nullptr, nullptr)), window_(frame),
        frame_(frame), bins_(frame / 2 + 1) {
    for (size_t n = 0; n < frame; ++n) {
      window_[n] = static_cast<float>(
          0.5 - 0.5 * std::cos(2.0 * M_PI * static_cast<double>(n) / static_cast<double>(frame)));
    }
  }
  ~PowerSpectrum() { kiss_fftr_free(config_); }
  PowerSpectrum(const PowerSpectrum&) = delete;
  PowerSpectrum& operator=(const PowerSpectrum&) = delete;

  // Adds the spectrum of the frame that begins there; samples beyond the end are silence.
  void Add(const Recording& recording, size_t channel, size_t begin, std::vector<double>* powers) {
    for (size_t n = 0; n < frame_.size(); ++n) {
      const bool there = begin + n < recording.frames();
      const float sample =
          there ? static_cast<float>(recording.samples[2 * (begin + n) + channel]) : 0.0f;
      frame_[n] = window_[n] * sample / static_cast<float>(kFullScale);
    }
    kiss_fftr(config_, frame_.data(), bins_.data());
    // One side stands for both; the window's mean square is 3/8.
    const double size = static_cast<double>(frame_.size());
    const double scale = 2.0 / (size * size * 0.375);
    for (size_t k = 0; k < bins_.size(); ++k) {
      const double power = double{bins_[k].r} * bins_[k].r + double{bins_[k].i} * bins_[k].i;
      (*powers)[k] += scale * power;
    }
  }

 private:
  kiss_fftr_cfg config_;
  std::vector<float> window_;
  std::vector<float> frame_;
  std::vector<kiss_fft_cpx> bins_;
};

}  // namespace

Levels MeasureLevels(const Recording& recording) {
  const State state = NewState(recording, 2, EBUR128_MODE_I | EBUR128_MODE_LRA);
  ebur128_add_frames_short(state.get(), recording.samples.data(), recording.frames());
  Levels levels{kSilence, 0.0, {MeasureChannel(recording, 0), MeasureChannel(recording, 1)}};
  ebur128_loudness_global(state.get(), &levels.loudness_lufs);
  ebur128_loudness_range(state.get(), &levels.range_lu);
  return levels;
}

Course ShortTermLoudness(const Recording& recording) {
  const State state = NewState(recording, 2, EBUR128_MODE_S);
  const size_t step = recording.sample_rate_hz / 10;
  const size_t full = size_t{3} * recording.sample_rate_hz;
  Course course;
  for (size_t begin = 0; begin + step <= recording.frames(); begin += step) {
    ebur128_add_frames_short(state.get(), &recording.samples[2 * begin], step);
    double loudness = kSilence;
    ebur128_loudness_shortterm(state.get(), &loudness);
    if (begin + step < std::min(full, recording.frames() - step)) {
      continue;  // the window is not full yet
    }
    course.x.push_back(static_cast<double>(begin + step) / recording.sample_rate_hz);
    course.y.push_back(loudness > -100.0 ? loudness : NAN);
  }
  return course;
}

Course LevelDifference(const Recording& recording) {
  constexpr double kPieceSeconds = 0.4;
  constexpr double kQuietest = 1e-9;  // -90 dB
  const std::vector<double> left = Powers(recording, 0, kPieceSeconds);
  const std::vector<double> right = Powers(recording, 1, kPieceSeconds);
  Course course;
  for (size_t i = 0; i < left.size(); ++i) {
    course.x.push_back((static_cast<double>(i) + 0.5) * kPieceSeconds);
    const bool audible = left[i] > kQuietest && right[i] > kQuietest;
    course.y.push_back(audible ? PowerDb(left[i] / right[i]) : NAN);
  }
  return course;
}

Spectrogram::Spectrogram(const Recording& recording)
    : frame_seconds_(
          std::max(static_cast<double>(kSpectrogramFrame) / 2.0 / recording.sample_rate_hz,
                   recording.seconds() / kMostColumns)),
      bin_hz_(static_cast<double>(recording.sample_rate_hz) / kSpectrogramFrame) {
  PowerSpectrum spectrum(kSpectrogramFrame);
  columns_ = static_cast<size_t>(recording.seconds() / frame_seconds_) + 1;
  db_.reserve(columns_ * kSpectrogramBins);
  std::vector<double> powers(kSpectrogramBins);
  for (size_t column = 0; column < columns_; ++column) {
    std::fill(powers.begin(), powers.end(), 0.0);
    const auto begin = static_cast<size_t>(static_cast<double>(column) * frame_seconds_ *
                                           recording.sample_rate_hz);
    for (const size_t channel : {0, 1}) {
      spectrum.Add(recording, channel, begin, &powers);
    }
    for (const double power : powers) {
      db_.push_back(static_cast<float>(std::max(PowerDb(power / 2.0), kQuietestDb)));
      highest_ = std::max(highest_, static_cast<double>(db_.back()));
    }
  }
}

double Spectrogram::At(double seconds, double hz) const {
  const auto column = std::min(static_cast<size_t>(seconds / frame_seconds_), columns_ - 1);
  const auto bin = std::min(static_cast<size_t>(std::lround(hz / bin_hz_)), kSpectrogramBins - 1);
  return db_[column * kSpectrogramBins + bin];
}

Course AverageSpectrum(const Recording& recording, size_t channel) {
  constexpr size_t bins = kAverageFrame / 2 + 1;
  PowerSpectrum spectrum(kAverageFrame);
  std::vector<double> powers(bins);
  // Every frame of a short recording, evenly spread ones of a long one.
  const size_t frames =
      std::clamp<size_t>(recording.frames() / (kAverageFrame / 2), 1, 4 * kMostColumns);
  const size_t step = std::max<size_t>(recording.frames() / frames, 1);
  for (size_t i = 0; i < frames; ++i) {
    spectrum.Add(recording, channel, i * step, &powers);
  }
  const double bin_hz = static_cast<double>(recording.sample_rate_hz) / kAverageFrame;
  Course course;
  constexpr int kTwelfthsOfOctave = 108;  // from 40 Hz to 20 kHz
  for (int i = 0; i < kTwelfthsOfOctave; ++i) {
    const double hz = 40.0 * std::pow(2.0, i / 12.0);
    const auto low = static_cast<size_t>(std::lround(hz / 1.122 / bin_hz));
    const auto high = std::max(static_cast<size_t>(std::lround(hz * 1.122 / bin_hz)), low + 1);
    double sum = 0.0;
    for (size_t k = low; k < std::min(high, bins); ++k) {
      sum += powers[k];
    }
    course.x.push_back(hz);
    course.y.push_back(std::max(PowerDb(sum / static_cast<double>(frames)), kQuietestDb));
  }
  return course;
}

}  // namespace tune
