// Reads one line at a time, left to right. The first thing that does not fit becomes the error and
// ends the line; what is parsed after it is thrown away.
#include "platform/virtual_headset/script.h"

#include <charconv>
#include <cmath>
#include <initializer_list>
#include <sstream>
#include <utility>

namespace virtual_headset {
namespace {

using vendor::corva::bluetooth_audio_extend::BitsPerSample;
using vendor::corva::bluetooth_audio_extend::ChannelMode;
using vendor::corva::bluetooth_audio_extend::SampleRate;
using vendor::corva::bluetooth_audio_extend::toString;

constexpr double kLongestTimeNs = 1e15;
constexpr int64_t kShortestPeriodNs = 1000000;
constexpr uint64_t kMostBytes = 1 << 30;

template <typename T>
using Names = std::vector<std::pair<std::string, T>>;

template <typename T>
Names<T> NamesOf(std::initializer_list<T> values) {
  Names<T> names;
  for (const T value : values) {
    names.emplace_back(toString(value), value);
  }
  return names;
}

class Words {
 public:
  explicit Words(const std::string& line) {
    std::istringstream stream(line.substr(0, line.find('#')));
    for (std::string word; stream >> word;) {
      words_.push_back(word);
    }
  }

  bool empty() const { return next_ == words_.size(); }
  const std::string& error() const { return error_; }

  void Fail(const std::string& expected) {
    if (error_.empty()) {
      error_ = "expected " + expected + ", found " +
               (empty() ? "the end of the line" : "\"" + words_[next_] + "\"");
    }
  }

  // Takes the next word if it is `word`.
  bool Take(const char* word) {
    if (empty() || words_[next_] != word) {
      return false;
    }
    ++next_;
    return true;
  }

  // Takes the one of `names` that comes next; the first of them after an error.
  template <typename T>
  T OneOf(const Names<T>& names) {
    std::string expected;
    for (const auto& [name, value] : names) {
      if (Take(name.c_str())) {
        return value;
      }
      expected += (expected.empty() ? "" : &name == &names.back().first ? " or " : ", ") + name;
    }
    Fail(expected);
    return names.front().second;
  }

  // The same, or a number of at most `most`, for values without a name.
  template <typename T>
  T OneOfOrNumber(const Names<T>& names, uint64_t most) {
    uint64_t number = 0;
    return TakeNumber(most, &number) ? static_cast<T>(number) : OneOf(names);
  }

  uint64_t Number(uint64_t most) {
    uint64_t number = 0;
    if (!TakeNumber(most, &number)) {
      Fail("a number from 0 to " + std::to_string(most));
    }
    return number;
  }

  bool NextIsTime() const { return !empty() && words_[next_].find_first_of("0123456789.") == 0; }

  int64_t TimeNs(int64_t least_ns = 0) {
    const std::string word = empty() ? "" : words_[next_];
    double amount = 0;
    const char* const end = word.data() + word.size();
    const auto [rest, fault] = std::from_chars(word.data(), end, amount);
    const std::string unit(rest, end);
    const double time_ns = amount * (unit == "ms" ? 1e6 : 1e9);
    if (fault != std::errc() || (unit != "ms" && unit != "s") ||
        !(time_ns >= static_cast<double>(least_ns) && time_ns <= kLongestTimeNs)) {
      Fail(least_ns == 0 ? "a time such as 300ms or 1.5s" : "a time of 1ms or more");
      return 0;
    }
    ++next_;
    return std::llround(time_ns);
  }

 private:
  bool TakeNumber(uint64_t most, uint64_t* number) {
    if (empty()) {
      return false;
    }
    const std::string& word = words_[next_];
    const bool hexadecimal = word.compare(0, 2, "0x") == 0;
    const char* const end = word.data() + word.size();
    uint64_t value = 0;
    const auto [rest, fault] =
        std::from_chars(word.data() + (hexadecimal ? 2 : 0), end, value, hexadecimal ? 16 : 10);
    if (fault != std::errc() || rest != end || value > most) {
      return false;
    }
    *number = value;
    ++next_;
    return true;
  }

