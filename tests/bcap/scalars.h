// The library's parameters of one number each: where a setter puts it, within which bounds, and what stands
// there at first.
#pragma once

#include <cstdint>
#include <limits>

#include "bcap.h"
#include "bcap_inspect.h"

constexpr int32_t kLowest = std::numeric_limits<int32_t>::min();
constexpr int32_t kHighest = std::numeric_limits<int32_t>::max();

struct Scalar {
  const char* name;
  int (*set)(bcap_handle_t, int32_t);
  int32_t bcap::Parameters::*member;
  int32_t low, high, preset;
};

#define SCALAR(name, low, high, preset)                                                            \
  { #name, bcap_##name##_set, &bcap::Parameters::name, low, high, preset }
// Switches keep whatever they are given.
#define SWITCH(name, preset) SCALAR(name, kLowest, kHighest, preset)
inline const Scalar kScalars[] = {
    SCALAR(pregain_boost, -160, 320, 144),
    SCALAR(postgain_boost, 0, 320, 144),
    SCALAR(postgain_out_target, -496, -224, -288),
    SCALAR(pregain_limiter_peak, 1, 256, 256),
    SCALAR(postgain_limiter_peak, 1, 256, 256),
    SCALAR(rnn_amount, 0, 8, 8),
    SCALAR(lev_amount, 0, 16, 13),
    SCALAR(lev_loudness_range, 96, 144, 112),
    SCALAR(rmx_amount, 0, 16, 11),
    SCALAR(bsep_resgain_attenuate, 0, 144, 48),
    SCALAR(sfe_amount, 0, 16, 8),
    SCALAR(peq_amount, 0, 16, 16),
    SCALAR(nfm_amount, 0, 16, 16),
    SWITCH(lrc_enable, 1),
    SWITCH(hpf_enable, 1),
    SWITCH(pregain_enable, 0),
    SWITCH(rnn_enable, 0),
    SWITCH(postgain_enable, 0),
    SWITCH(ldn_enable, 0),
    SWITCH(lev_enable, 0),
    SWITCH(deq_enable, 0),
    SWITCH(bsep_enable, 0),
    SWITCH(sfe_enable, 0),
    SWITCH(deq_metadata_output, 0),
    SWITCH(lev_metadata_output, 0),
    SWITCH(ldn_metadata_output, 0),
    SWITCH(selfie_mode, 0),
};

#undef SCALAR
#undef SWITCH
