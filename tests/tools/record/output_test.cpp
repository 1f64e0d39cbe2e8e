// A recording's file is valid after every write, on a full disk and past 4 GiB; a pipe gets every
// frame.
#include <array>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <numeric>
#include <sndfile.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "tools/common/failure.h"
#include "tools/record/pcm_output.h"

namespace tools {
namespace {

namespace fs = std::filesystem;

constexpr int kRateHz = 48000;
constexpr size_t kPeriodFrames = 960;

int ExitCodeOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Failure& failure) {
    EXPECT_FALSE(failure.try_next().empty());
    return failure.exit_code();
  }
  return 0;
}

class OutputTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "record_output_XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    path_ = (folder_ / "out.wav").string();
    std::iota(period_.begin(), period_.end(), int16_t{-500});
  }
  void TearDown() override { fs::remove_all(folder_); }

  // What an independent reader finds; -1 when it refuses the file.
  int64_t FramesInFile(int* container = nullptr) const {
    SF_INFO info{};
    SNDFILE* file = ::sf_open(path_.c_str(), SFM_READ, &info);
    if (file == nullptr) {
      return -1;
    }
    ::sf_close(file);
    EXPECT_EQ(info.channels, 2);
    EXPECT_EQ(info.samplerate, 48000);
    if (container != nullptr) {
      *container = info.format & SF_FORMAT_TYPEMASK;
    }
    return info.frames;
  }

  fs::path folder_;
  std::string path_;
  std::array<int16_t, 2 * kPeriodFrames> period_{};
};

TEST_F(OutputTest, EveryWriteIsInTheFileBeforeTheNextOne) {
  WavOutput output(path_, kRateHz, 2, 4 * kPeriodFrames, false);
  EXPECT_EQ(FramesInFile(), 0);
  for (int64_t written = 960; written <= 4800; written += 960) {  // one more than was expected
    output.Write(period_.data(), kPeriodFrames);
    EXPECT_EQ(FramesInFile(), written);
  }
  output.Close();
  EXPECT_EQ(FramesInFile(), 4800);
  EXPECT_EQ(fs::file_size(path_), 44u + 4u * 4800u);
}

TEST_F(OutputTest, AnExistingFileIsKeptUnlessForcedAndOneWithoutAFrameLeavesItsNameFree) {
  WavOutput(path_, kRateHz, 2, kPeriodFrames, false).Close();
  EXPECT_FALSE(fs::exists(path_));
  std::ofstream(path_) << "precious";
  EXPECT_EQ(ExitCodeOf([&] { WavOutput(path_, kRateHz, 2, kPeriodFrames, false); }), 7);
  EXPECT_EQ(fs::file_size(path_), 8u);
  WavOutput output(path_, kRateHz, 2, kPeriodFrames, true);
  output.Write(period_.data(), kPeriodFrames);
  EXPECT_EQ(FramesInFile(), 960);
}

// The disk is full at every kind of place: before the header, inside a frame, between two.
TEST_F(OutputTest, AFullDiskLeavesWholeFrames) {
  struct Case {
    const char* name;
    rlim_t limit_bytes;
    int64_t frames;  // -1: no file
  };
  const Case cases[] = {
      {"no room for the header", 20, -1},
      {"header alone", 44, -1},
      {"one byte of the first period", 45, 0},
      {"between two periods", 44 + 3840, 960},
      {"one byte into a frame", 44 + 3840 + 1, 960},
      {"between the ears", 44 + 3840 + 402, 1060},
      {"three bytes into a frame", 44 + 3840 + 403, 1060},
      {"at a frame", 44 + 3840 + 404, 1061},
  };
  ::signal(SIGXFSZ, SIG_IGN);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const rlimit full{c.limit_bytes, before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &full);
    int64_t frames_while_open = -1;
    const int exit_code = ExitCodeOf([&] {
      WavOutput output(path_, kRateHz, 2, 100 * kPeriodFrames, true);
      try {
        for (int i = 0; i < 100; ++i) {
          output.Write(period_.data(), kPeriodFrames);
        }
      } catch (const Failure&) {
        frames_while_open = FramesInFile();
        throw;
      }
    });
    ::setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(exit_code, 7);
    if (c.frames <= 0) {
      EXPECT_FALSE(fs::exists(path_));
    } else {
      EXPECT_EQ(frames_while_open, c.frames);
      EXPECT_EQ(FramesInFile(), c.frames);
      EXPECT_EQ(fs::file_size(path_), 44u + 4u * static_cast<uint64_t>(c.frames));
    }
  }
}

// Four GiB and a bit: a WAV header below, 64-bit sizes above. What was written is punched out of the
// file again, so that the disk holds a few pieces only.
TEST_F(OutputTest, ARecordingGoesOnPastFourGiB) {
  constexpr uint64_t kPieceFrames = 8 << 20;  // 32 MiB
  constexpr uint64_t kPieces = 129;
  const std::vector<int16_t> piece(2 * kPieceFrames, 0x1234);
  WavOutput output(path_, kRateHz, 2, kPieces * kPieceFrames, false);
  const int fd = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  int container = 0;
  for (uint64_t i = 0; i < kPieces; ++i) {
    output.Write(piece.data(), kPieceFrames);
    ::fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 4096,
                static_cast<off_t>((i + 1) * kPieceFrames * 4 - 8192));
    if (i == 10) {
      EXPECT_EQ(FramesInFile(&container), 11 * int64_t{8 << 20});
      EXPECT_NE(container, SF_FORMAT_RF64);
    }
  }
  ::close(fd);
  EXPECT_EQ(FramesInFile(&container), 129 * int64_t{8 << 20});
  EXPECT_EQ(container, SF_FORMAT_RF64);
  output.Close();
  EXPECT_EQ(FramesInFile(), 129 * int64_t{8 << 20});
}

TEST(RawOutputTest, ASlowReaderGetsEveryFrame) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  ::fcntl(ends[1], F_SETFL, O_NONBLOCK);  // as some shells hand it on
  std::vector<int16_t> sent(2 * 100000);
  std::iota(sent.begin(), sent.end(), int16_t{0});
  std::vector<int16_t> got;
  std::thread reader([&] {
    std::array<char, 1001> part{};
    std::string bytes;
    for (ssize_t n; (n = ::read(ends[0], part.data(), part.size())) > 0;) {
      bytes.append(part.data(), static_cast<size_t>(n));
    }
    got.resize(bytes.size() / 2);
    bytes.copy(reinterpret_cast<char*>(got.data()), bytes.size());
  });
  RawOutput(ends[1], 2).Write(sent.data(), 100000);
  ::close(ends[1]);
  reader.join();
  ::close(ends[0]);
  EXPECT_EQ(got, sent);
}

TEST(RawOutputTest, AReaderThatHasGoneIsAnOutputError) {
  ::signal(SIGPIPE, SIG_IGN);
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  ::close(ends[0]);
  const std::array<int16_t, 2> frame{};
  EXPECT_EQ(ExitCodeOf([&] { RawOutput(ends[1], 2).Write(frame.data(), 1); }), 7);
  ::close(ends[1]);
}

}  // namespace
}  // namespace tools
