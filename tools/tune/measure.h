// What a recording measures: loudness (EBU R 128), peaks, noise floor, spectra, level between the ears.
#ifndef TOOLS_TUNE_MEASURE_H_
#define TOOLS_TUNE_MEASURE_H_

#include <array>
#include <vector>

#include "tools/tune/audio_file.h"

namespace tune {

// Values that cannot be given (silence, too short) are minus infinity.
struct ChannelLevels {
  double loudness_lufs;  // integrated, of this channel alone
  double true_peak_dbtp;
  // RMS that a tenth of all 50 ms pieces stay below, relative to full scale.
  double noise_floor_dbfs;
};

struct Levels {
  double loudness_lufs;  // integrated, both channels
  double range_lu;       // EBU Tech 3342
  std::array<ChannelLevels, 2> channels;
};
Levels MeasureLevels(const Recording& recording);

struct Course {
  std::vector<double> x;  // seconds or Hz
  std::vector<double> y;
};
// Short-term loudness (3 s), ten times a second, LUFS; not a number in silence.
Course ShortTermLoudness(const Recording& recording);
// Level of the left channel over the right one in pieces of 400 ms, dB; not a number where both are silent.
Course LevelDifference(const Recording& recording);

// Power over frequency and time of one recording, dB of full scale; both channels together.
class Spectrogram {
 public:
  explicit Spectrogram(const Recording& recording);
  // Of the nearest frame and bin.
  double At(double seconds, double hz) const;
  double highest() const { return highest_; }

 private:
  const double frame_seconds_;
  const double bin_hz_;
  size_t columns_ = 0;
  std::vector<float> db_;  // columns x bins
  double highest_ = -200.0;
};

// Average power in thirds of an octave at each of the frequencies, dB of full scale; channel 0 left, 1 right.
Course AverageSpectrum(const Recording& recording, size_t channel);

}  // namespace tune

#endif  // TOOLS_TUNE_MEASURE_H_
