// The ring buffer against a plain queue with its one peculiarity: filled to the brim it counts as
// without data.
#include <algorithm>
#include <array>
#include <deque>

#include "binaural_record/utils/ring_buffer.h"
#include "tests/fuzz/fuzz.h"
#include "tests/robustness/quiet_log.h"

void FuzzOne(Input& input) {
  static const QuietLog log(ANDROID_LOG_INFO);
  const int capacity = 1 + input.Byte() * (1 + input.Byte() % 9);
  RingBuffer* ring = RingBuffer_create(capacity);
  FUZZ_CHECK(ring != nullptr);
  std::deque<uint8_t> model;
  uint8_t next = 1;
  while (!input.empty()) {
    const uint8_t operation = input.Byte();
    const int count = input.Byte() * (1 + operation / 64), held = static_cast<int>(model.size());
    std::array<uint8_t, 4 * 255> bytes{};
    if (operation % 5 < 2) {
      std::generate_n(bytes.begin(), count, [&next] { return next++; });
      const bool fits = count <= capacity - held;
      FUZZ_CHECK(RingBuffer_write(ring, bytes.data(), count, operation & 8) == (fits ? count : -1));
      if (fits) {
        model.insert(model.end(), bytes.begin(), bytes.begin() + count);
      }
      if (model.size() == static_cast<size_t>(capacity)) {
        model.clear();  // and nothing tells it from empty
      }
    } else if (operation % 5 < 4) {
      const bool there = count <= held;
      FUZZ_CHECK(RingBuffer_read(ring, bytes.data(), count, operation & 8) == (there ? count : -1));
      if (there) {
        FUZZ_CHECK(std::equal(bytes.begin(), bytes.begin() + count, model.begin()));
        model.erase(model.begin(), model.begin() + count);
      }
    } else {
      if (operation & 8) {
        RingBuffer_clear(ring);
        model.clear();
      }
      FUZZ_CHECK(RingBuffer_write(ring, bytes.data(), -count - 1, 0) == -1);
      FUZZ_CHECK(RingBuffer_read(ring, bytes.data(), -count - 1, 0) == -1);
    }
    FUZZ_CHECK(static_cast<size_t>(RingBuffer_available_data(ring)) == model.size());
    FUZZ_CHECK((RingBuffer_empty(ring) != 0) == model.empty());
    FUZZ_CHECK(ring->start >= 0 && ring->start < capacity && ring->end >= 0 &&
               ring->end < capacity);
  }
  RingBuffer_destroy(ring);
}
