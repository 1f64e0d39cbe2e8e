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

TEST(HandOver, ABusySetterDelaysAChangeAndNothingElse) {
  Capture capture;
  capture.AllOff();
  const Stereo input = noise(0.1, 12 * kBlock);
  capture.Process(input.Part(0, 4 * kBlock));
  bcap_selfie_mode_set(capture.handle(), 1);

  std::promise<void> locked, done;
  std::thread busy_setter([&] {
    const bcap::MutexLock lock(bcap::find_core(capture.handle())->mutex);
    locked.set_value();
    done.get_future().wait();
  });
  locked.get_future().wait();
  EXPECT_EQ(capture.Process(input.Part(4 * kBlock, 4 * kBlock)),
            input.Part(4 * kBlock - kLatency, 4 * kBlock));  // on the old values
  bcap_reset(capture.handle());
  EXPECT_EQ(capture.Process(Stereo(4 * kBlock)), Stereo(4 * kBlock));
  done.set_value();
  busy_setter.join();

  const Stereo output = capture.Process(input.Part(8 * kBlock, 4 * kBlock));
  EXPECT_EQ(output.Part(kLatency, 2 * kBlock), input.Part(8 * kBlock, 2 * kBlock).Swapped());
}

// A pure tone through each change of a parameter: curvature far beyond that of the tones involved would be a
// click. A jump between two phases of a tone of amplitude 0.2, as an unramped change makes it, has up to 0.4.
TEST(HandOver, NoChangeClicks) {
  const std::vector<int32_t> up(73, 160), down(73, -320), flat(73, 0);
  using Change = std::function<void(Capture&)>;
  const auto set = [](auto setter, int32_t value) {
    return [=](Capture& capture) { capture.Set(setter, value); };
  };
  const auto gain = [](int32_t boost) { return [=](Capture& c) { c.GainBefore(boost); }; };
  const auto equalise = [](auto& gains) { return [&](Capture& c) { c.Equalise(gains); }; };
  const Change nothing = [](Capture&) {};
  const struct {
    const char* name;
    Change before, change;
    double steepest;
  } cases[] = {
      {"mirror", nothing, set(bcap_selfie_mode_set, 1), 0.007},
      {"high-pass", nothing, set(bcap_hpf_enable_set, 1), 0.007},
      {"boost", gain(144), gain(240), 0.018},
      {"gain before on", nothing, gain(-160), 0.007},
      {"peak", gain(0), set(bcap_pregain_limiter_peak_set, 13), 0.007},
      {"equaliser up", nothing, equalise(up), 0.013},
      {"equaliser down", nothing, equalise(down), 0.007},
      {"equaliser off", equalise(down), equalise(flat), 0.007},
      {"noise reduction", nothing, set(bcap_rnn_enable_set, 1), 0.007},
      {"make-up off", set(bcap_postgain_enable_set, 1), set(bcap_postgain_enable_set, 0), 0.018},
  };
  const Stereo input = sine(1000.0, 0.2, 0.1, whole_blocks(1.0));
  const size_t half = whole_blocks(0.5);
  for (const auto& c : cases) {
    Capture capture;
    c.before(capture.AllOff());
    const Stereo first = capture.Process(input.Part(0, half));
    c.change(capture);
    const Stereo rest = capture.Process(input.Part(half, input.frames() - half));
    EXPECT_LT(steepest(first.Then(rest).left, half - 4 * kBlock), c.steepest) << c.name;
  }
}

}  // namespace
