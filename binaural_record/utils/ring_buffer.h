// Byte FIFO of fixed capacity between the port, the capture library and the framework's reads.
//
// 1. Positions are signed 32-bit bytes in [0, length); data lies from `start` up to `end`, wrapping.
// 2. No slot is kept free: `start` == `end` means "no data". A write that fills the buffer exactly is
//    therefore lost to the next reader or writer; owners size the buffers with room to spare.
// 3. No locking inside: callers use one lock per record.
// 4. Diagnostics go to the log at ERROR, tag "BinauralRecordRingbuffer". Nothing throws; a record
//    that is null counts as empty and without space.
#ifndef BINAURAL_RECORD_UTILS_RING_BUFFER_H_
#define BINAURAL_RECORD_UTILS_RING_BUFFER_H_

#include <stdint.h>

extern "C" {

struct RingBuffer {
  uint8_t* buffer;  // `length` bytes, owned
  int32_t length;   // capacity in bytes, at least 1
  int32_t start;    // read position
  int32_t end;      // write position
};

// Makes an empty record with zero-filled storage of `length` bytes. Null when `length` < 1 or memory
// is short. The caller owns the record and gives it back with RingBuffer_destroy.
RingBuffer* RingBuffer_create(int length) noexcept;

// Frees storage and record; null is ignored.
void RingBuffer_destroy(RingBuffer* record) noexcept;

// Forgets the data and zero-fills the storage.
void RingBuffer_clear(RingBuffer* record) noexcept;

// Bytes that may be written: `length` only in the reset state, 0 where start == end otherwise.
uint32_t RingBuffer_available_space(const RingBuffer* record) noexcept;

// Bytes that may be read.
int32_t RingBuffer_available_data(const RingBuffer* record) noexcept;

// Non-zero when full and when empty; a record with start == end != 0 is both.
int RingBuffer_full(const RingBuffer* record) noexcept;
int RingBuffer_empty(const RingBuffer* record) noexcept;

// Appends `count` bytes and returns `count`, or -1 with nothing changed when an argument is null,
// `count` is negative or does not fit (a buffer without data is reset first). `debug` non-zero adds
// a line before and after.
int RingBuffer_write(RingBuffer* record, const void* source, int count, int debug) noexcept;

// Takes `count` bytes and returns `count`, or -1 with nothing changed when an argument is null,
// `count` is negative or more than is held. A read that drains the buffer resets both positions.
int RingBuffer_read(RingBuffer* record, void* destination, int count, int debug) noexcept;

}  // extern "C"

#endif  // BINAURAL_RECORD_UTILS_RING_BUFFER_H_
