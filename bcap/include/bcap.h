/* The binaural capture library: two channels of a headset's microphones in, a recording out.
 *
 * An instance lives in memory of its caller. The order of use is: size (bcap_query_memory,
 * bcap_query_scratch), create (bcap_init), set parameters at any time, process block by block, shut down
 * (bcap_shutdown), free both memories.
 *
 * Conventions that hold for every function:
 *  1. A block is 512 frames; a frame is one 16-bit sample of the left and one of the right ear. Samples
 *     are signed, full scale is 32768.
 *  2. Boosts, targets, band gains, band energies, loudness ranges and residual attenuations count 1/16 dB
 *     (320 is +20 dB); energies and targets are relative to full scale (a full-scale square wave is 0).
 *     Limiter peaks are n/256 of full scale. Amounts are n/16, that of the noise reduction n/8.
 *  3. Bands lie on the bins of a 1024-point transform: 73 at 48 kHz, 75 at 44.1 kHz; see
 *     docs/signal-processing.md for where they lie.
 *  4. Results are BCAP_OK or one of the codes below. Nothing throws, nothing allocates, nothing blocks
 *     but the setters on each other, for the few instructions that a store takes.
 *  5. A null, cleared or foreign handle is tolerated by every function that takes one: setters and
 *     stages return BCAP_ERROR_INSTANCE, the others do nothing.
 *  6. Setters may be called from any thread while one thread runs the stages. A stage takes up changes
 *     at the beginning of a block without ever waiting for a setter; if one is busy at that moment, the
 *     change is heard one block later. All changes are ramped over at least one block.
 *  7. bcap_init and bcap_shutdown must not overlap any other call on the same instance.
 *  8. Values out of range are clamped silently; the ranges stand at each setter, with the value that
 *     bcap_init stores.
 */
#ifndef BCAP_H
#define BCAP_H

#include <stdint.h>

