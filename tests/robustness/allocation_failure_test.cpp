// Memory runs out at every single place: device open with a full coefficient file, stream open, reads,
// a mode change, every parameter call and the closes, with the n-th allocation refused for n = 1, 2,
// 3 ... until nothing is refused any more. Each call answers as documented, nothing stays behind, and
// with memory back the same calls succeed.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "platform/host/binaural_host.h"
#include "tests/robustness/interposer.h"
#include "tests/robustness/module_calls.h"
#include "tests/robustness/quiet_log.h"
#include "tests/robustness/scripted_session.h"

namespace {

constexpr char kCoefficientFile[] = "/odm/etc/binaural_record_algo_coeffs.xml";
// Less than a block, so that a read costs one block, and the first one a supplementary read as well.
constexpr size_t kReadBytes = 256;

// Whether a call returned the first of its documented results, which is success. Without memory.
bool Succeeds(int64_t result, std::initializer_list<int64_t> documented) {
  EXPECT_NE(std::find(documented.begin(), documented.end(), result), documented.end()) << result;
  return result == *documented.begin();
}

// From device open to device close; true when every call succeeded.
bool Scenario() {
  hw_device_t* opened = nullptr;
  const int open_result = HMI.methods->open(&HMI, AUDIO_HARDWARE_INTERFACE, &opened);
  const bool open = Succeeds(open_result, {0, -ENOMEM});
  EXPECT_EQ(open, opened != nullptr);
  if (!open) {
    return false;
  }
  auto* device = reinterpret_cast<audio_hw_device*>(opened);
  const auto set = [device](const char* text) {
    return Succeeds(device->set_parameters(device, text), {0, -ENOMEM});
  };
  bool complete = set("binaural_recording_bt_name=Alder Buds;binaural_recording_orientation=front;"
                      "binaural_recording_mirror=true;binaural_recording_algorithmMode=1");
  auto* stream = reinterpret_cast<audio_stream_in*>(8);
  const int stream_result = OpenStream(device, &stream);
  complete &= Succeeds(stream_result, {0, -1, -ENOMEM, -EINVAL});
  EXPECT_EQ(stream_result == 0 || stream_result == -1, stream != nullptr);
  if (stream != nullptr) {
    static uint8_t pcm[kReadBytes];
    const auto read = [stream] {
      return Succeeds(stream->read(stream, pcm, kReadBytes), {kReadBytes, 0});
    };
    complete &= read();
    complete &= read();
    complete &= set("binaural_recording_algorithmMode=0;routing=-2147483584");
    complete &= read();
    complete &= set("binaural_recording_algorithmMode=1;binaural_recording_mirror=false");
    complete &= set("sup_sampling_rates=;RecordSuspended=true");
    complete &= set("RecordSuspended=false");
    complete &= read();
    char* reply = device->get_parameters(device, "sup_sampling_rates;sup_channels;sup_formats");
    complete &= reply != nullptr && strlen(reply) > 80;
    free(reply);
    int64_t frames = 0, time = 0;
    EXPECT_EQ(stream->get_capture_position(stream, &frames, &time), 0);
    Succeeds(stream->common.standby(&stream->common), {0, -EBUSY});
    EXPECT_EQ(stream->stop(stream), 0);
    device->close_input_stream(device, stream);
  }
  EXPECT_EQ(device->common.close(&device->common), 0);
  return complete;
}

TEST(AllocationFailure, IsAnsweredAsDocumentedAndLeavesNothingBehind) {
  const QuietLog log{ANDROID_LOG_VERBOSE};  // every line that is written asks for memory of its own
  scripted_session::Reset();
  host_redirect(kCoefficientFile, COEFFICIENT_FILE);
  gAlgoVersion = 0;
  ASSERT_TRUE(Scenario());  // what the process allocates once and keeps
  for (const bool for_good : {false, true}) {
    uint64_t nth = 0;
    for (bool refused = true; refused;) {
      SCOPED_TRACE("allocation " + std::to_string(++nth));
      const int64_t blocks = interposer::LiveBlocks();
      {
        const interposer::FailingAllocations failing(nth, for_good);
        const bool complete = Scenario();
        refused = failing.reached();
        EXPECT_TRUE(complete || refused);
      }
      EXPECT_EQ(interposer::LiveBlocks() - blocks, 0);
      if (nth % 8 == 0 || !refused) {
        EXPECT_TRUE(Scenario()) << "with memory back";
      }
      ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(nth, 20u);
  }
  host_redirect(kCoefficientFile, nullptr);
}

}  // namespace
