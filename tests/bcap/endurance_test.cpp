// Any samples at any setting: finite, bounded, and never stuck on what went before.
#include <gtest/gtest.h>

#include "capture.h"
#include "scalars.h"

namespace {

TEST(Endurance, RandomSettingsAndSamplesStayBoundedAndAreForgotten) {
  for (const uint32_t mode : {0u, 1u, 2u, 3u}) {
    std::mt19937 random(20 + mode);
    Capture capture(mode, mode % 2 == 0 ? 48000 : 44100);
    for (int block = 0; block < 6000; ++block) {
      if (block % 8 == 0) {
        capture.Set(kScalars[random() % std::size(kScalars)].set,
                    static_cast<int32_t>(random() % 1200) - 600);
        if (random() % 8 == 0) {
          std::vector<int32_t> bands(random() % 97);
          for (int32_t& band : bands) {
            band = static_cast<int32_t>(random() % 3000) - 2300;
          }
          bcap_nfm_band_energy_tuning_set(capture.handle(), static_cast<int32_t>(bands.size()),
                                          bands.data());
          capture.Equalise(bands);
        }
        if (random() % 64 == 0) {
          bcap_reset(capture.handle());
        }
      }
      // From inaudible noise to one between the rails. It throws when a block is refused.
      capture.Process(noise(from_db(30.0 - random() % 144), kBlock, random()));
    }
    // A filter or a gain that went astray would still be heard now.
    capture.AllOff().Set(bcap_selfie_mode_set, 0).Set(bcap_pregain_enable_set, 0);
    capture.Set(bcap_postgain_enable_set, 0).Set(bcap_rnn_enable_set, 0);
    capture.NearField(nullptr).Equalise(std::vector<int32_t>(73, 0));
    capture.Process(Stereo(200 * kBlock));
    const Stereo input = noise(0.1, 20 * kBlock);
    const size_t latency = bcap_latency_samples_get(mode);
    const Stereo output = capture.Process(input);
    EXPECT_EQ(output.Part(latency, 10 * kBlock), input.Part(0, 10 * kBlock)) << "mode " << mode;
  }
}

}  // namespace
