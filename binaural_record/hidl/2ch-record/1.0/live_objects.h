// The registry of live device records and streams: what makes every pointer that the framework
// hands in safe to look up, whoever closed the object meanwhile.
//
// 1. A pointer is compared, never followed, until the registry knows it. Unknown pointers are
//    refused; the operation then answers its neutral value.
// 2. A stream operation enters its stream (StreamGuard) and leaves it; a closing stream is entered
//    no more, and its closer waits until everyone has left.
// 3. A closed stream's memory stays until the next open or the last device's close: the framework may
//    still load an operation slot from it. One that could not be emptied in time stays until then
//    too, and longer while somebody is inside.
// 4. One leaf mutex, held for the look-up only. Nothing here calls out.
#ifndef BINAURAL_RECORD_HIDL_2CH_RECORD_1_0_LIVE_OBJECTS_H_
#define BINAURAL_RECORD_HIDL_2CH_RECORD_1_0_LIVE_OBJECTS_H_

#include <stddef.h>

#include <type_traits>

#include "binaural_record/binaural_record_device.h"
#include "binaural_record/hidl/2ch-record/1.0/binaural_stream_apis.h"
#include "binaural_record/utils/locks.h"

namespace vendor::corva::binaural_record {

// A stream with its registry entry, one heap block. The fields behind `in` belong to the registry.
struct LiveStream {
  BinauralStreamIn in;  // first: the framework's pointer is the entry's pointer

  enum class Phase { kOpen, kOpenFailed, kClosing, kClosed };
  Phase phase = Phase::kOpen;
  int in_flight = 0;
  utils::Condition idle;
  LiveStream* next = nullptr;
};

static_assert(std::is_standard_layout<LiveStream>::value && offsetof(LiveStream, in) == 0,
              "the platform's pointer is compared with the entry's");

// --- Device records -------------------------------------------------------------------------------

// A zero-filled registered record, or null without memory.
BinauralRecordDevice* NewDevice();

// Unregisters and frees; false, and nothing done, for a record that is not live.
bool FreeDevice(const void* device);

bool AnyDevice();

// --- Streams --------------------------------------------------------------------------------------

// Takes ownership, lists the stream as open and stores it in the device record if that is live.
void PublishStream(audio_hw_device* device, LiveStream* stream);

// The stream's own open failed: unless the caller closes it, it is taken over by the next open.
void MarkOpenFailed(LiveStream* stream);

// From here on nobody enters the stream, and neither `device` nor any other device record has it as its
// stream. Null, and nothing done, for a stream that is not open.
// Deliberate: `device` forgets its stream also when that is another one, opened later.
LiveStream* BeginClose(const audio_hw_device* device, const audio_stream_in* stream);

// The same for any stream whose own open failed; null when there is none left.
LiveStream* BeginCloseOfFailedOpen();

// Waits until everyone has left the closing stream; false when somebody is inside after `limit_ms`.
bool WaitUntilIdle(LiveStream* stream, int limit_ms);

// Ends a close: the stream's memory is kept as told above.
void EndClose(LiveStream* stream);

// Frees the closed streams that nobody is inside.
void FreeClosedStreams();

// Holds a stream open for the length of one operation.
class StreamGuard {
 public:
  explicit StreamGuard(const void* stream);                    // platform pointer of any kind
  static StreamGuard OfDevice(const audio_hw_device* device);  // the device record's stream
  ~StreamGuard();
  StreamGuard(StreamGuard&& other) noexcept : stream_(other.stream_) { other.stream_ = nullptr; }
  StreamGuard(const StreamGuard&) = delete;
  StreamGuard& operator=(const StreamGuard&) = delete;

  explicit operator bool() const { return stream_ != nullptr; }
  BinauralStreamIn* operator->() const { return &stream_->in; }
  BinauralStreamIn& operator*() const { return stream_->in; }

 private:
  StreamGuard() = default;

  LiveStream* stream_ = nullptr;
};

}  // namespace vendor::corva::binaural_record

#endif  // BINAURAL_RECORD_HIDL_2CH_RECORD_1_0_LIVE_OBJECTS_H_
