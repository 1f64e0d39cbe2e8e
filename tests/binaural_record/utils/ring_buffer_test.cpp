// Space, refusals and lines of the ring buffer; what it holds after any order of calls is shown by its
// fuzz target.
#include "binaural_record/utils/ring_buffer.h"

#include <climits>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/log_capture.h"

namespace {

using Log = std::vector<std::string>;

// Every test has a buffer of 8 bytes.
class RingBufferTest : public testing::Test {
 protected:
  ~RingBufferTest() override { RingBuffer_destroy(ring_); }
  int Write(const char* text, int debug = 0) {
    return RingBuffer_write(ring_, text, static_cast<int>(strlen(text)), debug);
  }
  void MoveTo(int32_t start, int32_t end) {
    ring_->start = start;
    ring_->end = end;
  }
  Log Errors() { return log_.TakeErrors("BinauralRecordRingbuffer"); }

  LogCapture log_;
  RingBuffer* const ring_ = RingBuffer_create(8);
};

TEST_F(RingBufferTest, SpaceFollowsThePositions) {
  const std::tuple<int, int, uint32_t> kCases[] = {{0, 0, 8}, {0, 5, 3}, {2, 5, 5},
                                                   {6, 2, 4}, {1, 0, 1}, {3, 3, 0}};
  for (const auto& [start, end, space] : kCases) {
    MoveTo(start, end);
    EXPECT_EQ(RingBuffer_available_space(ring_), space) << start << " " << end;
    EXPECT_EQ(RingBuffer_full(ring_) != 0, space == 0) << start << " " << end;
  }
}

TEST_F(RingBufferTest, RefusalsChangeNothingAndSayWhy) {
  MoveTo(6, 2);
  char bytes[16] = {};
  EXPECT_EQ(Write("12345"), -1);
  EXPECT_EQ(RingBuffer_read(ring_, bytes, 5, 0), -1);
  EXPECT_EQ(Errors(), Log({"RingBuffer_write enter, Not enough space: 4 space available, 5 "
                           "request, start 6, end 2, length 8",
                           "RingBuffer_read enter, Not enough in the buffer: has data 4, needs 5, "
                           "start 6, end 2, length 8"}));
  EXPECT_EQ(RingBuffer_write(ring_, nullptr, 1, 0), -1);
  EXPECT_EQ(RingBuffer_write(ring_, bytes, INT_MIN, 0), -1);
  EXPECT_EQ(RingBuffer_read(nullptr, bytes, 1, 0), -1);
  EXPECT_EQ(Errors(), Log({"RingBuffer_write enter, RingBuffer_write params error",
                           "RingBuffer_write enter, RingBuffer_write params error",
                           "RingBuffer_read enter, params error"}));
  EXPECT_EQ(std::pair(ring_->start, ring_->end), std::pair(6, 2));
}

TEST_F(RingBufferTest, WithoutABufferThereIsNeitherDataNorSpace) {
  EXPECT_EQ(RingBuffer_create(0), nullptr);
  EXPECT_EQ(RingBuffer_create(INT_MIN), nullptr);
  EXPECT_EQ(RingBuffer_available_space(nullptr), 0u);
  EXPECT_EQ(RingBuffer_available_data(nullptr), 0);
  EXPECT_EQ(RingBuffer_full(nullptr), 0);
  EXPECT_EQ(RingBuffer_empty(nullptr), 1);
  RingBuffer_destroy(nullptr);
  RingBuffer_clear(nullptr);
  EXPECT_EQ(Errors(),
            Log({"RingBuffer_create enter, length error.", "RingBuffer_create enter, length error.",
                 "RingBuffer_clear enter, null pointer error"}));
}

TEST_F(RingBufferTest, DebuggingCallersGetALineBeforeAndAfterAtError) {
  char bytes[2] = {};
  EXPECT_EQ(Write("abc", 1), 3);
  EXPECT_EQ(RingBuffer_read(ring_, bytes, 1, 0), 1);
  EXPECT_EQ(RingBuffer_read(ring_, bytes, 2, 1), 2);
  EXPECT_EQ(
      Errors(),
      Log({"RingBuffer_write enter, before write: 8 space available, 3 request, start 0, end 0, "
           "length 8",
           "RingBuffer_write enter, after write: 5 space available, 3 request, start 0, end 3, "
           "length 8",
           "RingBuffer_read enter, before read: in the buffer: has data 2, needs 2, start 1, "
           "end 3, length 8",
           "RingBuffer_read enter, after read: in the buffer: has data 0, needs 2, start 3, "
           "end 3, length 8"}));
  RingBuffer_clear(ring_);
  EXPECT_EQ(memcmp(ring_->buffer, std::string(8, '\0').data(), 8), 0);
}

// Positions near the end of a capacity above 2^30: their sum with a count does not fit 32 bits. Only
// the storage's beginning is real, which is all that this write touches.
TEST_F(RingBufferTest, PositionsOfAHugeBufferDoNotOverflow) {
  uint8_t storage[8] = {};
  RingBuffer ring{storage, INT_MAX, INT_MAX - 5, 3};
  EXPECT_EQ(RingBuffer_available_data(&ring), 8);
  EXPECT_EQ(RingBuffer_available_space(&ring), static_cast<uint32_t>(INT_MAX - 8));
  EXPECT_EQ(RingBuffer_write(&ring, "ab", 2, 0), 2);
  EXPECT_EQ(ring.end, 5);
  ring = {storage, INT_MAX, 1, 2};
  EXPECT_EQ(RingBuffer_write(&ring, storage, INT_MAX, 0), -1);
}

}  // namespace
