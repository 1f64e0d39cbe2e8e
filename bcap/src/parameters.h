// Ranges and defaults of the parameters: one row each, read by bcap_init and by the setter.
#pragma once

#include "bcap_inspect.h"

namespace bcap {

struct ParamRange {
  int32_t low;
  int32_t high;
  int32_t preset;
};

constexpr ParamRange kPregainBoost{-160, 320, 144};
constexpr ParamRange kPostgainBoost{0, 320, 144};
constexpr ParamRange kPostgainOutTarget{-496, -224, -288};
constexpr ParamRange kPregainLimiterPeak{1, 256, 256};
constexpr ParamRange kPostgainLimiterPeak{1, 256, 256};
constexpr ParamRange kRnnAmount{0, 8, 8};
constexpr ParamRange kLevAmount{0, 16, 13};
constexpr ParamRange kLevLoudnessRange{96, 144, 112};
constexpr ParamRange kRmxAmount{0, 16, 11};
constexpr ParamRange kBsepResgainAttenuate{0, 144, 48};
constexpr ParamRange kSfeAmount{0, 16, 8};
constexpr ParamRange kPeqAmount{0, 16, 16};
constexpr ParamRange kNfmAmount{0, 16, 16};
constexpr ParamRange kPeqBandGain{-576, 320, 0};
constexpr ParamRange kNfmBandEnergy{-2080, -160, -2080};

constexpr uint32_t kGuardWord = 0x5AFE57A7u;

constexpr int32_t clamp_to(const ParamRange& range, int32_t value) {
  return value < range.low ? range.low : value > range.high ? range.high : value;
}

// What has changed since the stage last looked.
struct ChangeFlags {
  bool parameters;
  bool peq;
  bool nfm;
};

// Every parameter as bcap_init leaves it in `mode`.
Parameters default_parameters(uint32_t mode);

}  // namespace bcap
