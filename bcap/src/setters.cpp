// Every parameter of the capture library: defaults, the clamped store, the two band tables. Any thread.
#include <algorithm>

#include "instance.h"

namespace bcap {

Parameters default_parameters(uint32_t mode) {
  Parameters p{};
  p.pregain_boost = kPregainBoost.preset;
  p.postgain_boost = kPostgainBoost.preset;
  p.postgain_out_target = kPostgainOutTarget.preset;
  p.pregain_limiter_peak = kPregainLimiterPeak.preset;
  p.postgain_limiter_peak = kPostgainLimiterPeak.preset;
  p.rnn_amount = kRnnAmount.preset;
  p.lev_amount = kLevAmount.preset;
  p.lev_loudness_range = kLevLoudnessRange.preset;
  p.rmx_amount = kRmxAmount.preset;
  p.bsep_resgain_attenuate = kBsepResgainAttenuate.preset;
  p.sfe_amount = kSfeAmount.preset;
  p.peq_amount = kPeqAmount.preset;
  p.nfm_amount = kNfmAmount.preset;
  p.lrc_enable = p.hpf_enable = mode <= 1 ? 1 : 0;
  p.ldn_enable = mode == 2 ? 1 : 0;
  p.rnn_enable = mode == 2 || mode == 3 ? 1 : 0;
  p.metadata_version = 1;
  p.peq_band_gain.values.fill(kPeqBandGain.preset);
  p.nfm_band_energy.values.fill(kNfmBandEnergy.preset);
  for (BandTable* table : {&p.peq_band_gain, &p.nfm_band_energy}) {
    table->guard_before = table->guard_after = kGuardWord;
  }
  return p;
}

}  // namespace bcap

namespace {

using namespace bcap;

// Beyond what is stored, how many values of a caller's table are looked at for the result code.
constexpr int32_t kMostBandsRead = 96;

using Flag = bool ChangeFlags::*;

int store(bcap_handle_t handle, int32_t Parameters::*member, int32_t value,
          Flag flag = &ChangeFlags::parameters) {
  Core* core = find_core(handle);
  if (core == nullptr) {
    return BCAP_ERROR_INSTANCE;
  }
  MutexLock lock(core->mutex);
  if (core->pending.*member != value) {
    core->pending.*member = value;
    core->changed.parameters = core->changed.*flag = true;
  }
  return BCAP_OK;
}

int store_clamped(bcap_handle_t handle, int32_t Parameters::*member, int32_t value,
                  const ParamRange& range, Flag flag = &ChangeFlags::parameters) {
  return store(handle, member, clamp_to(range, value), flag);
}

struct BandTableKind {
  BandTable Parameters::*table;
  ParamRange range;
  Flag flag;
  int count_code;
  int clamp_code;
};

int store_bands(bcap_handle_t handle, const BandTableKind& kind, int32_t count,
                const int32_t* values) {
  Core* core = find_core(handle);
  if (core == nullptr) {
    return BCAP_ERROR_INSTANCE;
  }
  MutexLock lock(core->mutex);
  auto& stored = (core->pending.*kind.table).values;
  if (values == nullptr) {
    stored.fill(kind.range.preset);
    core->changed.parameters = core->changed.*kind.flag = true;
    return BCAP_OK;
  }
  const int32_t expected = core->sample_rate == 44100 ? BCAP_BANDS_44100 : BCAP_BANDS_48000;
  // Deliberate: a wrong count is reported and its values are applied all the same; of two codes, that of a
  // clamped value stands.
  int result = count == expected ? BCAP_OK : kind.count_code;
  const int32_t seen = std::clamp(count, 0, kMostBandsRead);
  for (int32_t band = 0; band < std::max<int32_t>(seen, BCAP_MAX_BANDS); ++band) {
    const int32_t wanted = band < seen ? values[band] : kind.range.preset;
    const int32_t value = clamp_to(kind.range, wanted);
    if (value != wanted) {
      result = kind.clamp_code;
    }
    if (band < BCAP_MAX_BANDS && stored[band] != value) {
      stored[band] = value;
      core->changed.parameters = core->changed.*kind.flag = true;
    }
  }
  return result;
}

}  // namespace

