// The chains of the modes; see chain.h. Real time: no allocation, lock, log, wait or file.
#include "chain.h"

#include "decibels.h"

namespace bcap {
namespace {

void move(Ramp& ramp, float value, bool snap) {
  if (snap) {
    ramp.Snap(value);
  } else {
    ramp.Aim(value);
  }
}

// With its stage switched off a limiter guards full scale.
float peak_if(int32_t enabled, int32_t peak) {
  return enabled != 0 ? static_cast<float>(peak) * (1.0f / 256.0f) : 1.0f;
}

float gain_to_db(float gain) {
  return 2.0f * power_to_db(gain);
}

}  // namespace

void FrontEnd::Prepare(uint32_t sample_rate_hz) {
  high_pass_.Prepare(sample_rate_hz);
}

void FrontEnd::Reset() {
  high_pass_.Reset();
}

void FrontEnd::Process(StereoBlock block, const Parameters& parameters, bool snap) {
  move(wet_, parameters.hpf_enable != 0 ? 1.0f : 0.0f, snap);
  const float boost_db =
      parameters.pregain_enable != 0 ? sixteenths_to_db(parameters.pregain_boost) : 0.0f;
  move(gain_, boost_db == 0.0f ? 1.0f : db_to_gain(boost_db), snap);
  high_pass_.Process(block, wet_);
  apply_ramp(gain_, block.left);
  apply_ramp(gain_, block.right);
}

void Mirror::Process(StereoBlock block, bool enabled, bool snap) {
  move(exchanged_, enabled ? 1.0f : 0.0f, snap);
  if (exchanged_.Is(0.0f)) {
    return;
  }
  const bool fully = exchanged_.Is(1.0f);
  for (int32_t n = 0; n < kBlockLength; ++n) {
    const float share = fully ? 1.0f : exchanged_.At(n);
    const float left = block.left[n];
    const float right = block.right[n];
    block.left[n] = fully ? right : left + share * (right - left);
    block.right[n] = fully ? left : right + share * (left - right);
  }
}

void OnePass::Prepare(uint32_t sample_rate_hz) {
  front_end_.Prepare(sample_rate_hz);
  first_limiter_.Prepare(sample_rate_hz);
  spectral_stage_.Prepare(sample_rate_hz);
  ear_balance_.Prepare(sample_rate_hz);
  make_up_gain_.Prepare(sample_rate_hz);
  last_limiter_.Prepare(sample_rate_hz);
}

void OnePass::Reset() {
  front_end_.Reset();
  first_limiter_.Reset();
  spectral_stage_.Reset();
  ear_balance_.Reset();
  make_up_gain_.Reset();
  last_limiter_.Reset();
}

void OnePass::Process(StereoBlock block, const Parameters& parameters, const ChangeFlags& changed,
                      bool snap, Scratch& scratch) {
  if (changed.parameters) {
    spectral_stage_.Configure(parameters, changed);
  }
  front_end_.Process(block, parameters, snap);
  first_limiter_.Hear(block, peak_if(parameters.pregain_enable, parameters.pregain_limiter_peak));
  spectral_stage_.Process(block, front_end_.gain(), scratch);
  first_limiter_.Apply(block);
  ear_balance_.Process(block, parameters.lrc_enable != 0, snap);
  const bool gain_on = parameters.postgain_enable != 0;
  make_up_gain_.Process(block, gain_on, sixteenths_to_db(parameters.postgain_boost),
                        sixteenths_to_db(parameters.postgain_out_target), snap);
  last_limiter_.Process(
      block, peak_if(parameters.postgain_enable, parameters.postgain_limiter_peak), gain_on);
  mirror_.Process(block, parameters.selfie_mode != 0, snap);
}

BlockReport OnePass::report() const {
  BlockReport report{};
  report.pregain_limiter_db = gain_to_db(first_limiter_.gain());
  report.noise_reduction_db = spectral_stage_.noise_reduction_db();
  report.near_field_db = spectral_stage_.near_field_db();
  report.ear_balance_db = 2.0f * ear_balance_.correction_db();
  report.make_up_gain_db = make_up_gain_.gain_db();
  report.postgain_limiter_db = gain_to_db(last_limiter_.gain());
  return report;
}

void PreProcessing::Prepare(uint32_t sample_rate_hz) {
  front_end_.Prepare(sample_rate_hz);
  limiter_.Prepare(sample_rate_hz);
}

void PreProcessing::Reset() {
  front_end_.Reset();
  limiter_.Reset();
}

void PreProcessing::Process(StereoBlock block, const Parameters& parameters, bool snap) {
  front_end_.Process(block, parameters, snap);
  limiter_.Process(block, peak_if(parameters.pregain_enable, parameters.pregain_limiter_peak));
  mirror_.Process(block, parameters.selfie_mode != 0, snap);
}

BlockReport PreProcessing::report() const {
  BlockReport report{};
  report.pregain_limiter_db = gain_to_db(limiter_.gain());
  return report;
}

void Chain::Prepare(const bcap_config_t& config) {
  if (config.mode == 0) {
    stages_.emplace<OnePass>().Prepare(config.sampleRate);
  } else if (config.mode == 1) {
    stages_.emplace<PreProcessing>().Prepare(config.sampleRate);
  } else {
    stages_.emplace<DelayLine<kLongestDelay>>().Prepare(bcap_latency_samples_get(config.mode));
  }
  snap_ = true;
}

void Chain::Reset() {
  if (auto* one_pass = std::get_if<OnePass>(&stages_)) {
    one_pass->Reset();
  } else if (auto* pre_processing = std::get_if<PreProcessing>(&stages_)) {
    pre_processing->Reset();
  } else if (auto* delay = std::get_if<DelayLine<kLongestDelay>>(&stages_)) {
    delay->Reset();
  }
  snap_ = true;
}

void Chain::Process(StereoBlock block, const Parameters& parameters, const ChangeFlags& changed,
                    Scratch& scratch) {
  if (auto* one_pass = std::get_if<OnePass>(&stages_)) {
    one_pass->Process(block, parameters, changed, snap_, scratch);
  } else if (auto* pre_processing = std::get_if<PreProcessing>(&stages_)) {
    pre_processing->Process(block, parameters, snap_);
  } else if (auto* delay = std::get_if<DelayLine<kLongestDelay>>(&stages_)) {
    delay->Process(block);
  }
  snap_ = false;
}

BlockReport Chain::report() const {
  if (const auto* one_pass = std::get_if<OnePass>(&stages_)) {
    return one_pass->report();
  }
  if (const auto* pre_processing = std::get_if<PreProcessing>(&stages_)) {
    return pre_processing->report();
  }
  return {};
}

}  // namespace bcap
