// What the fuzz targets share: the input taken apart, the check that ends a run, and surroundings in
// which nothing sleeps. A target defines FuzzOne; the same source is a libFuzzer program (preset
// `fuzz`) and a test of the ordinary suite, which runs the corpus, the regression files and a fixed
// number of mutations of them (replay.cpp).
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>

class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), left_(size) {}

  bool empty() const { return left_ == 0; }
  size_t left() const { return left_; }
  // 0 once the input is used up.
  uint8_t Byte() { return left_ == 0 ? 0 : (--left_, *data_++); }
  uint32_t Word() {
    uint32_t word = 0;
    for (int n = 0; n < 4; ++n) {
      word = word << 8 | Byte();
    }
    return word;
  }
  // 0..limit-1
  size_t Below(size_t limit) { return Byte() % limit; }
  // Up to the next line feed, which is taken too.
  std::string Line() {
    std::string line;
    for (char c; left_ != 0 && (c = static_cast<char>(Byte())) != '\n';) {
      line += c;
    }
    return line;
  }

 private:
  const uint8_t* data_;
  size_t left_;
};

#define FUZZ_CHECK(condition)                                                                      \
  do {                                                                                             \
    if (!(condition)) {                                                                            \
      std::fprintf(stderr, "%s:%d: %s does not hold\n", __FILE__, __LINE__, #condition);           \
      std::abort();                                                                                \
    }                                                                                              \
  } while (false)

inline bool IsOneOf(int64_t result, std::initializer_list<int64_t> documented) {
  return std::find(documented.begin(), documented.end(), result) != documented.end();
}

// One run over one input. Leaves nothing behind.
void FuzzOne(Input& input);
