// The headset's thread runs the timed rules and delivers the callbacks; everything else runs on the
// threads of the callers.
#include "platform/virtual_headset/headset.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "platform/virtual_headset/scene.h"

namespace virtual_headset {
namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;
using vendor::corva::bluetooth_audio_extend::BitsPerSample;
using vendor::corva::bluetooth_audio_extend::ChannelMode;
using vendor::corva::bluetooth_audio_extend::SampleRate;
using vendor::corva::bluetooth_audio_extend::SessionParams;

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();
constexpr uint32_t kUsualRateHz = 48000;
// What a headset and its radio link take from sound to delivery.
constexpr uint64_t kRemoteDelayNs = 150000000;
constexpr int64_t kRefusalNs = 20000000;
constexpr uint16_t kWrongCookieFlip = 0x5A5A;

struct RateEntry {
  SampleRate rate;
  uint32_t hz;
};
constexpr RateEntry kRates[] = {
    {SampleRate::RATE_8000, 8000},     {SampleRate::RATE_16000, 16000},
    {SampleRate::RATE_24000, 24000},   {SampleRate::RATE_24000_2, 24000},
    {SampleRate::RATE_32000, 32000},   {SampleRate::RATE_44100, 44100},
    {SampleRate::RATE_48000, 48000},   {SampleRate::RATE_88200, 88200},
    {SampleRate::RATE_96000, 96000},   {SampleRate::RATE_176400, 176400},
    {SampleRate::RATE_192000, 192000},
};

uint32_t RateHz(SampleRate rate) {
  for (const RateEntry& entry : kRates) {
    if (entry.rate == rate) {
      return entry.hz;
    }
  }
  return kUsualRateHz;
}

std::optional<SampleRate> RateOf(uint32_t hz) {
  for (const RateEntry& entry : kRates) {
    if (entry.hz == hz) {
      return entry.rate;
    }
  }
  return std::nullopt;
}

bool SettlesStream(const Callback& callback) {
  return callback.kind == Callback::Kind::kResult && callback.status == Status::SUCCESS;
}

}  // namespace

Headset& Headset::Get() {
  static Headset headset;
  return headset;
}

Headset::Headset() : session_(std::make_shared<Session>()) {
  std::string error;
  Configure(Settings{}, &error);
  thread_ = std::thread([this] { Run(); });
}

Headset::~Headset() {
  {
    const Lock lock(mutex_);
    quit_ = true;
    EndStream();
  }
  thread_.join();
}

bool Headset::Configure(const Settings& settings, std::string* error) {
  PcmParameters parameters = settings.parameters.value_or(
      PcmParameters{SampleRate::RATE_48000, ChannelMode::STEREO, BitsPerSample::BITS_16});
  uint32_t rate_hz = RateHz(parameters.sampleRate);
  std::unique_ptr<SoundSource> source;
  switch (settings.source) {
    case Source::kScene:
      source = MakeScene(rate_hz);
      break;
    case Source::kTone:
      source = MakeTone(rate_hz);
      break;
    case Source::kSilence:
      source = MakeSilence();
      break;
    case Source::kWavFile:
      source = OpenWavFile(settings.wav_path, error);
      if (source == nullptr) {
        return false;
      }
      rate_hz = source->rate_hz();
      if (!settings.parameters.has_value()) {
        const std::optional<SampleRate> rate = RateOf(rate_hz);
        if (!rate.has_value()) {
          *error = settings.wav_path + ": no session has its rate of " + std::to_string(rate_hz) +
                   " Hz; convert it to 48000 or 44100 Hz";
          return false;
        }
        parameters.sampleRate = *rate;
      }
      break;
  }

  Lock lock(mutex_);
  // Callables may refer to what the caller is about to destroy.
  EndStream();
  changed_.wait(lock, [this] {
    return std::all_of(deliveries_.begin(), deliveries_.end(), [](const Delivery& delivery) {
      return delivery.thread == std::this_thread::get_id();
    });
  });
  settings_ = settings;
  source_ = std::move(source);
  source_rate_hz_ = rate_hz;
  first_behaviour_ = Behaviour{};
  first_behaviour_.parameters = parameters;
  behaviour_ = first_behaviour_;
  const uint64_t reads_waiting = activity_.reads_waiting;
  activity_ = Activity{};
  activity_.reads_waiting = reads_waiting;
  session_ = std::make_shared<Session>();
  registrations_.clear();
  rules_.clear();
  queue_.clear();
  open_tickets_.clear();
  stepped_ns_ = 0;
  first_start_ns_ = -1;
  asked_ns_ = waited_ns_ = 0;
  position_time_ = timespec{};
  position_fails_next_ = false;
  changed_.notify_all();
  return true;
}

