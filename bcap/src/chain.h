// What an instance does to a block, by mode. Belongs to the thread that runs the stages.
#pragma once

#include <variant>

#include "delay_line.h"
#include "ear_balance.h"
#include "high_pass.h"
#include "make_up_gain.h"
#include "parameters.h"
#include "peak_limiter.h"
#include "ramp.h"
#include "spectral_stage.h"

namespace bcap {

// What begins modes 0 and 1: hpf, then the gain of pregain. Latency 0.
class FrontEnd {
 public:
  void Prepare(uint32_t sample_rate_hz);
  void Reset();
  void Process(StereoBlock block, const Parameters& parameters, bool snap);
  float gain() const { return gain_.target(); }

 private:
  HighPass high_pass_;
  Ramp wet_;
  Ramp gain_;
};

// selfie_mode: left and right change places, faded over one block. Latency 0.
class Mirror {
 public:
  void Process(StereoBlock block, bool enabled, bool snap);

 private:
  Ramp exchanged_;
};

// Mode 0. Latency 1024: that of the spectral stage, and the look-ahead of the limiter at the end. The limiter of pregain
// hears what enters the spectral stage and acts on the same samples when they leave it, so that both look ahead at the
// price of one.
class OnePass {
 public:
  void Prepare(uint32_t sample_rate_hz);
  void Reset();
  void Process(StereoBlock block, const Parameters& parameters, const ChangeFlags& changed,
               bool snap, Scratch& scratch);
  BlockReport report() const;

 private:
  FrontEnd front_end_;
  LimiterAround<448, SpectralStage::kLatency> first_limiter_;
  SpectralStage spectral_stage_;
  EarBalance ear_balance_;
  MakeUpGain make_up_gain_;
  PeakLimiter<1024 - SpectralStage::kLatency> last_limiter_;
  Mirror mirror_;
};

// Mode 1. Latency 448, all of it look-ahead.
class PreProcessing {
 public:
  void Prepare(uint32_t sample_rate_hz);
  void Reset();
  void Process(StereoBlock block, const Parameters& parameters, bool snap);
  BlockReport report() const;

 private:
  FrontEnd front_end_;
  PeakLimiter<448> limiter_;
  Mirror mirror_;
};

class Chain {
 public:
  // For an accepted configuration; then Reset().
  void Prepare(const bcap_config_t& config);
  // The next block starts at the values of its parameters rather than moving there.
  void Reset();
  // One block in place. Real time: no allocation, lock, log, wait or file.
  // changed: which of the parameters differ from those of the call before.
  void Process(StereoBlock block, const Parameters& parameters, const ChangeFlags& changed,
               Scratch& scratch);
  BlockReport report() const;

 private:
  static constexpr size_t kLongestDelay = 1536;
  std::variant<DelayLine<kLongestDelay>, PreProcessing, OnePass> stages_;
  bool snap_ = true;
};

}  // namespace bcap
