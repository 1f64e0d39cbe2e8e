// Byte FIFO; called by the read path and the stream's control operations, each under the lock of
// the buffer concerned, and by the algorithm runtime, which owns the records.
#define LOG_TAG "BinauralRecordRingbuffer"

#include "binaural_record/utils/ring_buffer.h"

#include <stdlib.h>
#include <string.h>

#include <android/log.h>

namespace {

#define RING_LOG(format, ...)                                                                      \
  __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, format, function, ##__VA_ARGS__)

bool IsReset(const RingBuffer& record) {
  return record.start == 0 && record.end == 0;
}

int32_t HeldBytes(const RingBuffer& record) {
  return record.end >= record.start ? record.end - record.start
                                    : record.length - record.start + record.end;
}

// Deliberate: a buffer filled to exactly its capacity has start == end and no free space until a
// write resets it.
int32_t FreeBytes(const RingBuffer& record) {
  if (IsReset(record)) {
    return record.length;
  }
  return record.start >= record.end ? record.start - record.end
                                    : record.length - record.end + record.start;
}

// (position + count) modulo length, without the sum that overflows for capacities above 2^30.
int32_t Advance(const RingBuffer& record, int32_t position, int32_t count) {
  return count >= record.length - position ? count - (record.length - position) : position + count;
}

// Splits `count` bytes from `position` on at the end of the storage; copy(storage, offset, bytes).
template <typename Copy>
void ForEachPiece(const RingBuffer& record, int32_t position, int32_t count, Copy copy) {
  const int32_t tail = record.length - position;
  const int32_t first = tail < count ? tail : count;
  copy(record.buffer + position, 0, first);
  copy(record.buffer, first, count - first);
}

}  // namespace

extern "C" {

RingBuffer* RingBuffer_create(int length) noexcept {
  const char* const function = __func__;
  if (length < 1) {
    RING_LOG("%s enter, length error.");
    return nullptr;
  }
  auto* record = static_cast<RingBuffer*>(calloc(1, sizeof(RingBuffer)));
  if (record == nullptr) {
    RING_LOG("%s enter, calloc failed");
    return nullptr;
  }
  record->buffer = static_cast<uint8_t*>(calloc(1, static_cast<size_t>(length)));
  if (record->buffer == nullptr) {
    RING_LOG("%s enter, calloc buffer->buffer failed");
    free(record);
    return nullptr;
  }
  record->length = length;
  return record;
}

void RingBuffer_destroy(RingBuffer* record) noexcept {
  if (record != nullptr) {
    free(record->buffer);
    free(record);
  }
}

void RingBuffer_clear(RingBuffer* record) noexcept {
  const char* const function = __func__;
  if (record == nullptr || record->buffer == nullptr) {
    RING_LOG("%s enter, null pointer error");
    return;
  }
  record->start = 0;
  record->end = 0;
  memset(record->buffer, 0, static_cast<size_t>(record->length));
}

uint32_t RingBuffer_available_space(const RingBuffer* record) noexcept {
  return record == nullptr ? 0 : static_cast<uint32_t>(FreeBytes(*record));
}

int32_t RingBuffer_available_data(const RingBuffer* record) noexcept {
  return record == nullptr ? 0 : HeldBytes(*record);
}

int RingBuffer_full(const RingBuffer* record) noexcept {
  return record != nullptr && FreeBytes(*record) == 0;
}

int RingBuffer_empty(const RingBuffer* record) noexcept {
  return record == nullptr || record->start == record->end;
}

int RingBuffer_write(RingBuffer* record, const void* source, int count, int debug) noexcept {
  const char* const function = __func__;
  if (record == nullptr || source == nullptr || count < 0) {
    RING_LOG("%s enter, RingBuffer_write params error");
    return -1;
  }
  // Deliberate: a completely full buffer counts as without data here, so its bytes are discarded.
  if (record->start == record->end) {
    record->start = 0;
    record->end = 0;
  }
  const int32_t space = FreeBytes(*record);
  if (space < count) {
    RING_LOG("%s enter, Not enough space: %d space available, %d request, start %d, end %d, "
             "length %d",
             space, count, record->start, record->end, record->length);
    return -1;
  }
  if (debug != 0) {
    // Deliberate: informational, yet at ERROR like every line of this file.
    RING_LOG("%s enter, before write: %d space available, %d request, start %d, end %d, length %d",
             space, count, record->start, record->end, record->length);
  }
  const auto* bytes = static_cast<const uint8_t*>(source);
  ForEachPiece(*record, record->end, count, [bytes](uint8_t* storage, int32_t offset, int32_t n) {
    memcpy(storage, bytes + offset, static_cast<size_t>(n));
  });
  record->end = Advance(*record, record->end, count);
  if (debug != 0) {
    RING_LOG("%s enter, after write: %d space available, %d request, start %d, end %d, length %d",
             FreeBytes(*record), count, record->start, record->end, record->length);
  }
  return count;
}

int RingBuffer_read(RingBuffer* record, void* destination, int count, int debug) noexcept {
  const char* const function = __func__;
  if (record == nullptr || destination == nullptr || count < 0) {
    RING_LOG("%s enter, params error");
    return -1;
  }
  if (HeldBytes(*record) < count) {
    RING_LOG("%s enter, Not enough in the buffer: has data %d, needs %d, start %d, end %d, "
             "length %d",
             HeldBytes(*record), count, record->start, record->end, record->length);
    return -1;
  }
  if (debug != 0) {
    RING_LOG("%s enter, before read: in the buffer: has data %d, needs %d, start %d, end %d, "
             "length %d",
             HeldBytes(*record), count, record->start, record->end, record->length);
  }
  auto* bytes = static_cast<uint8_t*>(destination);
  ForEachPiece(*record, record->start, count,
               [bytes](const uint8_t* storage, int32_t offset, int32_t n) {
                 memcpy(bytes + offset, storage, static_cast<size_t>(n));
               });
  record->start = Advance(*record, record->start, count);
  if (debug != 0) {
    RING_LOG("%s enter, after read: in the buffer: has data %d, needs %d, start %d, end %d, "
             "length %d",
             HeldBytes(*record), count, record->start, record->end, record->length);
  }
  if (record->start == record->end) {
    record->start = 0;
    record->end = 0;
  }
  return count;
}

}  // extern "C"