bool Headset::LoadScript(const std::string& text, const std::string& name, std::string* error) {
  std::optional<std::vector<Rule>> rules = ParseScript(text, name, error);
  if (!rules.has_value()) {
    return false;
  }
  const Lock lock(mutex_);
  behaviour_ = first_behaviour_;
  rules_.clear();
  for (Rule& rule : *rules) {
    switch (rule.when.kind) {
      case When::Kind::kOnLoad:
        RunAction(rule.action);
        break;
      case When::Kind::kAt:
      case When::Kind::kEvery: {
        const int64_t due_ns = rule.when.time_ns;
        rules_.push_back({std::move(rule), due_ns});
        break;
      }
      default:
        rules_.push_back({std::move(rule), kNever});
    }
  }
  changed_.notify_all();
  return true;
}

bool Headset::Do(const std::string& action, std::string* error) {
  const std::optional<Action> parsed = ParseAction(action, error);
  if (!parsed.has_value()) {
    return false;
  }
  Lock lock(mutex_);
  AwaitDelivery(RunAction(*parsed), lock);
  return true;
}

uint32_t Headset::SourceRateHz() {
  const Lock lock(mutex_);
  return source_rate_hz_;
}

std::optional<uint64_t> Headset::FramesLeft() {
  const Lock lock(mutex_);
  return source_->FramesLeft();
}

Activity Headset::GetActivity() {
  const Lock lock(mutex_);
  return activity_;
}

bool Headset::WaitUntil(const std::function<bool(const Activity&)>& condition,
                        std::chrono::milliseconds timeout) {
  Lock lock(mutex_);
  return changed_.wait_until(lock, steady_clock::now() + timeout,
                             [&] { return condition(activity_); });
}

void Headset::Advance(nanoseconds time) {
  Lock lock(mutex_);
  const int64_t end_ns = stepped_ns_ + time.count();
  // From one due time to the next, so that everything sees the clock that it was due at.
  do {
    stepped_ns_ = std::max(stepped_ns_, std::min(end_ns, NextDueNs()));
    RunDueRules();
    changed_.notify_all();
    changed_.wait(lock, [this] {
      return deliveries_.empty() && (queue_.empty() || queue_.begin()->first > stepped_ns_);
    });
  } while (stepped_ns_ < end_ns);
}

std::shared_ptr<Session> Headset::Current() {
  const Lock lock(mutex_);
  if (!behaviour_.present) {
    PassRefusal();
  }
  return behaviour_.present ? session_ : nullptr;
}

bool Headset::IsReady(const Session& session) {
  const Lock lock(mutex_);
  Count(activity_.readiness_queries);
  return Serves(session) && behaviour_.ready;
}

uint16_t Headset::Register(Session& session, const PortStatusCallbacks& callbacks) {
  auto copy = std::make_shared<const PortStatusCallbacks>(callbacks);
  Lock lock(mutex_);
  Count(activity_.registrations);
  if (!Serves(session) || !behaviour_.registers) {
    return 0;
  }
  const uint16_t cookie = session.next_cookie;
  session.next_cookie = static_cast<uint16_t>(cookie == UINT16_MAX ? 1 : cookie + 1);
  registrations_.push_back({session_, cookie, std::move(copy)});
  activity_.last_cookie = cookie;
  RunRulesOf(Call::kRegister, lock);
  RunRulesAfter(Call::kRegister);
  return cookie;
}

void Headset::Unregister(const Session& session, uint16_t cookie) {
  Lock lock(mutex_);
  Count(activity_.unregistrations);
  activity_.last_unregistered_cookie = cookie;
  RunRulesOf(Call::kUnregister, lock);
  const auto found = std::find_if(
      registrations_.begin(), registrations_.end(), [&](const Registration& registration) {
        return registration.session.get() == &session && registration.cookie == cookie;
      });
  if (found == registrations_.end()) {
    return;
  }
  const Registration removed = std::move(*found);
  registrations_.erase(found);
  changed_.wait(lock, [&] {
    return std::none_of(deliveries_.begin(), deliveries_.end(), [&](const Delivery& delivery) {
      return delivery.callbacks == removed.callbacks.get() &&
             delivery.thread != std::this_thread::get_id();
    });
  });
  RunRulesAfter(Call::kUnregister, removed);
}

