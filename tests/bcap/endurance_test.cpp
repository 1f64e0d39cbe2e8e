// Any samples at any setting: finite, bounded, and never stuck on what went before. The soak program runs the
// same for hours.
#include <gtest/gtest.h>

#include "capture.h"

namespace {

using Setter = int (*)(bcap_handle_t, int32_t);
const Setter kSetters[] = {
    bcap_pregain_boost_set, bcap_postgain_boost_set,       bcap_postgain_out_target_set,
    bcap_rnn_amount_set,    bcap_pregain_limiter_peak_set, bcap_postgain_limiter_peak_set,
    bcap_rmx_amount_set,    bcap_peq_amount_set,           bcap_nfm_amount_set,
    bcap_lrc_enable_set,    bcap_hpf_enable_set,           bcap_pregain_enable_set,
    bcap_rnn_enable_set,    bcap_postgain_enable_set,      bcap_selfie_mode_set,
    bcap_lev_amount_set,    bcap_lev_loudness_range_set,   bcap_bsep_resgain_attenuate_set,
    bcap_sfe_amount_set,    bcap_ldn_enable_set,           bcap_deq_enable_set};

// One block of a kind chosen by chance.
Stereo any_block(std::mt19937& random) {
  Stereo block(kBlock);
  const uint32_t kind = random() % 6;
  const double level = std::pow(10.0, -static_cast<double>(random() % 100) / 20.0);
  for (size_t n = 0; n < kBlock; ++n) {
    const auto bits = static_cast<int16_t>(random());
    const auto other_bits = static_cast<int16_t>(random());
    switch (kind) {
      case 0:
        break;
      case 1:
        block.left[n] = bits;
        block.right[n] = other_bits;
        break;
      case 2:
        block.left[n] = block.right[n] = static_cast<int16_t>(bits * level);
        break;
      case 3:
        block.left[n] = n % 2 == 0 ? -32768 : 32767;
        break;
      case 4:
        block.left[n] = block.right[n] = static_cast<int16_t>(bits % 2);
        break;
      default:
        block.left[n] = n == bits % kBlock ? 32767 : 0;
        block.right[n] = -32768;
    }
  }
  return block;
}

TEST(Endurance, RandomSettingsAndSamplesStayBoundedAndAreForgotten) {
  for (const uint32_t mode : {0u, 1u, 2u, 3u}) {
    std::mt19937 random(20 + mode);
    Capture capture(mode, mode % 2 == 0 ? 48000 : 44100);
    for (int block = 0; block < 6000; ++block) {
      if (block % 8 == 0) {
        const Setter set = kSetters[random() % (sizeof(kSetters) / sizeof(kSetters[0]))];
        set(capture.handle(), static_cast<int32_t>(random() % 1200) - 600);
        if (random() % 8 == 0) {
          std::vector<int32_t> bands(random() % 97);
          for (int32_t& band : bands) {
            band = static_cast<int32_t>(random() % 3000) - 2300;
          }
          bcap_peq_band_gain_tuning_set(capture.handle(), static_cast<int32_t>(bands.size()),
                                        bands.data());
          bcap_nfm_band_energy_tuning_set(capture.handle(), static_cast<int32_t>(bands.size()),
                                          bands.data());
        }
        if (random() % 64 == 0) {
          bcap_reset(capture.handle());
        }
      }
      capture.Process(any_block(random));  // throws when a block is refused
    }
    // A filter or a gain that went astray would still be heard now.
    bcap_selfie_mode_set(capture.AllOff().handle(), 0);
    bcap_pregain_enable_set(capture.handle(), 0);
    bcap_postgain_enable_set(capture.handle(), 0);
    bcap_rnn_enable_set(capture.handle(), 0);
    bcap_peq_band_gain_tuning_set(capture.handle(), 73, nullptr);
    bcap_nfm_band_energy_tuning_set(capture.handle(), 73, nullptr);
    capture.Process(Stereo(200 * kBlock));
    const Stereo input = noise(0.1, 20 * kBlock);
    const size_t latency = bcap_latency_samples_get(mode);
    const Stereo output = capture.Process(input);
    EXPECT_EQ(output.Part(latency, 10 * kBlock), input.Part(0, 10 * kBlock)) << "mode " << mode;
  }
}

}  // namespace