extern "C" {

int bcap_metadata_version_set(bcap_handle_t handle, uint32_t version) noexcept {
  if (version != 1) {
    return BCAP_ERROR_METADATA_VERSION;
  }
  return store(handle, &Parameters::metadata_version, 1);
}

// clang-format off
int bcap_pregain_boost_set(bcap_handle_t h, int32_t v) noexcept { return store_clamped(h, &Parameters::pregain_boost, v, kPregainBoost); }
int bcap_postgain_boost_set(bcap_handle_t h, int32_t v) noexcept { return store_clamped(h, &Parameters::postgain_boost, v, kPostgainBoost); }
int bcap_postgain_out_target_set(bcap_handle_t h, int32_t v) noexcept { return store_clamped(h, &Parameters::postgain_out_target, v, kPostgainOutTarget); }
int bcap_pregain_limiter_peak_set(bcap_handle_t h, int32_t v) noexcept { return store_clamped(h, &Parameters::pregain_limiter_peak, v, kPregainLimiterPeak); }
int bcap_postgain_limiter_peak_set(bcap_handle_t h, int32_t v) noexcept { return store_clamped(h, &Parameters::postgain_limiter_peak, v, kPostgainLimiterPeak); }
int bcap_rnn_amount_set(bcap_handle_t h, int32_t v) noexcept { return store_clamped(h, &Parameters::rnn_amount, v, kRnnAmount); }
int bcap_lev_amount_set(bcap_handle_t h, int32_t v) noexcept { return store_clamped(h, &Parameters::lev_amount, v, kLevAmount); }
int bcap_lev_loudness_range_set(bcap_handle_t h, int32_t v) noexcept { return store_clamped(h, &Parameters::lev_loudness_range, v, kLevLoudnessRange); }
int bcap_rmx_amount_set(bcap_handle_t h, int32_t v) noexcept { return store_clamped(h, &Parameters::rmx_amount, v, kRmxAmount); }
int bcap_bsep_resgain_attenuate_set(bcap_handle_t h, int32_t v) noexcept { return store_clamped(h, &Parameters::bsep_resgain_attenuate, v, kBsepResgainAttenuate); }
int bcap_sfe_amount_set(bcap_handle_t h, int32_t v) noexcept { return store_clamped(h, &Parameters::sfe_amount, v, kSfeAmount); }
int bcap_peq_amount_set(bcap_handle_t h, int32_t v) noexcept { return store_clamped(h, &Parameters::peq_amount, v, kPeqAmount, &ChangeFlags::peq); }
int bcap_nfm_amount_set(bcap_handle_t h, int32_t v) noexcept { return store_clamped(h, &Parameters::nfm_amount, v, kNfmAmount, &ChangeFlags::nfm); }

int bcap_lrc_enable_set(bcap_handle_t h, int32_t v) noexcept { return store(h, &Parameters::lrc_enable, v); }
int bcap_hpf_enable_set(bcap_handle_t h, int32_t v) noexcept { return store(h, &Parameters::hpf_enable, v); }
int bcap_pregain_enable_set(bcap_handle_t h, int32_t v) noexcept { return store(h, &Parameters::pregain_enable, v); }
int bcap_rnn_enable_set(bcap_handle_t h, int32_t v) noexcept { return store(h, &Parameters::rnn_enable, v); }
int bcap_postgain_enable_set(bcap_handle_t h, int32_t v) noexcept { return store(h, &Parameters::postgain_enable, v); }
int bcap_selfie_mode_set(bcap_handle_t h, int32_t v) noexcept { return store(h, &Parameters::selfie_mode, v); }
int bcap_ldn_enable_set(bcap_handle_t h, int32_t v) noexcept { return store(h, &Parameters::ldn_enable, v); }
int bcap_lev_enable_set(bcap_handle_t h, int32_t v) noexcept { return store(h, &Parameters::lev_enable, v); }
int bcap_deq_enable_set(bcap_handle_t h, int32_t v) noexcept { return store(h, &Parameters::deq_enable, v); }
int bcap_bsep_enable_set(bcap_handle_t h, int32_t v) noexcept { return store(h, &Parameters::bsep_enable, v); }
int bcap_sfe_enable_set(bcap_handle_t h, int32_t v) noexcept { return store(h, &Parameters::sfe_enable, v); }
int bcap_deq_metadata_output_set(bcap_handle_t h, int32_t v) noexcept { return store(h, &Parameters::deq_metadata_output, v); }
int bcap_lev_metadata_output_set(bcap_handle_t h, int32_t v) noexcept { return store(h, &Parameters::lev_metadata_output, v); }
int bcap_ldn_metadata_output_set(bcap_handle_t h, int32_t v) noexcept { return store(h, &Parameters::ldn_metadata_output, v); }
// clang-format on

int bcap_peq_band_gain_tuning_set(bcap_handle_t handle, int32_t count,
                                  const int32_t* gains) noexcept {
  static constexpr BandTableKind kPeq{&Parameters::peq_band_gain, kPeqBandGain, &ChangeFlags::peq,
                                      BCAP_ERROR_PEQ_BAND_COUNT, BCAP_ERROR_PEQ_BAND_CLAMPED};
  return store_bands(handle, kPeq, count, gains);
}

int bcap_nfm_band_energy_tuning_set(bcap_handle_t handle, int32_t count,
                                    const int32_t* energies) noexcept {
  static constexpr BandTableKind kNfm{&Parameters::nfm_band_energy, kNfmBandEnergy,
                                      &ChangeFlags::nfm, BCAP_ERROR_NFM_BAND_COUNT,
                                      BCAP_ERROR_NFM_BAND_CLAMPED};
  return store_bands(handle, kNfm, count, energies);
}

}  // extern "C"