bool Headset::Start(const Session& session) {
  Lock lock(mutex_);
  Count(activity_.starts);
  if (first_start_ns_ < 0) {
    first_start_ns_ = Now();
  }
  if (!Serves(session) || !behaviour_.starts) {
    PassRefusal();
    return false;
  }
  EndWait();
  start_requested_ = true;
  waiting_since_ns_ = Now();
  changed_.notify_all();
  RunRulesOf(Call::kStart, lock);
  const Answer answer = behaviour_.answer;
  for (int i = answer.never ? 2 : answer.twice ? 0 : 1; i < 2; ++i) {
    const Ticket ticket = Enqueue(answer.result, answer.delay_ns);
    if (answer.early) {
      AwaitDelivery(ticket, lock);
    }
  }
  RunRulesAfter(Call::kStart);
  return true;
}

bool Headset::Stop(const Session& session) {
  Lock lock(mutex_);
  Count(activity_.stops);
  if (!Serves(session)) {
    return false;
  }
  RunRulesOf(Call::kStop, lock);
  EndStream();
  RunRulesAfter(Call::kStop);
  return true;
}

PcmParameters Headset::GetParameters(const Session& session) {
  const Lock lock(mutex_);
  Count(activity_.configuration_queries);
  return Serves(session) ? behaviour_.parameters
                         : BluetoothAudioSession::invalidSoftwareAudioConfiguration;
}

size_t Headset::Read(const Session& session, void* buffer, size_t bytes) {
  Lock lock(mutex_);
  Count(activity_.reads);
  activity_.last_read_bytes = bytes;
  RunRulesOf(Call::kRead, lock);
  if (settings_.pacing == Pacing::kAsFastAsRead) {
    // The sound asked for is the clock here: what it makes due comes first.
    std::vector<Ticket> tickets;
    RunDueRules(&tickets);
    for (const Ticket ticket : tickets) {
      AwaitDelivery(ticket, lock);
    }
    asked_ns_ += DurationNs(bytes);
  }
  RunRulesAfter(Call::kRead);

  const uint64_t stream = stream_number_;
  const auto goes_on = [&] { return activity_.streaming && stream == stream_number_; };
  if (!Serves(session) || buffer == nullptr) {
    return 0;
  }
  if (behaviour_.reads == Behaviour::Reads::kBlocking && goes_on()) {
    ++activity_.reads_waiting;
    waiting_since_ns_ = Now();
    changed_.notify_all();
    while (goes_on() && behaviour_.reads == Behaviour::Reads::kBlocking) {
      changed_.wait(lock);
    }
    EndWait();
    --activity_.reads_waiting;
    changed_.notify_all();
  }
  if (behaviour_.reads == Behaviour::Reads::kEmpty) {
    return 0;
  }
  size_t copied = bytes;
  if (behaviour_.reads == Behaviour::Reads::kShort) {
    copied = std::min(copied, behaviour_.read_bytes);
  }
  if (settings_.at_end == AtEnd::kNoData) {
    copied = std::min(copied, BytesLeft());
  }
  if (settings_.pacing != Pacing::kAsFastAsRead && goes_on()) {
    // Nothing that was captured is dropped: a reader that was late finds it waiting.
    const int64_t due_ns = captured_until_ns_ + DurationNs(copied);
    ++activity_.reads_waiting;
    changed_.notify_all();
    while (goes_on() && Now() < due_ns) {
      WaitFor(lock, due_ns);
    }
    --activity_.reads_waiting;
    changed_.notify_all();
    if (goes_on()) {
      captured_until_ns_ = due_ns;
    }
  }
  if (!goes_on()) {
    return 0;
  }
  Fill(static_cast<uint8_t*>(buffer), copied);
  activity_.bytes_delivered += copied;
  clock_gettime(CLOCK_MONOTONIC, &position_time_);
  changed_.notify_all();
  return copied + (behaviour_.reads == Behaviour::Reads::kOver ? behaviour_.read_bytes : 0);
}

