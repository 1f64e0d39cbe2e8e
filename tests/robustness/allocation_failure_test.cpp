// Memory runs out at every single place: device open with a full coefficient file, stream open, reads,
// a mode change, every parameter call and the closes, with the n-th allocation refused for n = 1, 2,
// 3 ... until nothing is refused any more. Each call answers as documented, nothing stays behind, and
// with memory back the same calls succeed.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/host/binaural_host.h"
#include "tests/robustness/interposer.h"
#include "tests/robustness/module_calls.h"
#include "tests/robustness/quiet_log.h"
#include "tests/robustness/scripted_session.h"

namespace {

using interposer::FailingAllocations;

constexpr char kCoefficientFile[] = "/odm/etc/binaural_record_algo_coeffs.xml";
// Less than a block, so that a read costs one block, and the first one a supplementary read as well.
constexpr size_t kReadBytes = 256;

using FreeText = std::unique_ptr<char, decltype(&free)>;

testing::AssertionResult IsOneOf(int64_t result, std::initializer_list<int64_t> documented) {
  if (std::find(documented.begin(), documented.end(), result) != documented.end()) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "undocumented result " << result;
}

// The calls after which the stream is open. False when any of them fell short of success.
bool UseStream(audio_hw_device* device, audio_stream_in* stream, uint8_t* pcm) {
  bool complete = true;
  const auto read = [&] {
    const ssize_t result = stream->read(stream, pcm, kReadBytes);
    EXPECT_TRUE(IsOneOf(result, {0, kReadBytes}));
    complete = complete && result == kReadBytes;
  };
  const auto set = [&](const char* text) {
    const int result = device->set_parameters(device, text);
    EXPECT_TRUE(IsOneOf(result, {0, -ENOMEM}));
    complete = complete && result == 0;
  };
  read();
  read();
  set("binaural_recording_algorithmMode=0;routing=-2147483584");
  read();
  set("binaural_recording_algorithmMode=1;binaural_recording_mirror=false");
  set("sup_sampling_rates=;RecordSuspended=true");
  set("RecordSuspended=false");
  read();
  const FreeText reply(
      device->get_parameters(device, "sup_sampling_rates;sup_channels;sup_formats"), free);
  complete = complete && reply != nullptr && strlen(reply.get()) > 80;
  int64_t frames = 0;
  int64_t time = 0;
  EXPECT_EQ(stream->get_capture_position(stream, &frames, &time), 0);
  EXPECT_TRUE(IsOneOf(stream->common.standby(&stream->common), {0, -EBUSY}));
  EXPECT_EQ(stream->stop(stream), 0);
  return complete;
}

// From device open to device close; true when every call succeeded.
bool Scenario(uint8_t* pcm) {
  hw_device_t* opened = nullptr;
  const int open_result = HMI.methods->open(&HMI, AUDIO_HARDWARE_INTERFACE, &opened);
  EXPECT_TRUE(IsOneOf(open_result, {0, -ENOMEM}));
  EXPECT_EQ(open_result == 0, opened != nullptr);
  if (open_result != 0) {
    return false;
  }
  auto* device = reinterpret_cast<audio_hw_device*>(opened);
  const int set_result = device->set_parameters(
      device, "binaural_recording_bt_name=Alder Buds;binaural_recording_orientation=front;"
              "binaural_recording_mirror=true;binaural_recording_algorithmMode=1");
  EXPECT_TRUE(IsOneOf(set_result, {0, -ENOMEM}));
  auto* stream = reinterpret_cast<audio_stream_in*>(8);
  const int stream_result = OpenStream(device, &stream);
  EXPECT_TRUE(IsOneOf(stream_result, {0, -1, -ENOMEM, -EINVAL}));
  EXPECT_EQ(stream_result == 0 || stream_result == -1, stream != nullptr);
  bool complete = set_result == 0 && stream_result == 0;
  if (stream != nullptr) {
    complete = UseStream(device, stream, pcm) && complete;
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
  std::vector<uint8_t> pcm(kReadBytes);
  ASSERT_TRUE(Scenario(pcm.data()));  // what the process allocates once and keeps
  for (const auto extent :
       {FailingAllocations::Extent::kOnce, FailingAllocations::Extent::kForGood}) {
    uint64_t nth = 0;
    for (bool refused = true; refused;) {
      SCOPED_TRACE("allocation " + std::to_string(++nth));
      const int64_t blocks = interposer::LiveBlocks();
      {
        const FailingAllocations failing(nth, extent);
        const bool complete = Scenario(pcm.data());
        refused = failing.reached();
        EXPECT_TRUE(complete || refused);
      }
      EXPECT_EQ(interposer::LiveBlocks() - blocks, 0);
      if (nth % 8 == 0 || !refused) {
        EXPECT_TRUE(Scenario(pcm.data())) << "with memory back";
      }
      ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(nth, 20u);
  }
  host_redirect(kCoefficientFile, nullptr);
}

}  // namespace
