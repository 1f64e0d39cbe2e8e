// Method: a periodic sum of tones with random phases goes through the library; after it has settled, whole
// periods are averaged and the transfer function is the quotient of the two spectra at the tones.
#include "tools/tune/response.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <random>

#include <kiss_fftr.h>

namespace tune {
namespace {

constexpr size_t kPeriodFrames = 16384;  // a tone every 3 Hz is possible
constexpr size_t kTones = 240;
constexpr double kLowestHz = 15.0;
constexpr double kHighestShare = 0.49;  // of the sample rate
constexpr size_t kSettlingPeriods = 4;  // ramps and latency are over long before
constexpr size_t kMeasuredPeriods = 8;
constexpr double kPeak = 32768.0;
constexpr double kLoudestOutputDb =
    -20.0;  // of the tones' sum, RMS; no limiter begins to work there
constexpr double kQuietestInputDb = -60.0;  // below, 16-bit steps become audible in the result

using Spectrum = std::vector<std::complex<double>>;

Spectrum Transform(const std::vector<float>& period) {
  std::vector<kiss_fft_cpx> bins(kPeriodFrames / 2 + 1);
  kiss_fftr_cfg config = kiss_fftr_alloc(kPeriodFrames, 0, nullptr, nullptr);
  kiss_fftr(config, period.data(), bins.data());
  kiss_fftr_free(config);
  Spectrum spectrum;
  for (const kiss_fft_cpx& bin : bins) {
    spectrum.emplace_back(bin.r, bin.i);
  }
  return spectrum;
}

// Different bins, as evenly spread over the octaves as their distance allows.
std::vector<size_t> ToneBins(uint32_t sample_rate_hz) {
  const double bin_hz = static_cast<double>(sample_rate_hz) / kPeriodFrames;
  const double highest_hz = kHighestShare * sample_rate_hz;
  std::vector<size_t> bins;
  bins.reserve(kTones);
  for (size_t i = 0; i < kTones; ++i) {
    const double hz =
        kLowestHz * std::pow(highest_hz / kLowestHz, static_cast<double>(i) / (kTones - 1));
    const auto bin = static_cast<size_t>(std::lround(hz / bin_hz));
    if (bins.empty() || bin > bins.back()) {
      bins.push_back(bin);
    }
  }
  return bins;
}

std::vector<float> TonePeriod(const std::vector<size_t>& bins, double rms_db) {
  std::mt19937 random(1);
  const double amplitude =
      std::sqrt(2.0 / static_cast<double>(bins.size())) * std::pow(10.0, rms_db / 20.0) * kPeak;
  std::vector<double> sum(kPeriodFrames);
  for (const size_t bin : bins) {
    const double phase = 2.0 * M_PI * static_cast<double>(random()) / 4294967296.0;
    for (size_t n = 0; n < kPeriodFrames; ++n) {
      const auto turn = static_cast<double>(bin * n % kPeriodFrames) / kPeriodFrames;
      sum[n] += amplitude * std::cos(2.0 * M_PI * turn + phase);
    }
  }
  std::vector<float> period;
  for (const double sample : sum) {
    period.push_back(static_cast<float>(std::lround(sample)));
  }
  return period;
}

double LoudestGainDb(const AlgoModeParams& params, const bcap::Parameters& stored) {
  int32_t most = 0;
  for (const int32_t gain : stored.peq_band_gain.values) {
    most = std::max(most, gain);
  }
  const int32_t boost = params.pregainEn != 0 ? stored.pregain_boost : 0;
  return (std::max(boost, 0) + most) / 16.0;
}

}  // namespace

Response MeasureResponse(TunedRuntime* runtime, uint32_t sample_rate_hz) {
  const TuningChoice& choice = runtime->choice();
  AlgoModeParams params = *choice.params;
  params.rnnEn = 0;
  params.nfmAmount = 0;
  params.postgainEn = 0;
  params.selfieModeEn = 0;
  params.pregainLimiterPeak = 256;
  const double input_db =
      std::max(kLoudestOutputDb - LoudestGainDb(params, runtime->Stored()), kQuietestInputDb);
  runtime->Apply(params, choice.peqData, choice.peqNum, choice.nfmData, choice.nfmNum);

  const std::vector<size_t> bins = ToneBins(sample_rate_hz);
  const std::vector<float> tones = TonePeriod(bins, input_db);
  std::vector<float> average(kPeriodFrames);
  std::vector<int16_t> block(2 * kBcapBlockFrames);
  const size_t latency = runtime->latency_frames();
  for (size_t done = 0; done < (kSettlingPeriods + kMeasuredPeriods) * kPeriodFrames;
       done += kBcapBlockFrames) {
    for (size_t n = 0; n < kBcapBlockFrames; ++n) {
      block[2 * n] = block[2 * n + 1] = static_cast<int16_t>(tones[(done + n) % kPeriodFrames]);
    }
    runtime->Process(block.data());
    for (size_t n = 0; done >= kSettlingPeriods * kPeriodFrames && n < kBcapBlockFrames; ++n) {
      average[(done + n + kPeriodFrames - latency % kPeriodFrames) % kPeriodFrames] +=
          static_cast<float>(block[2 * n]) / kMeasuredPeriods;
    }
  }
  const Spectrum in = Transform(tones);
  const Spectrum out = Transform(average);
  Response response;
  for (const size_t bin : bins) {
    response.hz.push_back(static_cast<double>(bin) * sample_rate_hz / kPeriodFrames);
    response.db.push_back(20.0 * std::log10(std::max(std::abs(out[bin] / in[bin]), 1e-9)));
  }
  return response;
}

}  // namespace tune
