// Registry of live device records and streams; called on every thread of the framework.
#include "binaural_record/hidl/2ch-record/1.0/live_objects.h"

#include <stdlib.h>

namespace vendor::corva::binaural_record {

namespace {

struct LiveDevice {
  BinauralRecordDevice record;  // first: the framework's pointer is the entry's pointer
  LiveDevice* next;
};

utils::StaticMutex gMutex;  // over both lists, the entries' registry fields and every input_stream
LiveDevice* gDevices;
LiveStream* gStreams;

template <typename Entry>
Entry* Find_locked(Entry* head, const void* pointer) {
  while (head != nullptr && head != pointer) {
    head = head->next;
  }
  return head;
}

template <typename Entry>
void Unlink_locked(Entry** head, Entry* entry) {
  while (*head != entry) {
    head = &(*head)->next;
  }
  *head = entry->next;
}

bool IsOpen(const LiveStream& stream) {
  return stream.phase == LiveStream::Phase::kOpen || stream.phase == LiveStream::Phase::kOpenFailed;
}

// Marks an open stream as closing and takes it from every device record; `device` forgets whatever it has.
LiveStream* BeginClose_locked(const audio_hw_device* closing_device, LiveStream* stream) {
  stream->phase = LiveStream::Phase::kClosing;
  for (LiveDevice* device = gDevices; device != nullptr; device = device->next) {
    auto& device_stream = device->record.input_stream;
    if (&device->record.device == closing_device || device_stream == &stream->in.stream) {
      device_stream = nullptr;
    }
  }
  return stream;
}

LiveStream* Enter_locked(const void* pointer) {
  LiveStream* stream = Find_locked(gStreams, pointer);
  if (stream == nullptr || !IsOpen(*stream)) {
    return nullptr;
  }
  ++stream->in_flight;
  return stream;
}

}  // namespace

BinauralRecordDevice* NewDevice() {
  // calloc: the record is handed out zero-filled, reserved words and absent slots included.
  auto* device = static_cast<LiveDevice*>(calloc(1, sizeof(LiveDevice)));
  if (device == nullptr) {
    return nullptr;
  }
  utils::StaticLock lock(gMutex);
  device->next = gDevices;
  gDevices = device;
  return &device->record;
}

bool FreeDevice(const void* device) {
  LiveDevice* entry = nullptr;
  {
    utils::StaticLock lock(gMutex);
    entry = Find_locked(gDevices, device);
    if (entry == nullptr) {
      return false;
    }
    Unlink_locked(&gDevices, entry);
  }
  free(entry);
  return true;
}

bool AnyDevice() {
  utils::StaticLock lock(gMutex);
  return gDevices != nullptr;
}

void PublishStream(audio_hw_device* device, LiveStream* stream) {
  utils::StaticLock lock(gMutex);
  stream->next = gStreams;
  gStreams = stream;
  if (LiveDevice* entry = Find_locked(gDevices, device)) {
    entry->record.input_stream = &stream->in.stream;
  }
}

void MarkOpenFailed(LiveStream* stream) {
  utils::StaticLock lock(gMutex);
  if (stream->phase == LiveStream::Phase::kOpen) {
    stream->phase = LiveStream::Phase::kOpenFailed;
  }
}

LiveStream* BeginClose(const audio_hw_device* device, const audio_stream_in* stream) {
  utils::StaticLock lock(gMutex);
  LiveStream* entry = Find_locked(gStreams, stream);
  return entry != nullptr && IsOpen(*entry) ? BeginClose_locked(device, entry) : nullptr;
}

LiveStream* BeginCloseOfFailedOpen() {
  utils::StaticLock lock(gMutex);
  for (LiveStream* entry = gStreams; entry != nullptr; entry = entry->next) {
    if (entry->phase == LiveStream::Phase::kOpenFailed) {
      return BeginClose_locked(nullptr, entry);
    }
  }
  return nullptr;
}

bool WaitUntilIdle(LiveStream* stream, int limit_ms) {
  utils::StaticLock lock(gMutex);
  return stream->idle.WaitFor(gMutex, limit_ms, [stream] { return stream->in_flight == 0; });
}

void EndClose(LiveStream* stream) {
  utils::StaticLock lock(gMutex);
  stream->phase = LiveStream::Phase::kClosed;
}

void FreeClosedStreams() {
  LiveStream* closed = nullptr;
  {
    utils::StaticLock lock(gMutex);
    for (LiveStream** link = &gStreams; *link != nullptr;) {
      LiveStream* stream = *link;
      if (stream->phase == LiveStream::Phase::kClosed && stream->in_flight == 0) {
        *link = stream->next;
        stream->next = closed;
        closed = stream;
      } else {
        link = &stream->next;
      }
    }
  }
  while (closed != nullptr) {
    LiveStream* next = closed->next;
    delete closed;
    closed = next;
  }
}

StreamGuard::StreamGuard(const void* stream) {
  utils::StaticLock lock(gMutex);
  stream_ = Enter_locked(stream);
}

StreamGuard StreamGuard::OfDevice(const audio_hw_device* device) {
  StreamGuard guard;
  utils::StaticLock lock(gMutex);
  if (const LiveDevice* entry = Find_locked(gDevices, device)) {
    guard.stream_ = Enter_locked(entry->record.input_stream);
  }
  return guard;
}

StreamGuard::~StreamGuard() {
  if (stream_ == nullptr) {
    return;
  }
  // Notified under the mutex: once it is released, the closer may go on to free the entry.
  utils::StaticLock lock(gMutex);
  if (--stream_->in_flight == 0) {
    stream_->idle.NotifyAll();
  }
}

}  // namespace vendor::corva::binaural_record
