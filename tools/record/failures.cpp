// Causes of a missing stream or missing audio; see the header.
#include "tools/record/failures.h"

#include <cerrno>

#include "tools/record/exit_codes.h"
#include "tools/record/report.h"

namespace tools {
namespace {

constexpr char kLookAtLog[] = "run again with -v and look at the module's own messages";

}  // namespace

Failure StreamRefused(int result, const StreamFormat& format) {
  if (result == -EINVAL) {
    return {kStreamRefused, "the headset's session is absent, not ready, or accepts no client",
            "check the --fault script; without one the virtual headset is always ready"};
  }
  if (result == -ENOMEM) {
    return {kStreamRefused, "there is not enough memory for a stream", "end other programs"};
  }
  if (format.rate_hz != 44100 && format.rate_hz != 48000) {
    return {kStreamRefused,
            "the headset's session runs at " + std::to_string(format.rate_hz) +
                " Hz; the module processes 44100 and 48000 Hz only",
            "convert the input first, for example: sox IN.wav -r 48000 OUT.wav"};
  }
  return {kStreamRefused,
          "the module cannot set up its processing for " + format.Text() + " (result " +
              std::to_string(result) + ")",
          kLookAtLog};
}

Failure NoAudio(const StreamFormat& format, int mode, const std::string& port_state, bool started,
                double recorded_s) {
  const std::string when =
      recorded_s > 0 ? "no more audio came after " + TimeText(recorded_s) : "no audio came";
  if (format.Channels() == 1) {
    return {kNoAudio,
            when + ": the headset's session is mono, which fills the module's buffers for good",
            "use a stereo session"};
  }
  if (mode > 1) {
    return {kNoAudio, when + ": every read fails in mode " + std::to_string(mode),
            "use mode 0 or 1"};
  }
  if (port_state == "STARTING" && !started) {
    return {kNoAudio, when + ": the headset never answered the request to start with success",
            "check the --fault script; each attempt waits 4.5 s for the answer"};
  }
  return {kNoAudio, when + ": the headset delivers nothing (port " + port_state + ")", kLookAtLog};
}

}  // namespace tools
