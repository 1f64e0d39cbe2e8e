// How parameters reach the stages: never by waiting, at the latest with the block after, and never with a
// click.
#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <thread>

#include "bcap/src/instance.h"
#include "capture.h"

namespace {

constexpr size_t kLatency = 1024;

// Someone in the middle of a store.
class BusySetter {
 public:
  explicit BusySetter(bcap_handle_t handle) {
    std::promise<void> locked;
    thread_ = std::thread([this, handle, &locked] {
      bcap::MutexLock lock(bcap::find_core(handle)->mutex);
      locked.set_value();
      release_.get_future().wait();
    });
    locked.get_future().wait();
  }
  ~BusySetter() {
    release_.set_value();
    thread_.join();
  }

 private:
  std::promise<void> release_;
  std::thread thread_;
};

TEST(HandOver, ABusySetterDelaysAChangeAndNothingElse) {
  Capture capture;
  capture.AllOff();
  const Stereo input = noise(0.1, 12 * kBlock);
  Stereo output = capture.Process(input.Part(0, 4 * kBlock));
  bcap_selfie_mode_set(capture.handle(), 1);
  {
    BusySetter busy(capture.handle());
    output = capture.Process(input.Part(4 * kBlock, 4 * kBlock));
  }
  EXPECT_EQ(output, input.Part(4 * kBlock - kLatency, 4 * kBlock));  // on the old values
  output = capture.Process(input.Part(8 * kBlock, 4 * kBlock));
  EXPECT_EQ(output.Part(kBlock, 3 * kBlock),
            input.Part(9 * kBlock - kLatency, 3 * kBlock).Swapped());
}

TEST(HandOver, ResetNeedsNoLock) {
  Capture capture;
  capture.AllOff().Process(noise(0.1, 8 * kBlock));
  BusySetter busy(capture.handle());
  bcap_reset(capture.handle());
  EXPECT_EQ(capture.Process(Stereo(4 * kBlock)), Stereo(4 * kBlock));
}

// A pure tone through each change of a parameter: curvature far beyond that of the tones involved would be a
// click. A jump between two phases of a tone of amplitude 0.2, as an unramped change makes it, has up to 0.4.
TEST(HandOver, NoChangeClicks) {
  const std::vector<int32_t> up(73, 160), down(73, -320);
  const struct {
    const char* name;
    std::function<void(bcap_handle_t)> before, change;
    double steepest;
  } cases[] = {
      {"mirror", [](bcap_handle_t) {}, [](bcap_handle_t h) { bcap_selfie_mode_set(h, 1); }, 0.007},
      {"high-pass", [](bcap_handle_t) {}, [](bcap_handle_t h) { bcap_hpf_enable_set(h, 1); },
       0.007},
      {"boost", [](bcap_handle_t h) { bcap_pregain_enable_set(h, 1); },
       [](bcap_handle_t h) { bcap_pregain_boost_set(h, 240); }, 0.018},
      {"gain before on", [](bcap_handle_t h) { bcap_pregain_boost_set(h, -160); },
       [](bcap_handle_t h) { bcap_pregain_enable_set(h, 1); }, 0.007},
      {"peak",
       [](bcap_handle_t h) {
         bcap_pregain_enable_set(h, 1);
         bcap_pregain_boost_set(h, 0);
       },
       [](bcap_handle_t h) { bcap_pregain_limiter_peak_set(h, 13); }, 0.007},
      {"equaliser up", [](bcap_handle_t) {},
       [&up](bcap_handle_t h) { bcap_peq_band_gain_tuning_set(h, 73, up.data()); }, 0.013},
      {"equaliser down", [](bcap_handle_t) {},
       [&down](bcap_handle_t h) { bcap_peq_band_gain_tuning_set(h, 73, down.data()); }, 0.007},
      {"equaliser off",
       [&down](bcap_handle_t h) { bcap_peq_band_gain_tuning_set(h, 73, down.data()); },
       [](bcap_handle_t h) { bcap_peq_band_gain_tuning_set(h, 73, nullptr); }, 0.007},
      {"noise reduction", [](bcap_handle_t) {}, [](bcap_handle_t h) { bcap_rnn_enable_set(h, 1); },
       0.007},
      {"make-up gain off", [](bcap_handle_t h) { bcap_postgain_enable_set(h, 1); },
       [](bcap_handle_t h) { bcap_postgain_enable_set(h, 0); }, 0.018},
  };
  for (const auto& c : cases) {
    Capture capture;
    c.before(capture.AllOff().handle());
    const Stereo input = sine(1000.0, 0.2, 0.1, whole_blocks(1.0));
    const size_t half = whole_blocks(0.5);
    Stereo output = capture.Process(input.Part(0, half));
    c.change(capture.handle());
    const Stereo rest = capture.Process(input.Part(half, input.frames() - half));
    output.left.insert(output.left.end(), rest.left.begin(), rest.left.end());
    double steepest = 0.0;
    for (size_t n = half - 4 * kBlock; n < output.left.size(); ++n) {
      steepest = std::max(
          steepest,
          std::fabs(output.left[n] - 2.0 * output.left[n - 1] + output.left[n - 2]) / 32768.0);
    }
    EXPECT_LT(steepest, c.steepest) << c.name;
  }
}

}  // namespace
