// The built-in scene: somebody speaks in an invented language while walking round the listener's
// head, in a furnished room with its own quiet noise, as a headset's two microphones hear it.
#ifndef PLATFORM_VIRTUAL_HEADSET_SCENE_H_
#define PLATFORM_VIRTUAL_HEADSET_SCENE_H_

#include <cstdint>
#include <memory>

#include "platform/virtual_headset/sources.h"

namespace virtual_headset {

// Endless; the same sound for the same rate. The first words come from the front, the way
// round leads over the right ear, once in 16 s. Speech is at about -30 LUFS.
std::unique_ptr<SoundSource> MakeScene(uint32_t rate_hz);

}  // namespace virtual_headset

#endif  // PLATFORM_VIRTUAL_HEADSET_SCENE_H_
