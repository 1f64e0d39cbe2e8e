// What the capture thread does: nothing that can take unbounded time in the library's stages, and in
// in_read only the one temporary of a supplementary read.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include <gtest/gtest.h>

#include "bcap.h"
#include "tests/robustness/interposer.h"
#include "tests/robustness/module_calls.h"
#include "tests/robustness/quiet_log.h"
#include "tests/robustness/scripted_session.h"

namespace {

using interposer::Deeds;
using interposer::Watch;

using Stage = int (*)(bcap_handle_t, const bcap_buffer_desc_t*, const bcap_buffer_desc_t*, void*);

void ExpectStagesInRealTime(uint32_t rate_hz, uint32_t mode) {
  const bcap_config_t config{rate_hz, 512, mode, 600};
  std::vector<char> memory(bcap_query_memory(&config));
  std::vector<char> scratch(bcap_query_scratch(&config));
  bcap_handle_t handle = nullptr;
  ASSERT_EQ(bcap_init(&config, memory.data(), &handle), 0);
  std::array<int16_t, 1024> pcm{};
  int16_t* channels[2] = {&pcm[0], &pcm[1]};
  const bcap_buffer_desc_t block{2, 2, 4, channels};
  std::vector<int32_t> bands(rate_hz == 48000 ? 73 : 75);
  for (const Stage stage : {bcap_pre_process, bcap_analysis_process, bcap_post_process}) {
    for (int n = 0; n < 64; ++n) {
      for (size_t i = 0; i < pcm.size(); ++i) {
        pcm[i] = static_cast<int16_t>((i * 7919 + static_cast<size_t>(n) * 104729) * 31 % 65536);
      }
      // Something for the block to take up: every derived value is computed anew.
      bcap_pregain_enable_set(handle, 1);
      bcap_postgain_enable_set(handle, 1);
      bcap_rnn_enable_set(handle, n % 3);
      bcap_selfie_mode_set(handle, n % 2);
      bcap_pregain_boost_set(handle, n * 5);
      bands[0] = -n;
      bcap_peq_band_gain_tuning_set(handle, static_cast<int32_t>(bands.size()), bands.data());
      Deeds deeds;
      int result = -1;
      {
        const Watch watch;
        result = stage(handle, &block, &block, scratch.data());
        deeds = watch.deeds();
      }
      ASSERT_EQ(result, 0);
      const std::array<uint64_t, 5> done{deeds.allocations, deeds.frees, deeds.lock_calls,
                                         deeds.waits, deeds.file_calls};
      ASSERT_EQ(done, (std::array<uint64_t, 5>{}));
    }
  }
  bcap_shutdown(handle);
}

TEST(StagesInRealTime, NeitherAllocateNorLockNorWaitNorTouchFiles) {
  for (const uint32_t mode : {0, 1, 2, 3}) {
    for (const uint32_t rate_hz : {44100, 48000}) {
      SCOPED_TRACE(testing::Message() << "mode " << mode << ", " << rate_hz);
      ExpectStagesInRealTime(rate_hz, mode);
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
    Deeds deeds;
    {
      const Watch watch;
      delivered = stream->read(stream, pcm.data(), pcm.size());
      deeds = watch.deeds();
    }
    ASSERT_EQ(delivered, 3840);
    ASSERT_EQ(deeds.allocations, port_reads - 1);
    ASSERT_EQ(deeds.frees, port_reads - 1);
    ASSERT_EQ(deeds.waits, 0u);
    ASSERT_EQ(deeds.file_calls, 0u);
    supplementary_reads += port_reads - 1;
  }
  EXPECT_EQ(supplementary_reads, 20u);
  EXPECT_EQ(QuietLog::lines(), lines_before);
  device->close_input_stream(device, stream);
  device->common.close(&device->common);
}

}  // namespace
