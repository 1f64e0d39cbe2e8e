// Silence, tone and WAV file. The scene has a file of its own.
#include "platform/virtual_headset/sources.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include <sndfile.h>

namespace virtual_headset {
namespace {

class Silence : public SoundSource {
 public:
  void Render(int16_t* stereo, size_t frames) override {
    memset(stereo, 0, frames * 2 * sizeof(int16_t));
  }
};

// Each ear has its own pitch, so that swapped or mixed channels are heard.
class Tone : public SoundSource {
 public:
  explicit Tone(uint32_t rate_hz) : rate_hz_(rate_hz) {}

  void Render(int16_t* stereo, size_t frames) override {
    for (size_t i = 0; i < frames; ++i, frame_ = (frame_ + 1) % rate_hz_) {
      stereo[2 * i] = Sample(1000);
      stereo[2 * i + 1] = Sample(1500);
    }
  }

 private:
  // Whole numbers of periods in a second: the phase starts again with every second.
  int16_t Sample(int pitch_hz) const {
    constexpr double kTwoPi = 6.283185307179586;
    constexpr double kPeak = 3276.8;  // -20 dBFS
    return static_cast<int16_t>(
        std::lround(kPeak * std::sin(kTwoPi * pitch_hz * frame_ / rate_hz_)));
  }

  const uint32_t rate_hz_;
  uint32_t frame_ = 0;
};

class WavFile : public SoundSource {
 public:
  WavFile(SNDFILE* file, const SF_INFO& info)
      : file_(file, sf_close), info_(info), left_(static_cast<uint64_t>(info.frames)) {}

  void Render(int16_t* stereo, size_t frames) override {
    const size_t wanted = std::min<uint64_t>(frames, left_);
    size_t done = 0;
    while (done < wanted) {
      const sf_count_t got = Read(stereo + 2 * done, wanted - done);
      if (got <= 0) {
        left_ = 0;  // the file is shorter than its header says
        memset(stereo + 2 * done, 0, (frames - done) * 2 * sizeof(int16_t));
        return;
      }
      done += static_cast<size_t>(got);
    }
    left_ -= done;
    memset(stereo + 2 * done, 0, (frames - done) * 2 * sizeof(int16_t));
  }

  std::optional<uint64_t> FramesLeft() const override { return left_; }
  uint32_t rate_hz() const override { return static_cast<uint32_t>(info_.samplerate); }

 private:
  sf_count_t Read(int16_t* stereo, size_t frames) {
    if (info_.channels == 2) {
      return sf_readf_short(file_.get(), stereo, static_cast<sf_count_t>(frames));
    }
    std::array<int16_t, 256> mono;
    const sf_count_t got = sf_readf_short(file_.get(), mono.data(),
                                          static_cast<sf_count_t>(std::min(frames, mono.size())));
    for (sf_count_t i = 0; i < got; ++i) {
      stereo[2 * i] = stereo[2 * i + 1] = mono[static_cast<size_t>(i)];
    }
    return got;
  }

  const std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> file_;
  const SF_INFO info_;
  uint64_t left_;
};

}  // namespace

std::unique_ptr<SoundSource> MakeSilence() {
  return std::make_unique<Silence>();
}

std::unique_ptr<SoundSource> MakeTone(uint32_t rate_hz) {
  return std::make_unique<Tone>(rate_hz);
}

std::unique_ptr<SoundSource> OpenWavFile(const std::string& path, std::string* error) {
  SF_INFO info{};
  SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &info);
  if (file == nullptr) {
    *error = path + ": " + sf_strerror(nullptr);
    return nullptr;
  }
  // A file of floating-point samples is scaled to full range, and saturates.
  sf_command(file, SFC_SET_SCALE_FLOAT_INT_READ, nullptr, SF_TRUE);
  sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
  auto source = std::make_unique<WavFile>(file, info);
  if (info.channels > 2) {
    *error = path + ": " + std::to_string(info.channels) + " channels; one or two can be played";
    return nullptr;
  }
  return source;
}

}  // namespace virtual_headset
