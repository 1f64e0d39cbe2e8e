// Control of the virtual headset: the stand-in for a Bluetooth headset behind the session library
// (libbluetooth_audio_extend_session_corva.so) on a development machine. Tools and tests choose here
// what it plays, how fast, and how it misbehaves; the module under test meets it only through the
// session library's interface.
//
// There is one headset in a process. Every function may be called from any thread. Faults are
// described in docs/virtual-headset.md.
#ifndef PLATFORM_VIRTUAL_HEADSET_VIRTUAL_HEADSET_H_
#define PLATFORM_VIRTUAL_HEADSET_VIRTUAL_HEADSET_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "bluetooth_audio_extend_session.h"

namespace virtual_headset {

using vendor::corva::bluetooth_audio_extend::PcmParameters;

enum class Source {
  kScene,    // a talker circling the head in a room, endless
  kTone,     // 1 kHz left, 1.5 kHz right, peaks of -20 dBFS, endless
  kSilence,  // endless
  kWavFile,  // `wav_path`
};

enum class Pacing {
  kRealTime,      // a read returns when its sound has been captured
  kAsFastAsRead,  // a read returns at once
  kStepped,       // as real time, on a clock that only Advance moves
};

// What a read gets after the last frame of a WAV file.
enum class AtEnd {
  kSilence,  // lets a recorder drain what the module still holds
  kNoData,   // 0 bytes
};

struct Settings {
  Source source = Source::kScene;
  std::string wav_path =
      {};  // 1 or 2 channels (one is heard by both ears), any format libsndfile reads
  AtEnd at_end = AtEnd::kSilence;
  Pacing pacing = Pacing::kRealTime;
  // What the session reports. When absent: stereo, 16 bits, and 48 kHz or the WAV file's rate. The
  // PCM is delivered in the reported rate's pace, channels and sample size; an unknown field counts
  // as 48 kHz, stereo, 16 bits.
  std::optional<PcmParameters> parameters = std::nullopt;
};

// Puts the headset into its first state: the new source at its beginning, no script, all counts
// zero, every registration forgotten, a blocked read released. False when the source cannot be had;
// `error` then says why and the headset stays as it was. Without a call: Settings{}.
bool Configure(const Settings& settings, std::string* error);
// Configure(Settings{}).
void Reset();

// Adopts the text of a fault script in place of the present one, whose effects end. False when a line
// cannot be read; `error` then says "NAME:LINE: " and what was expected, and the headset stays as it
// was.
bool LoadScript(const std::string& text, const std::string& name, std::string* error);
// Carries out one action of the script language now ("session-change", "reads empty", ...). A
// callback has been delivered, on the headset's thread, when this returns.
bool Do(const std::string& action, std::string* error);

// Rate of the source, in frames per second.
uint32_t SourceRateHz();
// Frames of the WAV file not yet delivered; nothing for an endless source.
std::optional<uint64_t> FramesLeft();

// What the module has asked of the session since Configure.
struct Activity {
  uint64_t readiness_queries = 0;
  uint64_t registrations = 0;
  uint64_t unregistrations = 0;
  uint64_t starts = 0;
  uint64_t stops = 0;
  uint64_t configuration_queries = 0;
  uint64_t reads = 0;
  uint64_t position_queries = 0;
  uint64_t track_updates = 0;
  uint16_t last_cookie = 0;               // handed out last
  uint16_t last_unregistered_cookie = 0;  // as given
  uint64_t last_read_bytes = 0;           // asked for last
  uint64_t last_track_count = 0;
  uint64_t bytes_delivered = 0;      // PCM in all, across stops
  uint64_t callbacks_delivered = 0;  // callables that have returned
  uint64_t reads_waiting = 0;        // threads inside a blocked read
  bool streaming = false;            // between an answer of SUCCESS and the stop
};

Activity GetActivity();
// Waits until `condition` holds for the activity; false when it did not within `timeout`.
bool WaitUntil(const std::function<bool(const Activity&)>& condition,
               std::chrono::milliseconds timeout);

// With Pacing::kStepped: moves the clock. What became due has happened when this returns: script
// lines carried out, callbacks delivered, reads whose sound is there released.
void Advance(std::chrono::nanoseconds time);

}  // namespace virtual_headset

#endif  // PLATFORM_VIRTUAL_HEADSET_VIRTUAL_HEADSET_H_
