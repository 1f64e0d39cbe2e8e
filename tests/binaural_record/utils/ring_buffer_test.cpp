#include "binaural_record/utils/ring_buffer.h"

#include <climits>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/log_capture.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

using RingBufferPtr = std::unique_ptr<RingBuffer, decltype(&RingBuffer_destroy)>;

RingBufferPtr Make(int length) {
  return {RingBuffer_create(length), RingBuffer_destroy};
}

std::string ReadText(RingBuffer* ring, int count) {
  std::string text(static_cast<size_t>(count), '?');
  EXPECT_EQ(RingBuffer_read(ring, text.data(), count, 0), count);
  return text;
}

struct Positions {
  int32_t start;
  int32_t end;
};

// Length 8 throughout: what each query says at given positions.
TEST(RingBuffer, AnswersFollowThePositions) {
  const struct {
    Positions at;
    uint32_t space;
    int32_t data;
    bool full;
    bool empty;
  } kCases[] = {
      {{0, 0}, 8, 0, false, true},  // reset
      {{0, 5}, 3, 5, false, false}, {{2, 5}, 5, 3, false, false}, {{6, 2}, 4, 4, false, false},
      {{1, 0}, 1, 7, false, false}, {{3, 3}, 0, 0, true, true},  // both full and empty
  };
  const RingBufferPtr ring = Make(8);
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << "start " << c.at.start << " end " << c.at.end);
    ring->start = c.at.start;
    ring->end = c.at.end;
    EXPECT_EQ(RingBuffer_available_space(ring.get()), c.space);
    EXPECT_EQ(RingBuffer_available_data(ring.get()), c.data);
    EXPECT_EQ(RingBuffer_full(ring.get()) != 0, c.full);
    EXPECT_EQ(RingBuffer_empty(ring.get()) != 0, c.empty);
  }
}

TEST(RingBuffer, BytesComeOutInOrderAcrossTheEnd) {
  const RingBufferPtr ring = Make(8);
  EXPECT_EQ(RingBuffer_write(ring.get(), "abcdef", 6, 0), 6);
  EXPECT_EQ(ReadText(ring.get(), 4), "abcd");
  EXPECT_EQ(RingBuffer_write(ring.get(), "ghij", 4, 0), 4);  // two at the end, two at the beginning
  EXPECT_EQ(ring->end, 2);
  EXPECT_EQ(ReadText(ring.get(), 5), "efghi");
  EXPECT_EQ(RingBuffer_write(ring.get(), "", 0, 0), 0);
  EXPECT_EQ(ReadText(ring.get(), 1), "j");
  EXPECT_EQ(ring->start, 0);  // drained: reset
  EXPECT_EQ(ring->end, 0);
}

// No slot is kept free: a write that fills the buffer exactly is lost.
TEST(RingBuffer, ExactlyFullReadsAsEmptyAndIsOverwritten) {
  const RingBufferPtr ring = Make(8);
  EXPECT_EQ(RingBuffer_write(ring.get(), "abcdefgh", 8, 0), 8);
  EXPECT_EQ(RingBuffer_available_data(ring.get()), 0);
  EXPECT_EQ(RingBuffer_available_space(ring.get()), 8u);
  EXPECT_EQ(RingBuffer_write(ring.get(), "xy", 2, 0), 2);
  EXPECT_EQ(ReadText(ring.get(), 2), "xy");

  ring->start = 2;
  ring->end = 5;
  EXPECT_EQ(RingBuffer_write(ring.get(), "12345", 5, 0), 5);
  EXPECT_EQ(ring->start, 2);
  EXPECT_EQ(ring->end, 2);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(ring->buffer), 2), "45");
  EXPECT_EQ(RingBuffer_available_data(ring.get()), 0);
}