bool Headset::GetPosition(const Session& session, uint64_t* delay_ns, uint64_t* bytes,
                          timespec* time) {
  const Lock lock(mutex_);
  Count(activity_.position_queries);
  bool fails = behaviour_.position == Behaviour::Position::kFailing;
  if (behaviour_.position == Behaviour::Position::kAlternating) {
    fails = position_fails_next_;
    position_fails_next_ = !position_fails_next_;
  }
  if (behaviour_.position == Behaviour::Position::kGiven && Serves(session)) {
    const Behaviour::GivenPosition& given = behaviour_.given_position;
    *delay_ns = given.delay_ns;
    *bytes = given.bytes;
    *time = {static_cast<time_t>(given.time_ns / 1000000000u),
             static_cast<long>(given.time_ns % 1000000000u)};
    return true;
  }
  // There is no position before there was sound.
  if (fails || !Serves(session) || activity_.bytes_delivered == 0) {
    return false;
  }
  *delay_ns = kRemoteDelayNs;
  *bytes = activity_.bytes_delivered;
  *time = position_time_;
  return true;
}

void Headset::UpdateTracks(const Session& session, size_t count) {
  const Lock lock(mutex_);
  if (Serves(session)) {
    Count(activity_.track_updates);
    activity_.last_track_count = count;
  }
}

void Headset::Run() {
  Lock lock(mutex_);
  while (!quit_) {
    try {
      RunDueRules();
      if (!queue_.empty() && queue_.begin()->first <= Now()) {
        const Queued queued = std::move(queue_.extract(queue_.begin()).mapped());
        // Whatever happens, nobody waits for it any longer.
        const auto close_ticket = [&] {
          open_tickets_.erase(queued.ticket);
          changed_.notify_all();
        };
        try {
          Deliver(queued.callback, queued.target, lock);
        } catch (const std::bad_alloc&) {
          close_ticket();
          throw;
        }
        close_ticket();
        continue;
      }
    } catch (const std::bad_alloc&) {
      // A callback is lost, as it might be on the air.
    }
    WaitFor(lock, NextDueNs());
  }
}

int64_t Headset::Now() const {
  return settings_.pacing == Pacing::kStepped
             ? stepped_ns_
             : nanoseconds(steady_clock::now().time_since_epoch()).count();
}

bool Headset::TimeRuns() const {
  return first_start_ns_ >= 0 &&
         (settings_.pacing != Pacing::kAsFastAsRead || waiting_since_ns_ >= 0);
}

int64_t Headset::HeadsetTime() const {
  if (first_start_ns_ < 0) {
    return -1;
  }
  if (settings_.pacing != Pacing::kAsFastAsRead) {
    return Now() - first_start_ns_;
  }
  return asked_ns_ + waited_ns_ + (waiting_since_ns_ >= 0 ? Now() - waiting_since_ns_ : 0);
}

int64_t Headset::NextDueNs() const {
  int64_t due_ns = queue_.empty() ? kNever : queue_.begin()->first;
  if (TimeRuns()) {
    for (const ScheduledRule& scheduled : rules_) {
      if (scheduled.due_ns != kNever) {
        due_ns = std::min(due_ns, Now() + scheduled.due_ns - HeadsetTime());
      }
    }
  }
  return due_ns;
}

void Headset::WaitFor(Lock& lock, int64_t due_ns) {
  if (due_ns == kNever || settings_.pacing == Pacing::kStepped) {
    changed_.wait(lock);
  } else {
    changed_.wait_until(lock, steady_clock::time_point(nanoseconds(due_ns)));
  }
}

// Where sound is the clock, a refusal stands for the period that was to be read: time goes on.
void Headset::PassRefusal() {
  if (settings_.pacing == Pacing::kAsFastAsRead) {
    asked_ns_ += kRefusalNs;
    RunDueRules();
  }
}

// Carries out what headset time has reached; adds the tickets of the callbacks to `tickets`.
void Headset::RunDueRules(std::vector<Ticket>* tickets) {
  const int64_t time_ns = HeadsetTime();
  for (ScheduledRule& scheduled : rules_) {
    while (scheduled.due_ns <= time_ns) {
      const bool again = scheduled.rule.when.kind == When::Kind::kEvery;
      scheduled.due_ns = again ? scheduled.due_ns + scheduled.rule.when.time_ns : kNever;
      const Ticket ticket = RunAction(scheduled.rule.action);
      if (tickets != nullptr && ticket != 0) {
        tickets->push_back(ticket);
      }
    }
  }
}

