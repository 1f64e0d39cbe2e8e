// What the virtual headset hears: stereo 16-bit frames, one source at a time.
#ifndef PLATFORM_VIRTUAL_HEADSET_SOURCES_H_
#define PLATFORM_VIRTUAL_HEADSET_SOURCES_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace virtual_headset {

class SoundSource {
 public:
  virtual ~SoundSource() = default;
  // Writes the next `frames` frames, left then right; silence after the end. Never allocates. The
  // sound does not depend on how it is cut into calls.
  virtual void Render(int16_t* stereo, size_t frames) = 0;
  // Frames to come; nothing when endless.
  virtual std::optional<uint64_t> FramesLeft() const { return std::nullopt; }
  // Frames per second that the source itself has; 0 when it was made for the rate asked for.
  virtual uint32_t rate_hz() const { return 0; }
};

std::unique_ptr<SoundSource> MakeSilence();
std::unique_ptr<SoundSource> MakeTone(uint32_t rate_hz);
// Null, with `error` set, when the file cannot be played.
std::unique_ptr<SoundSource> OpenWavFile(const std::string& path, std::string* error);

}  // namespace virtual_headset

#endif  // PLATFORM_VIRTUAL_HEADSET_SOURCES_H_
