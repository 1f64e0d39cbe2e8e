// The fault script: its language turned into records. Grammar and meaning: docs/virtual-headset.md.
#ifndef PLATFORM_VIRTUAL_HEADSET_SCRIPT_H_
#define PLATFORM_VIRTUAL_HEADSET_SCRIPT_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "bluetooth_audio_extend_session.h"

namespace virtual_headset {

using vendor::corva::bluetooth_audio_extend::PcmParameters;
using vendor::corva::bluetooth_audio_extend::Status;

struct Cookie {
  enum class Choice { kOwn, kWrong, kGiven } choice = Choice::kOwn;
  uint16_t given = 0;
};

// One message to the registered ports.
struct Callback {
  enum class Kind { kResult, kSessionChange, kSessionParams } kind = Kind::kResult;
  Status status = Status::SUCCESS;  // of a result
  Cookie cookie;
};

// What follows a StartStream that was taken.
struct Answer {
  bool never = false;
  Callback result;
  bool early = false;    // delivered before StartStream returns
  int64_t delay_ns = 0;  // delivered this long after it
  bool twice = false;
};

// How the session behaves until it is told otherwise.
struct Behaviour {
  enum class Reads { kFull, kEmpty, kBlocking, kShort, kOver };
  enum class Position { kOk, kFailing, kAlternating, kGiven };
  struct GivenPosition {
    uint64_t bytes = 0;
    uint64_t time_ns = 0;
    uint64_t delay_ns = 0;
  };

  bool present = true;
  bool ready = true;
  bool registers = true;
  bool starts = true;
  Answer answer;
  Reads reads = Reads::kFull;
  size_t read_bytes = 0;  // kShort: at most these; kOver: reported on top of what was copied
  Position position = Position::kOk;
  GivenPosition given_position;  // kGiven: reported whatever was delivered
  PcmParameters parameters{};
};

using ChangeBehaviour = std::function<void(Behaviour&)>;
struct ReplaceInstance {};
using Action = std::variant<ChangeBehaviour, Callback, ReplaceInstance>;

enum class Call { kRegister, kUnregister, kStart, kStop, kRead };

struct When {
  enum class Kind {
    kOnLoad,
    kAt,      // once, at time_ns
    kEvery,   // again and again, time_ns apart
    kInside,  // on the thread that makes `call`
    kDuring,  // on the headset's thread while `call` waits
    kAfter,   // on the headset's thread, time_ns after `call`
  } kind = Kind::kOnLoad;
  int64_t time_ns = 0;
  Call call = Call::kStart;
};

struct Rule {
  When when;
  Action action;
};

// The rules of `text`, in its order. Nothing, with `error` set, when a line cannot be read.
std::optional<std::vector<Rule>> ParseScript(const std::string& text, const std::string& name,
                                             std::string* error);
// One action without a time.
std::optional<Action> ParseAction(const std::string& text, std::string* error);

}  // namespace virtual_headset

#endif  // PLATFORM_VIRTUAL_HEADSET_SCRIPT_H_