// The rules for inside and during `call`, on its caller's thread.
void Headset::RunRulesOf(Call call, Lock& lock) {
  for (size_t i = 0; i < rules_.size(); ++i) {
    const Rule& rule = rules_[i].rule;
    if (rule.when.call != call ||
        (rule.when.kind != When::Kind::kInside && rule.when.kind != When::Kind::kDuring)) {
      continue;
    }
    const Callback* const callback = std::get_if<Callback>(&rule.action);
    if (callback != nullptr && rule.when.kind == When::Kind::kInside) {
      const Callback copy = *callback;  // the rules may change while the lock is open
      Deliver(copy, std::nullopt, lock);
    } else {
      AwaitDelivery(RunAction(rule.action), lock);
    }
  }
}

void Headset::RunRulesAfter(Call call, const std::optional<Registration>& target) {
  for (const ScheduledRule& scheduled : rules_) {
    const When& when = scheduled.rule.when;
    if (when.kind != When::Kind::kAfter || when.call != call) {
      continue;
    }
    if (const auto* const callback = std::get_if<Callback>(&scheduled.rule.action)) {
      Enqueue(*callback, when.time_ns, target);
    } else {
      RunAction(scheduled.rule.action);
    }
  }
}

Headset::Ticket Headset::RunAction(const Action& action) {
  Ticket ticket = 0;
  if (const auto* const change = std::get_if<ChangeBehaviour>(&action)) {
    (*change)(behaviour_);
  } else if (const auto* const callback = std::get_if<Callback>(&action)) {
    ticket = Enqueue(*callback, 0);
  } else {
    registrations_.erase(std::remove_if(registrations_.begin(), registrations_.end(),
                                        [this](const Registration& registration) {
                                          return registration.session != session_;
                                        }),
                         registrations_.end());
    session_ = std::make_shared<Session>();
    EndStream();
  }
  changed_.notify_all();
  return ticket;
}

Headset::Ticket Headset::Enqueue(const Callback& callback, int64_t delay_ns,
                                 const std::optional<Registration>& target) {
  const Ticket ticket = ++last_ticket_;
  open_tickets_.insert(ticket);
  queue_.emplace(Now() + delay_ns, Queued{ticket, callback, target});
  changed_.notify_all();
  return ticket;
}

void Headset::AwaitDelivery(Ticket ticket, Lock& lock) {
  // The headset's own thread, in a callable that calls back, cannot wait for itself.
  if (std::this_thread::get_id() != thread_.get_id()) {
    changed_.wait(lock, [&] { return open_tickets_.count(ticket) == 0; });
  }
}

bool Headset::IsRegistered(const Registration& registration) const {
  return std::any_of(registrations_.begin(), registrations_.end(), [&](const Registration& other) {
    return other.callbacks == registration.callbacks;
  });
}

void Headset::Deliver(const Callback& callback, const std::optional<Registration>& target,
                      Lock& lock) {
  const std::vector<Registration> targets =
      target.has_value() ? std::vector<Registration>{*target} : registrations_;
  if (SettlesStream(callback) && start_requested_ && !activity_.streaming) {
    activity_.streaming = true;
    waiting_since_ns_ = -1;
    captured_until_ns_ = Now();
  } else if (callback.kind == Callback::Kind::kSessionChange) {
    EndStream();
  }
  const SessionParams params{behaviour_.parameters};
  for (const Registration& registration : targets) {
    // The lock was open for the delivery before: who has unregistered meanwhile is called no more.
    if (!target.has_value() && !IsRegistered(registration)) {
      continue;
    }
    uint16_t cookie = registration.cookie;
    if (callback.cookie.choice == Cookie::Choice::kWrong) {
      cookie ^= kWrongCookieFlip;
    } else if (callback.cookie.choice == Cookie::Choice::kGiven) {
      cookie = callback.cookie.given;
    }
    deliveries_.push_back({registration.callbacks.get(), std::this_thread::get_id()});
    lock.unlock();
    switch (callback.kind) {
      case Callback::Kind::kResult:
        registration.callbacks->control_result_cb(cookie, true, callback.status);
        break;
      case Callback::Kind::kSessionChange:
        registration.callbacks->session_changed_cb(cookie);
        break;
      case Callback::Kind::kSessionParams:
        registration.callbacks->session_params_cb(cookie, params);
        break;
    }
    lock.lock();
    deliveries_.erase(std::find_if(deliveries_.begin(), deliveries_.end(), [&](const Delivery& d) {
      return d.callbacks == registration.callbacks.get() && d.thread == std::this_thread::get_id();
    }));
    Count(activity_.callbacks_delivered);
  }
}

