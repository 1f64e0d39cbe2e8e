// Recordings as files, and the ready sound in memory.
#ifndef TOOLS_TUNE_AUDIO_FILE_H_
#define TOOLS_TUNE_AUDIO_FILE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tune {

// Interleaved 16-bit stereo.
struct Recording {
  uint32_t sample_rate_hz = 48000;
  std::vector<int16_t> samples;

  size_t frames() const { return samples.size() / 2; }
  double seconds() const { return static_cast<double>(frames()) / sample_rate_hz; }
};

// Any format that libsndfile reads, two channels, at most kMostMinutes long; values are rounded to 16 bits.
// Throws tools::Failure.
inline constexpr int kMostMinutes = 60;
Recording ReadRecording(const std::string& path);

// A 16-bit WAV file. Throws tools::Failure; an existing file is kept unless `overwrite`.
void WriteRecording(const std::string& path, const Recording& recording, bool overwrite);

// The first `frames` frames as the bytes of a FLAC file.
std::string EncodeFlac(const Recording& recording, size_t frames);

}  // namespace tune

#endif  // TOOLS_TUNE_AUDIO_FILE_H_
