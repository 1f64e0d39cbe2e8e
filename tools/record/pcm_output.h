// Where recorded PCM goes: a WAV file or standard output. Both take whole frames of interleaved
// 16-bit samples, on the capture thread, and throw a Failure (output error) when they cannot go on.
#ifndef TOOLS_RECORD_PCM_OUTPUT_H
#define TOOLS_RECORD_PCM_OUTPUT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <sndfile.h>
#include <string>

#include "tools/common/failure.h"

namespace tools {

// For a file that is kept because nobody asked to overwrite it.
Failure AlreadyExists(const std::string& path);

class PcmOutput {
 public:
  virtual ~PcmOutput() = default;
  virtual void Write(const int16_t* samples, size_t frames) = 0;
  // Completes the output; further writes are not allowed. A second call does nothing.
  virtual void Close() = 0;
};

// A WAV file that is valid whenever one looks: its header is brought up to date after every write, so
// that an end by SIGKILL or a full disk leaves a file with every frame written before it, and never a
// part of a frame. A recording that will pass 4 GiB is written with room for 64-bit sizes and becomes
// RF64 (EBU Tech 3306) when it does; until then its header is that of a WAV file.
class WavOutput final : public PcmOutput {
 public:
  // `expected_frames` chooses between the two layouts; more may be written. An existing file is
  // refused unless `overwrite`.
  WavOutput(const std::string& path, int sample_rate_hz, int channels, uint64_t expected_frames,
            bool overwrite);
  ~WavOutput() override;
  WavOutput(const WavOutput&) = delete;
  WavOutput& operator=(const WavOutput&) = delete;
  void Write(const int16_t* samples, size_t frames) override;
  // Takes a file without a single frame away again, so that the next attempt finds its name free.
  void Close() override;

 private:
  [[noreturn]] void FailRepaired(const std::string& why);
  void CutToWholeFrames();

  const std::string path_;
  const int frame_bytes_;
  int fd_ = -1;
  SNDFILE* file_ = nullptr;
  int64_t data_offset_ = 0;
  uint64_t frames_ = 0;
};

// Raw samples to a file descriptor (standard output); whole frames in every normal ending.
class RawOutput final : public PcmOutput {
 public:
  RawOutput(int fd, int channels) : fd_(fd), channels_(channels) {}
  void Write(const int16_t* samples, size_t frames) override;
  void Close() override {}

 private:
  const int fd_;
  const int channels_;
};

}  // namespace tools

#endif