  std::vector<std::string> words_;
  size_t next_ = 0;
  std::string error_;
};

// [cookie wrong|NUMBER]
Cookie TakeCookie(Words& words) {
  Cookie cookie;
  if (words.Take("cookie")) {
    if (words.Take("wrong")) {
      cookie.choice = Cookie::Choice::kWrong;
    } else {
      cookie.choice = Cookie::Choice::kGiven;
      cookie.given = static_cast<uint16_t>(words.Number(UINT16_MAX));
    }
  }
  return cookie;
}

Status TakeStatus(Words& words) {
  return words.OneOfOrNumber(
      NamesOf({Status::SUCCESS, Status::UNSUPPORTED_CODEC_CONFIGURATION, Status::FAILURE,
               Status::SINK_NOT_READY, Status::CALL_IN_PROGRESS, Status::SW_ERROR, Status::LW_ERROR,
               Status::FAILURE_DISC_IN_PROGRESS, Status::FAILURE_NO_WAIT}),
      UINT8_MAX);
}

// never | STATUS [early | late TIME] [twice] [cookie COOKIE]
Answer TakeAnswer(Words& words) {
  Answer answer;
  answer.never = words.Take("never");
  if (!answer.never) {
    answer.result.status = TakeStatus(words);
    answer.early = words.Take("early");
    if (!answer.early && words.Take("late")) {
      answer.delay_ns = words.TimeNs();
    }
    answer.twice = words.Take("twice");
    answer.result.cookie = TakeCookie(words);
  }
  return answer;
}

PcmParameters TakeParameters(Words& words) {
  PcmParameters parameters{};
  parameters.sampleRate = words.OneOfOrNumber(
      NamesOf({SampleRate::RATE_UNKNOWN, SampleRate::RATE_44100, SampleRate::RATE_48000,
               SampleRate::RATE_88200, SampleRate::RATE_96000, SampleRate::RATE_176400,
               SampleRate::RATE_192000, SampleRate::RATE_16000, SampleRate::RATE_24000,
               SampleRate::RATE_32000, SampleRate::RATE_24000_2, SampleRate::RATE_8000}),
      UINT32_MAX);
  parameters.channelMode = words.OneOfOrNumber(
      NamesOf({ChannelMode::UNKNOWN, ChannelMode::MONO, ChannelMode::STEREO}), UINT8_MAX);
  parameters.bitsPerSample =
      words.OneOfOrNumber(NamesOf({BitsPerSample::BITS_UNKNOWN, BitsPerSample::BITS_16,
                                   BitsPerSample::BITS_24, BitsPerSample::BITS_32}),
                          UINT8_MAX);
  return parameters;
}

// A word that switches one flag of the behaviour.
Action TakeFlag(Words& words, bool Behaviour::*flag, const char* on, const char* off) {
  const bool value = words.OneOf(Names<bool>{{on, true}, {off, false}});
  return ChangeBehaviour([flag, value](Behaviour& behaviour) { behaviour.*flag = value; });
}

Action TakeReads(Words& words) {
  using Reads = Behaviour::Reads;
  const Reads reads = words.OneOf(Names<Reads>{{"full", Reads::kFull},
                                               {"empty", Reads::kEmpty},
                                               {"blocking", Reads::kBlocking},
                                               {"short", Reads::kShort},
                                               {"over", Reads::kOver}});
  const bool has_bytes = reads == Reads::kShort || reads == Reads::kOver;
  const size_t bytes = has_bytes ? words.Number(kMostBytes) : 0;
  return ChangeBehaviour([reads, bytes](Behaviour& behaviour) {
    behaviour.reads = reads;
    behaviour.read_bytes = bytes;
  });
}

Action TakePosition(Words& words) {
  using Position = Behaviour::Position;
  const Position position = words.OneOf(Names<Position>{{"ok", Position::kOk},
                                                        {"failing", Position::kFailing},
                                                        {"alternating", Position::kAlternating},
                                                        {"given", Position::kGiven}});
  Behaviour::GivenPosition given;
  if (position == Position::kGiven) {
    given.bytes = words.Number(INT64_MAX);
    given.time_ns = words.Number(INT64_MAX);
    given.delay_ns = words.Number(INT64_MAX);
  }
  return ChangeBehaviour([position, given](Behaviour& behaviour) {
    behaviour.position = position;
    behaviour.given_position = given;
  });
}

Action TakeInstance(Words& words) {
  if (words.Take("replaced")) {
    return ReplaceInstance{};
  }
  const bool present =
      words.OneOf(Names<bool>{{"present", true}, {"absent", false}, {"replaced", false}});
  return ChangeBehaviour([present](Behaviour& behaviour) { behaviour.present = present; });
}

Action TakeResult(Words& words) {
  Callback callback{Callback::Kind::kResult, TakeStatus(words), {}};
  callback.cookie = TakeCookie(words);
  return callback;
}

Action TakeAction(Words& words) {
  using Take = Action (*)(Words&);
  const Names<Take> actions{
      {"instance", TakeInstance},
      {"ready", [](Words& w) { return TakeFlag(w, &Behaviour::ready, "yes", "no"); }},
      {"register", [](Words& w) { return TakeFlag(w, &Behaviour::registers, "ok", "zero"); }},
      {"start", [](Words& w) { return TakeFlag(w, &Behaviour::starts, "ok", "refused"); }},
      {"answer",
       [](Words& w) -> Action {
         return ChangeBehaviour([answer = TakeAnswer(w)](Behaviour& b) { b.answer = answer; });
       }},
      {"reads", TakeReads},
      {"position", TakePosition},
      {"parameters",
       [](Words& w) -> Action {
         return ChangeBehaviour([pcm = TakeParameters(w)](Behaviour& b) { b.parameters = pcm; });
       }},
      {"result", TakeResult},
      {"session-change",
       [](Words& w) -> Action {
         return Callback{Callback::Kind::kSessionChange, Status::SUCCESS, TakeCookie(w)};
       }},
      {"session-params",
       [](Words& w) -> Action {
         return Callback{Callback::Kind::kSessionParams, Status::SUCCESS, TakeCookie(w)};
       }},
  };
  const Take take = words.OneOf(actions);
  Action action = words.error().empty() ? take(words) : Action();
  if (!words.empty()) {
    words.Fail("the end of the line");
  }
  return action;
}

When TakeWhen(Words& words) {
  When when;
  const Names<When::Kind> kinds{{"at", When::Kind::kAt},
                                {"every", When::Kind::kEvery},
                                {"inside", When::Kind::kInside},
                                {"during", When::Kind::kDuring},
                                {"after", When::Kind::kAfter}};
  for (const auto& [name, kind] : kinds) {
    if (words.Take(name.c_str())) {
      when.kind = kind;
    }
  }
  switch (when.kind) {
    case When::Kind::kOnLoad:
      break;
    case When::Kind::kAt:
      when.time_ns = words.TimeNs();
      break;
    case When::Kind::kEvery:
      when.time_ns = words.TimeNs(kShortestPeriodNs);
      break;
    default:
      when.call = words.OneOf(Names<Call>{{"register", Call::kRegister},
                                          {"unregister", Call::kUnregister},
                                          {"start", Call::kStart},
                                          {"stop", Call::kStop},
                                          {"read", Call::kRead}});
      if (when.kind == When::Kind::kAfter && words.NextIsTime()) {
        when.time_ns = words.TimeNs();
      }
  }
  return when;
}

}  // namespace

std::optional<std::vector<Rule>> ParseScript(const std::string& text, const std::string& name,
                                             std::string* error) {
  std::vector<Rule> rules;
  std::istringstream lines(text);
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    Words words(line);
    if (words.empty()) {
      continue;
    }
    Rule rule;
    rule.when = TakeWhen(words);
    if (words.error().empty()) {
      rule.action = TakeAction(words);
    }
    if (!words.error().empty()) {
      *error = name + ":" + std::to_string(number) + ": " + words.error();
      return std::nullopt;
    }
    rules.push_back(std::move(rule));
  }
  return rules;
}

std::optional<Action> ParseAction(const std::string& text, std::string* error) {
  Words words(text);
  Action action = TakeAction(words);
  if (!words.error().empty()) {
    *error = words.error();
    return std::nullopt;
  }
  return action;
}

}  // namespace virtual_headset