void Headset::EndStream() {
  EndWait();
  start_requested_ = false;
  activity_.streaming = false;
  ++stream_number_;
  partial_left_ = 0;
  changed_.notify_all();
}

// An answered start takes no headset time; one that was not, and a blocked read, do.
void Headset::EndWait() {
  if (waiting_since_ns_ >= 0) {
    waited_ns_ += Now() - waiting_since_ns_;
    waiting_since_ns_ = -1;
  }
}

uint32_t Headset::FrameBytes() const {
  const uint32_t channels = behaviour_.parameters.channelMode == ChannelMode::MONO ? 1 : 2;
  switch (behaviour_.parameters.bitsPerSample) {
    case BitsPerSample::BITS_24:
      return 3 * channels;
    case BitsPerSample::BITS_32:
      return 4 * channels;
    default:
      return 2 * channels;
  }
}

int64_t Headset::DurationNs(size_t bytes) const {
  const double seconds =
      static_cast<double>(bytes) / FrameBytes() / RateHz(behaviour_.parameters.sampleRate);
  return std::llround(seconds * 1e9);
}

size_t Headset::BytesLeft() const {
  const std::optional<uint64_t> frames = source_->FramesLeft();
  return frames.has_value() ? static_cast<size_t>(*frames * FrameBytes() + partial_left_)
                            : std::numeric_limits<size_t>::max();
}

// Encodes one frame in the reported channels and sample size, little end first.
void Headset::Encode(const int16_t* stereo, uint8_t* out) const {
  const bool mono = behaviour_.parameters.channelMode == ChannelMode::MONO;
  const int channels = mono ? 1 : 2;
  const int sample_bytes = static_cast<int>(FrameBytes()) / channels;
  for (int channel = 0; channel < channels; ++channel) {
    const int sample = mono ? (stereo[0] + stereo[1]) >> 1 : stereo[channel];
    for (int padding = sample_bytes - 2; padding > 0; --padding) {
      *out++ = 0;
    }
    *out++ = static_cast<uint8_t>(sample);
    *out++ = static_cast<uint8_t>(sample >> 8);
  }
}

// Whole frames go straight into `out`. A read may end within a frame; the next one goes on there.
void Headset::Fill(uint8_t* out, size_t bytes) {
  const auto take_partial = [&] {
    const size_t count = std::min(bytes, partial_left_);
    memcpy(out, partial_.data() + partial_size_ - partial_left_, count);
    out += count;
    bytes -= count;
    partial_left_ -= count;
  };
  take_partial();
  const size_t frame_bytes = FrameBytes();
  std::array<int16_t, 512> stereo;
  while (bytes >= frame_bytes) {
    const size_t frames = std::min(bytes / frame_bytes, stereo.size() / 2);
    source_->Render(stereo.data(), frames);
    for (size_t i = 0; i < frames; ++i, out += frame_bytes) {
      Encode(&stereo[2 * i], out);
    }
    bytes -= frames * frame_bytes;
  }
  if (bytes > 0) {
    source_->Render(stereo.data(), 1);
    Encode(stereo.data(), partial_.data());
    partial_size_ = partial_left_ = frame_bytes;
    take_partial();
  }
}

void Headset::Count(uint64_t& counter) {
  ++counter;
  changed_.notify_all();
}

// The control interface.
bool Configure(const Settings& settings, std::string* error) {
  return Headset::Get().Configure(settings, error);
}
void Reset() {
  std::string error;
  Configure(Settings{}, &error);
}
bool LoadScript(const std::string& text, const std::string& name, std::string* error) {
  return Headset::Get().LoadScript(text, name, error);
}
bool Do(const std::string& action, std::string* error) {
  return Headset::Get().Do(action, error);
}
uint32_t SourceRateHz() {
  return Headset::Get().SourceRateHz();
}
std::optional<uint64_t> FramesLeft() {
  return Headset::Get().FramesLeft();
}
Activity GetActivity() {
  return Headset::Get().GetActivity();
}
bool WaitUntil(const std::function<bool(const Activity&)>& condition,
               std::chrono::milliseconds timeout) {
  return Headset::Get().WaitUntil(condition, timeout);
}
void Advance(nanoseconds time) {
  Headset::Get().Advance(time);
}

}  // namespace virtual_headset