TEST(RingBuffer, RefusalsChangeNothingAndSayWhy) {
  LogCapture log;
  const RingBufferPtr ring = Make(8);
  ring->start = 6;
  ring->end = 2;
  char bytes[16] = {};
  EXPECT_EQ(RingBuffer_write(ring.get(), bytes, 5, 0), -1);
  EXPECT_EQ(RingBuffer_write(ring.get(), nullptr, 1, 0), -1);
  EXPECT_EQ(RingBuffer_write(nullptr, bytes, 1, 0), -1);
  EXPECT_EQ(RingBuffer_write(ring.get(), bytes, -1, 0), -1);
  EXPECT_EQ(RingBuffer_write(ring.get(), bytes, INT_MIN, 0), -1);
  EXPECT_EQ(RingBuffer_read(ring.get(), bytes, 5, 0), -1);
  EXPECT_EQ(RingBuffer_read(ring.get(), nullptr, 1, 0), -1);
  EXPECT_EQ(RingBuffer_read(nullptr, bytes, 1, 0), -1);
  EXPECT_EQ(RingBuffer_read(ring.get(), bytes, -1, 0), -1);
  EXPECT_EQ(ring->start, 6);
  EXPECT_EQ(ring->end, 2);
  RingBuffer_clear(nullptr);
  EXPECT_THAT(
      log.TakeErrors("BinauralRecordRingbuffer"),
      ElementsAre("RingBuffer_write enter, Not enough space: 4 space available, 5 request, start "
                  "6, end 2, length 8",
                  "RingBuffer_write enter, RingBuffer_write params error",
                  "RingBuffer_write enter, RingBuffer_write params error",
                  "RingBuffer_write enter, RingBuffer_write params error",
                  "RingBuffer_write enter, RingBuffer_write params error",
                  "RingBuffer_read enter, Not enough in the buffer: has data 4, needs 5, start 6, "
                  "end 2, length 8",
                  "RingBuffer_read enter, params error", "RingBuffer_read enter, params error",
                  "RingBuffer_read enter, params error",
                  "RingBuffer_clear enter, null pointer error"));
}

TEST(RingBuffer, DebuggingCallersGetALineBeforeAndAfterAtError) {
  LogCapture log;
  const RingBufferPtr ring = Make(8);
  RingBuffer_write(ring.get(), "abc", 3, 1);
  ReadText(ring.get(), 1);
  char bytes[2];
  RingBuffer_read(ring.get(), bytes, 2, 1);
  EXPECT_THAT(
      log.TakeErrors("BinauralRecordRingbuffer"),
      ElementsAre("RingBuffer_write enter, before write: 8 space available, 3 request, start 0, "
                  "end 0, length 8",
                  "RingBuffer_write enter, after write: 5 space available, 3 request, start 0, "
                  "end 3, length 8",
                  "RingBuffer_read enter, before read: in the buffer: has data 2, needs 2, start "
                  "1, end 3, length 8",
                  "RingBuffer_read enter, after read: in the buffer: has data 0, needs 2, start "
                  "3, end 3, length 8"));
}

TEST(RingBuffer, NullRecordsAreEmptyWithoutSpace) {
  EXPECT_EQ(RingBuffer_available_space(nullptr), 0u);
  EXPECT_EQ(RingBuffer_available_data(nullptr), 0);
  EXPECT_EQ(RingBuffer_full(nullptr), 0);
  EXPECT_EQ(RingBuffer_empty(nullptr), 1);
  RingBuffer_destroy(nullptr);
}

TEST(RingBuffer, UnusableLengthsAreRefused) {
  LogCapture log;
  for (const int length : {0, -1, INT_MIN}) {
    EXPECT_EQ(RingBuffer_create(length), nullptr) << length;
  }
  EXPECT_THAT(
      log.TakeErrors("BinauralRecordRingbuffer"),
      ElementsAreArray(std::vector<std::string>(3, "RingBuffer_create enter, length error.")));
}

// Positions near the end of a capacity above 2^30: their sum with a count does not fit 32 bits. Only
// the storage's beginning is real, which is all that this write touches.
TEST(RingBuffer, PositionsOfAHugeBufferDoNotOverflow) {
  uint8_t storage[8] = {};
  RingBuffer ring{storage, INT_MAX, INT_MAX - 5, 3};
  EXPECT_EQ(RingBuffer_available_data(&ring), 8);
  EXPECT_EQ(RingBuffer_available_space(&ring), static_cast<uint32_t>(INT_MAX - 8));
  EXPECT_EQ(RingBuffer_write(&ring, "ab", 2, 0), 2);
  EXPECT_EQ(ring.end, 5);
  ring = {storage, INT_MAX, 1, 2};
  EXPECT_EQ(RingBuffer_write(&ring, storage, INT_MAX, 0), -1);
}

TEST(RingBuffer, ClearForgetsAndZeroes) {
  const RingBufferPtr ring = Make(4);
  RingBuffer_write(ring.get(), "abc", 3, 0);
  RingBuffer_clear(ring.get());
  EXPECT_TRUE(RingBuffer_empty(ring.get()));
  EXPECT_EQ(std::vector<uint8_t>(ring->buffer, ring->buffer + 4), std::vector<uint8_t>(4, 0));
}

}  // namespace
