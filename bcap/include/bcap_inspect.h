// What a tool may look at beside the public interface: what the setters stored after clamping, and where
// the bands lie. Part of the static library only; the module does not export it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "bcap.h"

namespace bcap {

// One 75-value table between two guard words that nothing ever writes: a write past its ends shows.
struct BandTable {
  uint32_t guard_before;
  std::array<int32_t, BCAP_MAX_BANDS> values;
  uint32_t guard_after;
};

// Every parameter of an instance, in the units of bcap.h.
struct Parameters {
  int32_t pregain_boost;
  int32_t postgain_boost;
  int32_t postgain_out_target;
  int32_t pregain_limiter_peak;
  int32_t postgain_limiter_peak;
  int32_t rnn_amount;
  int32_t lev_amount;
  int32_t lev_loudness_range;
  int32_t rmx_amount;
  int32_t bsep_resgain_attenuate;
  int32_t sfe_amount;
  int32_t peq_amount;
  int32_t nfm_amount;

  int32_t lrc_enable;
  int32_t hpf_enable;
  int32_t pregain_enable;
  int32_t rnn_enable;
  int32_t postgain_enable;
  int32_t ldn_enable;
  int32_t lev_enable;
  int32_t deq_enable;
  int32_t bsep_enable;
  int32_t sfe_enable;
  int32_t deq_metadata_output;
  int32_t lev_metadata_output;
  int32_t ldn_metadata_output;
  int32_t selfie_mode;

  int32_t metadata_version;

  BandTable peq_band_gain;
  BandTable nfm_band_energy;
};

// Copies what the setters have stored so far, whether or not a stage has taken it up yet. False for a bad
// handle, with `parameters` untouched. Any thread.
bool inspect_parameters(bcap_handle_t handle, Parameters& parameters) noexcept;

// What the stages did to the last block, in dB. Limiters and noise reduction as gains or reductions at its end.
struct BlockReport {
  float pregain_limiter_db;   // 0 or less
  float noise_reduction_db;   // 0 or more, over all bands
  float near_field_db;        // 0 or more, taken off the wearer's own voice at full amount
  float ear_balance_db;       // left against right
  float make_up_gain_db;      // 0 or more
  float postgain_limiter_db;  // 0 or less
};

// False for a bad handle. Only on the thread that runs the stages.
bool inspect_last_block(bcap_handle_t handle, BlockReport& report) noexcept;

// Band `band` of the layout at `sample_rate_hz`: its lower and upper edge and its centre, where its gain
// is exact.
struct BandEdges {
  float lower_hz;
  float centre_hz;
  float upper_hz;
};

// 73 at 48000, 75 at 44100, 0 otherwise.
size_t inspect_band_count(uint32_t sample_rate_hz) noexcept;
// band < inspect_band_count(sample_rate_hz).
BandEdges inspect_band(uint32_t sample_rate_hz, size_t band) noexcept;

}  // namespace bcap
