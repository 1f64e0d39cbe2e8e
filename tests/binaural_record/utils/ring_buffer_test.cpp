#include "binaural_record/utils/ring_buffer.h"

#include <climits>
#include <cstring>
#include <memory>
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
  int Write(const char* text, int debug = 0) {
    return RingBuffer_write(ring_, text, static_cast<int>(strlen(text)), debug);
  }
  std::string Read(int count, int debug = 0) {
    std::string text(static_cast<size_t>(count), '?');
    EXPECT_EQ(RingBuffer_read(ring_, text.data(), count, debug), count);
    return text;
  }
  void MoveTo(int32_t start, int32_t end) {
    ring_->start = start;
    ring_->end = end;
  }
  std::pair<int, int> Positions() const { return {ring_->start, ring_->end}; }
  Log Errors() { return log_.TakeErrors("BinauralRecordRingbuffer"); }

  LogCapture log_;
  const std::unique_ptr<RingBuffer, decltype(&RingBuffer_destroy)> owned_{RingBuffer_create(8),
                                                                          RingBuffer_destroy};
  RingBuffer* const ring_ = owned_.get();
};

TEST_F(RingBufferTest, AnswersFollowThePositions) {
  const std::tuple<int, int, uint32_t, int, bool, bool> kCases[] = {
      {0, 0, 8, 0, false, true},  // reset
      {0, 5, 3, 5, false, false}, {2, 5, 5, 3, false, false}, {6, 2, 4, 4, false, false},
      {1, 0, 1, 7, false, false}, {3, 3, 0, 0, true, true},  // both full and empty
  };
  for (const auto& [start, end, space, data, full, empty] : kCases) {
    SCOPED_TRACE(testing::Message() << "start " << start << " end " << end);
    MoveTo(start, end);
    EXPECT_EQ(RingBuffer_available_space(ring_), space);
    EXPECT_EQ(RingBuffer_available_data(ring_), data);
    EXPECT_EQ(RingBuffer_full(ring_) != 0, full);
    EXPECT_EQ(RingBuffer_empty(ring_) != 0, empty);
  }
}

TEST_F(RingBufferTest, BytesComeOutInOrderAcrossTheEnd) {
  EXPECT_EQ(Write("abcdef"), 6);
  EXPECT_EQ(Read(4), "abcd");
  EXPECT_EQ(Write("ghij"), 4);  // two at the end, two at the beginning
  EXPECT_EQ(ring_->end, 2);
  EXPECT_EQ(Read(5), "efghi");
  EXPECT_EQ(Write(""), 0);
  EXPECT_EQ(Read(1), "j");
  EXPECT_EQ(Positions(), std::pair(0, 0));  // drained: reset
}

// No slot is kept free: a write that fills the buffer exactly is lost.
TEST_F(RingBufferTest, ExactlyFullReadsAsEmptyAndIsOverwritten) {
  EXPECT_EQ(Write("abcdefgh"), 8);
  EXPECT_EQ(RingBuffer_available_data(ring_), 0);
  EXPECT_EQ(RingBuffer_available_space(ring_), 8u);
  EXPECT_EQ(Write("xy"), 2);
  EXPECT_EQ(Read(2), "xy");

  MoveTo(2, 5);
  EXPECT_EQ(Write("12345"), 5);
  EXPECT_EQ(Positions(), std::pair(2, 2));
  EXPECT_EQ(std::string(reinterpret_cast<char*>(ring_->buffer), 2), "45");
  EXPECT_EQ(RingBuffer_available_data(ring_), 0);
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
  EXPECT_EQ(RingBuffer_write(nullptr, bytes, 1, 0), -1);
  EXPECT_EQ(RingBuffer_write(ring_, bytes, -1, 0), -1);
  EXPECT_EQ(RingBuffer_write(ring_, bytes, INT_MIN, 0), -1);
  EXPECT_EQ(Errors(), Log(4, "RingBuffer_write enter, RingBuffer_write params error"));
  EXPECT_EQ(RingBuffer_read(ring_, nullptr, 1, 0), -1);
  EXPECT_EQ(RingBuffer_read(nullptr, bytes, 1, 0), -1);
  EXPECT_EQ(RingBuffer_read(ring_, bytes, -1, 0), -1);
  EXPECT_EQ(Errors(), Log(3, "RingBuffer_read enter, params error"));
  EXPECT_EQ(Positions(), std::pair(6, 2));
}

TEST_F(RingBufferTest, WithoutABufferThereIsNeitherDataNorSpace) {
  for (const int length : {0, -1, INT_MIN}) {
    EXPECT_EQ(RingBuffer_create(length), nullptr) << length;
  }
  EXPECT_EQ(Errors(), Log(3, "RingBuffer_create enter, length error."));
  EXPECT_EQ(RingBuffer_available_space(nullptr), 0u);
  EXPECT_EQ(RingBuffer_available_data(nullptr), 0);
  EXPECT_EQ(RingBuffer_full(nullptr), 0);
  EXPECT_EQ(RingBuffer_empty(nullptr), 1);
  RingBuffer_destroy(nullptr);
  EXPECT_EQ(Errors(), Log());
  RingBuffer_clear(nullptr);
  EXPECT_EQ(Errors(), Log({"RingBuffer_clear enter, null pointer error"}));
}

TEST_F(RingBufferTest, DebuggingCallersGetALineBeforeAndAfterAtError) {
  Write("abc", 1);
  Read(1);
  Read(2, 1);
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

TEST_F(RingBufferTest, ClearForgetsAndZeroes) {
  Write("abc");
  RingBuffer_clear(ring_);
  EXPECT_TRUE(RingBuffer_empty(ring_));
  EXPECT_EQ(std::vector<uint8_t>(ring_->buffer, ring_->buffer + 8), std::vector<uint8_t>(8, 0));
}

}  // namespace
