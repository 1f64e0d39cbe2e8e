// The ring buffer against a plain queue with its one peculiarity: filled to the brim it counts as
// without data.
#include <cstring>
#include <deque>
#include <vector>

#include "binaural_record/utils/ring_buffer.h"
#include "tests/fuzz/fuzz.h"
#include "tests/robustness/quiet_log.h"

namespace {

class Model {
 public:
  explicit Model(size_t capacity) : capacity_(capacity) {}

  int Write(const std::vector<uint8_t>& bytes) {
    if (bytes.size() > capacity_ - bytes_.size()) {
      return -1;
    }
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    if (bytes_.size() == capacity_) {
      bytes_.clear();  // and nothing tells it from empty
    }
    return static_cast<int>(bytes.size());
  }

  int Read(size_t count, std::vector<uint8_t>* bytes) {
    if (count > bytes_.size()) {
      return -1;
    }
    bytes->assign(bytes_.begin(), bytes_.begin() + static_cast<ptrdiff_t>(count));
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<ptrdiff_t>(count));
    return static_cast<int>(count);
  }

  void Clear() { bytes_.clear(); }
  size_t held() const { return bytes_.size(); }

 private:
  size_t capacity_;
  std::deque<uint8_t> bytes_;
};

}  // namespace

void FuzzOne(Input& input) {
  static const QuietLog log(ANDROID_LOG_INFO);
  const int capacity = static_cast<int>(1 + input.Byte() * (1 + input.Byte() % 9));
  RingBuffer* ring = RingBuffer_create(capacity);
  FUZZ_CHECK(ring != nullptr);
  Model model(static_cast<size_t>(capacity));
  uint8_t next = 1;
  while (!input.empty()) {
    const uint8_t operation = input.Byte();
    const int count = static_cast<int>(input.Byte() * (1 + operation / 64));
    switch (operation % 5) {
      case 0:
      case 1: {
        std::vector<uint8_t> bytes(static_cast<size_t>(count));
        for (uint8_t& byte : bytes) {
          byte = next++;
        }
        bytes.reserve(1);  // a null source would be refused
        FUZZ_CHECK(RingBuffer_write(ring, bytes.data(), count, operation & 8) ==
                   model.Write(bytes));
        break;
      }
      case 2:
      case 3: {
        std::vector<uint8_t> expected;
        std::vector<uint8_t> bytes(static_cast<size_t>(count));
        bytes.reserve(1);
        const int result = model.Read(static_cast<size_t>(count), &expected);
        FUZZ_CHECK(RingBuffer_read(ring, bytes.data(), count, operation & 8) == result);
        FUZZ_CHECK(result == -1 || bytes == expected);
        break;
      }
      default: {
        if (operation & 8) {
          RingBuffer_clear(ring);
          model.Clear();
        }
        char byte = 0;
        FUZZ_CHECK(RingBuffer_write(ring, &byte, -count - 1, 0) == -1);
        FUZZ_CHECK(RingBuffer_read(ring, &byte, -count - 1, 0) == -1);
        FUZZ_CHECK(RingBuffer_read(ring, nullptr, count, 0) == -1);
        FUZZ_CHECK(RingBuffer_write(nullptr, &byte, count, 0) == -1);
        break;
      }
    }
    FUZZ_CHECK(static_cast<size_t>(RingBuffer_available_data(ring)) == model.held());
    FUZZ_CHECK((RingBuffer_empty(ring) != 0) == (model.held() == 0));
    FUZZ_CHECK(ring->start >= 0 && ring->start < capacity && ring->end >= 0 &&
               ring->end < capacity);
  }
  RingBuffer_destroy(ring);
}