#ifdef __cplusplus
#define BCAP_NOEXCEPT noexcept
extern "C" {
#else
#define BCAP_NOEXCEPT
#endif
#define BCAP_API __attribute__((visibility("default")))

enum {
  BCAP_OK = 0,
  BCAP_ERROR_INSTANCE = 1,          /* null, cleared or foreign handle */
  BCAP_ERROR_METADATA_VERSION = 3,  /* only version 1 exists */
  BCAP_ERROR_CHANNEL_COUNT = 6,     /* a buffer description does not have two channels */
  BCAP_ERROR_NULL_ARGUMENT = 10,    /* description, channel address or scratch memory missing */
  BCAP_ERROR_PEQ_BAND_COUNT = 12,   /* applied all the same */
  BCAP_ERROR_PEQ_BAND_CLAMPED = 13, /* at least one gain was clamped; all applied */
  BCAP_ERROR_NFM_BAND_COUNT = 14,   /* applied all the same */
  BCAP_ERROR_NFM_BAND_CLAMPED = 15  /* at least one energy was clamped; all applied */
};

enum { BCAP_BLOCK_FRAMES = 512, BCAP_BANDS_48000 = 73, BCAP_BANDS_44100 = 75, BCAP_MAX_BANDS = 75 };

/* What an instance is made for. */
typedef struct bcap_config {
  uint32_t sampleRate; /* 48000 or 44100, in Hz */
  uint32_t blockSize;  /* 512, in frames */
  uint32_t mode;  /* 0 one-pass: the whole chain; 1 pre-processing: high-pass, pre-gain, mirror;
                          2 and 3: the sound passes through, delayed */
  uint32_t extra; /* not looked at */
} bcap_config_t;

/* Where the samples of a block lie. Sample i of channel c is the int16_t at byte address
 * (char*)channels[c] + i * sample_stride_bytes, of any alignment. For interleaved stereo: 2, 2, 4 and the
 * addresses of the first two samples. Input and output may be the same memory. */
typedef struct bcap_buffer_desc {
  uint32_t channel_count;
  uint32_t reserved; /* 2; not looked at */
  uint32_t sample_stride_bytes;
  int16_t** channels; /* channel_count addresses: left, right */
} bcap_buffer_desc_t;

typedef struct bcap_version {
  uint32_t numbers[4];
  const char* change;
} bcap_version_t;

/* Sizes and counts that describe a metadata version to its reader. */
typedef struct bcap_metadata_info {
  uint32_t values[5];
} bcap_metadata_info_t;

typedef struct bcap_instance* bcap_handle_t;

/* ---- life cycle and queries -------------------------------------------------------------------- */

/* The library's version: 1, 1, 0, 1 and the text of its change. Static; any thread. */
BCAP_API const bcap_version_t* bcap_get_version(void) BCAP_NOEXCEPT;

/* Bytes of persistent memory that an instance needs, at any alignment; 0 when `config` is null or not
 * accepted. Any thread. */
BCAP_API uint32_t bcap_query_memory(const bcap_config_t* config) BCAP_NOEXCEPT;

/* Bytes of scratch memory that each call of a stage needs, at any alignment; 0 as above. It holds nothing
 * between calls, so instances that are not processed at the same time may share it. Any thread. */
BCAP_API uint32_t bcap_query_scratch(const bcap_config_t* config) BCAP_NOEXCEPT;

/* Creates an instance in `memory` (at least bcap_query_memory bytes) with every parameter at its default
 * and writes its handle: the address of `memory` rounded up to a multiple of 4. Of the switches, those of
 * lrc and hpf are on in modes 0 and 1, those of ldn and rnn in mode 2, that of rnn in mode 3; all others
 * are off.
 * Always returns 0. A configuration that is not accepted, or a null argument, leaves `*handle` untouched:
 * preset it with null, or ask bcap_query_memory first. */
BCAP_API int bcap_init(const bcap_config_t* config, void* memory,
                       bcap_handle_t* handle) BCAP_NOEXCEPT;

/* Returns the instance to its starting state of processing, as after bcap_init; parameters stay. Takes
 * effect at the next block; any thread. */
BCAP_API void bcap_reset(bcap_handle_t handle) BCAP_NOEXCEPT;

/* Ends the instance and clears its structures. The caller owns and frees both memories. A second call
 * while the memory still exists does nothing. */
BCAP_API void bcap_shutdown(bcap_handle_t handle) BCAP_NOEXCEPT;

/* Samples by which the output of a mode lags its input: 0 -> 1024, 1 -> 448, 2 -> 512, any other -> 1536.
 * Any thread. */
BCAP_API uint32_t bcap_latency_samples_get(uint32_t mode) BCAP_NOEXCEPT;

/* 0; BCAP_ERROR_METADATA_VERSION when `version` is not 1, and nothing changes. Starts at 1. */
BCAP_API int bcap_metadata_version_set(bcap_handle_t handle, uint32_t version) BCAP_NOEXCEPT;

/* The record of version 1 (92, 4, 2100, 4, 8), static; null for any other version. Any thread. */
BCAP_API const bcap_metadata_info_t* bcap_metadata_info_get(uint32_t version) BCAP_NOEXCEPT;

/* ---- stages ------------------------------------------------------------------------------------ */
/* One block each, on one thread at a time, real time: no allocation, no waiting, no files, no log.
 * Every stage runs the chain of the instance's mode, so call one of them once per block. The output is
 * never outside 16 bits and never non-finite, whatever the input. In place (same channel addresses) gives
 * the same as out of place. With a failure nothing is written and the instance does not advance.
 *
 * Checks, in this order:
 *  - bcap_pre_process: `in` or `out` null: 10; `in` not of two channels: 6; `out` not of two channels:
 *    6, unless the instance's mode is 2, which writes as many of the two channels as `out` has;
 *  - bcap_analysis_process: `in` null: 10; `out` may be null, then nothing is written;
 *  - bcap_post_process: `in` or `scratch` null: 10; `out` may be null as well;
 *  - all: bad handle: 1; any of `in`, `scratch` and channel addresses null: 10; a description that is
 *    not of two channels: 6. */
BCAP_API int bcap_pre_process(bcap_handle_t handle, const bcap_buffer_desc_t* in,
                              const bcap_buffer_desc_t* out, void* scratch) BCAP_NOEXCEPT;
BCAP_API int bcap_analysis_process(bcap_handle_t handle, const bcap_buffer_desc_t* in,
                                   const bcap_buffer_desc_t* out, void* scratch) BCAP_NOEXCEPT;
BCAP_API int bcap_post_process(bcap_handle_t handle, const bcap_buffer_desc_t* in,
                               const bcap_buffer_desc_t* out, void* scratch) BCAP_NOEXCEPT;

/* ---- amounts and levels: range, default --------------------------------------------------------- */

/* Gain before everything else but the high-pass. -160..320 (-10..+20 dB), 144. */
BCAP_API int bcap_pregain_boost_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
/* The most that the make-up gain at the end may add. 0..320 (0..+20 dB), 144. */
BCAP_API int bcap_postgain_boost_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
/* Programme level that the make-up gain aims at. -496..-224 (-31..-14 dB), -288. */
BCAP_API int bcap_postgain_out_target_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
/* Peak that no sample exceeds after the gain before, n/256. 1..256, 256. */
BCAP_API int bcap_pregain_limiter_peak_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
/* Peak that no sample of the output exceeds while the make-up gain is on, n/256. 1..256, 256. */
BCAP_API int bcap_postgain_limiter_peak_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
/* Noise reduction, n/8. 0..8, 8. */
BCAP_API int bcap_rnn_amount_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
/* Ambience mixed back after the noise reduction, n/16. 0..16, 11. */
BCAP_API int bcap_rmx_amount_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
/* Equaliser: share of the band gains that is applied, n/16. 0..16, 16. */
BCAP_API int bcap_peq_amount_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
/* Near-field management: how far the wearer's own voice is held toward the scene, n/16. 0..16, 16. */
BCAP_API int bcap_nfm_amount_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;

/* Stored for the modes that analyse and post-process; without effect on the sound. */
BCAP_API int bcap_lev_amount_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT; /* 0..16, 13 */
/* 96..144, 112 */
BCAP_API int bcap_lev_loudness_range_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
/* 0..144, 48 */
BCAP_API int bcap_bsep_resgain_attenuate_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
BCAP_API int bcap_sfe_amount_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT; /* 0..16, 8 */

/* ---- switches ----------------------------------------------------------------------------------- */
/* Stored exactly as passed; 0 is off, everything else on. */

/* Slow correction of a constant level mismatch of the two microphones. */
BCAP_API int bcap_lrc_enable_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
/* High-pass against direct current and handling rumble. */
BCAP_API int bcap_hpf_enable_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
/* Gain before, with its limiter. Off: gain 0 dB, limited to full scale. */
BCAP_API int bcap_pregain_enable_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
/* Noise reduction. */
BCAP_API int bcap_rnn_enable_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
/* Make-up gain, with its limiter. Off: gain 0 dB, limited to full scale. */
BCAP_API int bcap_postgain_enable_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
/* Left and right change places, for a picture that is mirrored. */
BCAP_API int bcap_selfie_mode_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;

/* Stored, without effect on the sound. */
BCAP_API int bcap_ldn_enable_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
BCAP_API int bcap_lev_enable_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
BCAP_API int bcap_deq_enable_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
BCAP_API int bcap_bsep_enable_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
BCAP_API int bcap_sfe_enable_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
BCAP_API int bcap_deq_metadata_output_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
BCAP_API int bcap_lev_metadata_output_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;
BCAP_API int bcap_ldn_metadata_output_set(bcap_handle_t handle, int32_t value) BCAP_NOEXCEPT;

/* ---- band tables -------------------------------------------------------------------------------- */
/* `count` values for the bands from the lowest up; bands beyond `count` get the rest value (0 for gains,
 * -2080 for energies). A null table gives every band the rest value and returns 0. At most the first 75
 * values are stored, and at most 96 looked at for the result; a negative count is 0.
 * Result: 0; the count code when `count` is not 73 at 48 kHz or 75 at 44.1 kHz (the values are applied
 * all the same); the clamp code, which wins, when any value was out of range. */

/* Equaliser gain of each band, -576..320 (-36..+20 dB), rest value and default 0. */
BCAP_API int bcap_peq_band_gain_tuning_set(bcap_handle_t handle, int32_t count,
                                           const int32_t* gains) BCAP_NOEXCEPT;
/* Energy above which a band may belong to the wearer's own voice, as it reaches the microphones,
 * -2080..-160 (-130..-10 dB); -2080, rest value and default, leaves the band alone. */
BCAP_API int bcap_nfm_band_energy_tuning_set(bcap_handle_t handle, int32_t count,
                                             const int32_t* energies) BCAP_NOEXCEPT;

/* Presets for 48 kHz. Preset 1 is for small microphones in the ear's entrance, preset 2 for those that
 * also stand under a windscreen. */
BCAP_API extern const int32_t A_PEQ_TUNING_DATA_PRESET1_SR48K[BCAP_BANDS_48000];
BCAP_API extern const int32_t A_PEQ_TUNING_DATA_PRESET2_SR48K[BCAP_BANDS_48000];
BCAP_API extern const int32_t A_NFM_TUNING_DATA_SR48K[BCAP_BANDS_48000];

#ifdef __cplusplus
}
#endif

#endif
