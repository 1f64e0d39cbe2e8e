// The length in a WAV file's header; see the header.
#include "tools/common/wav_header.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace tools {

std::string WavShortfall(const std::string& path) {
  // What programs that stream write: the largest number, or about 2 GiB.
  constexpr uint64_t kAboutTwoGib = 0x80000000;
  constexpr uint64_t kLargest = 0xFFFFFFFF;
  constexpr uint64_t kAround = 0x1000;
  std::array<char, 8> bytes{};
  std::error_code error;
  const uint64_t there = std::filesystem::file_size(path, error);
  if (error || !std::ifstream(path, std::ios::binary).read(bytes.data(), bytes.size()) ||
      std::string_view(bytes.data(), 4) != "RIFF") {
    return "";
  }
  uint64_t announced = 8;  // the first two fields do not count themselves
  for (unsigned i = 0; i < 4; ++i) {
    announced += uint64_t{static_cast<uint8_t>(bytes[4 + i])} << 8 * i;
  }
  const bool unknown =
      (announced >= kAboutTwoGib - kAround && announced <= kAboutTwoGib + kAround) ||
      announced >= kLargest - kAround;
  // Some writers count the padding of an odd length and leave it out.
  return unknown || announced <= there + 1
             ? ""
             : path + " ends early: its header announces " + std::to_string(announced) +
                   " bytes, it has " + std::to_string(there);
}

}  // namespace tools
