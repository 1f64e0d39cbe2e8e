// What the capture thread does: nothing that can take unbounded time in the library's stages, and in
// in_read only the one temporary of a supplementary read.
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "tests/bcap/capture.h"
#include "tests/robustness/interposer.h"
#include "tests/robustness/module_calls.h"
#include "tests/robustness/quiet_log.h"
#include "tests/robustness/scripted_session.h"

namespace {

using interposer::Deeds;
using interposer::DeedsOf;

TEST(StagesInRealTime, NeitherAllocateNorLockNorWaitNorTouchFiles) {
  std::vector<char> scratch(32 * 1024);
  for (const uint32_t mode : {0, 1, 2, 3}) {
    for (const uint32_t rate_hz : {44100, 48000}) {
      Capture capture(mode, rate_hz);
      std::vector<int32_t> bands(rate_hz == 48000 ? 73 : 75);
      for (const auto stage : {bcap_pre_process, bcap_analysis_process, bcap_post_process}) {
        for (int n = 0; n < 64; ++n) {
          Stereo pcm = noise(0.3, kBlock, n);
          int16_t* channels[2] = {pcm.left.data(), pcm.right.data()};
          const bcap_buffer_desc_t block{2, 2, 2, channels};
          // Something for the block to take up: every derived value is computed anew.
          bands[0] = -n;
          capture.GainBefore(n * 5).MakeUpGain(n).Equalise(bands);
          capture.Set(bcap_rnn_enable_set, n % 3).Set(bcap_selfie_mode_set, n % 2);
          int result = -1;
          const Deeds deeds =
              DeedsOf([&] { result = stage(capture.handle(), &block, &block, scratch.data()); });
          ASSERT_EQ(result, 0);
          ASSERT_EQ(deeds, Deeds{}) << "mode " << mode << ", " << rate_hz;
        }
      }
    }
  }
}

TEST(ReadInRealTime, AllocatesTheTemporaryOfASupplementaryReadAndNothingElse) {
  scripted_session::Reset();
  uint64_t port_reads = 0;
  scripted_session::Current().on_read = [&port_reads](void*, size_t bytes) {
    ++port_reads;
    return bytes;
  };
  const QuietLog log(ANDROID_LOG_WARN);
  audio_hw_device* device = OpenDevice();
  ASSERT_NE(device, nullptr);
  audio_stream_in* stream = nullptr;
  ASSERT_EQ(OpenStream(device, &stream), 0);
  std::vector<uint8_t> pcm(3840);
  ASSERT_EQ(stream->read(stream, pcm.data(), pcm.size()), 3840);  // what is made once, is made

  const uint64_t lines_before = QuietLog::lines();
  uint64_t supplementary_reads = 0;
  for (int n = 0; n < 200; ++n) {
    if (n % 10 == 0) {
      stream->stop(stream);  // empties the buffers; the next read starts the port again
      int64_t frames = 0;
      int64_t time = 0;
      stream->get_capture_position(stream, &frames, &time);  // else the saved ones are too many
    }
    port_reads = 0;
    ssize_t delivered = -1;
    Deeds deeds = DeedsOf([&] { delivered = stream->read(stream, pcm.data(), pcm.size()); });
    ASSERT_EQ(delivered, 3840);
    deeds[interposer::kLock] = 0;  // allowed, as long as none waits
    ASSERT_EQ(deeds, (Deeds{port_reads - 1, port_reads - 1}));
    supplementary_reads += port_reads - 1;
  }
  EXPECT_EQ(supplementary_reads, 20u);
  EXPECT_EQ(QuietLog::lines(), lines_before);
  device->close_input_stream(device, stream);
  device->common.close(&device->common);
}

}  // namespace
