// A recording's file goes on past 4 GiB. What a full disk, an existing file, a killed program and a
// pipe make of it is tried with the program.
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "tools/record/pcm_output.h"

namespace tools {
namespace {

// What an independent reader finds.
void ExpectFile(const std::string& path, int64_t frames, int container) {
  SF_INFO info{};
  SNDFILE* file = ::sf_open(path.c_str(), SFM_READ, &info);
  ASSERT_NE(file, nullptr);
  ::sf_close(file);
  EXPECT_EQ(info.frames, frames);
  EXPECT_EQ(info.format & SF_FORMAT_TYPEMASK, container);
}

// A WAV header below, 64-bit sizes above. What was written is punched out of the file again, so that
// the disk holds a few pieces only.
TEST(OutputTest, ARecordingGoesOnPastFourGiB) {
  std::string folder = (std::filesystem::temp_directory_path() / "record_output_XXXXXX").string();
  ASSERT_NE(::mkdtemp(folder.data()), nullptr);
  const std::string path = folder + "/out.wav";
  constexpr int64_t kPieceFrames = 8 << 20;  // 32 MiB
  const std::vector<int16_t> piece(2 * kPieceFrames, 0x1234);
  WavOutput output(path, 48000, 2, 129 * kPieceFrames, false);
  const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  for (int64_t pieces = 1; pieces <= 129; ++pieces) {
    output.Write(piece.data(), kPieceFrames);
    ::fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 4096,
                pieces * kPieceFrames * 4 - 8192);
    if (pieces == 11) {
      ExpectFile(path, 92274688, SF_FORMAT_WAVEX);
    }
  }
  ::close(fd);
  ExpectFile(path, 1082130432, SF_FORMAT_RF64);
  output.Close();
  ExpectFile(path, 1082130432, SF_FORMAT_RF64);
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace tools
