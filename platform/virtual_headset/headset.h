// The engine of the virtual headset: one object per process behind both the session library's
// interface and the control interface. It keeps the behaviour that a script sets, the sound source,
// the clock, the registrations, and a thread that delivers the callbacks.
//
// One mutex guards everything; it is never held while a callable runs. Everybody who waits does so on
// the one condition, which is notified on every change.
#ifndef PLATFORM_VIRTUAL_HEADSET_HEADSET_H_
#define PLATFORM_VIRTUAL_HEADSET_HEADSET_H_

#include <array>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "platform/virtual_headset/script.h"
#include "platform/virtual_headset/sources.h"
#include "platform/virtual_headset/virtual_headset.h"

namespace virtual_headset {

using vendor::corva::bluetooth_audio_extend::BluetoothAudioSession;
using vendor::corva::bluetooth_audio_extend::PortStatusCallbacks;

// A session that was replaced goes on existing for whoever still holds it, and serves nothing.
struct Session : BluetoothAudioSession {
  uint16_t next_cookie = 1;  // guarded by the headset; starts again in a replaced session
};

class Headset {
 public:
  static Headset& Get();
  ~Headset();

  bool Configure(const Settings& settings, std::string* error);
  bool LoadScript(const std::string& text, const std::string& name, std::string* error);
  bool Do(const std::string& action, std::string* error);
  uint32_t SourceRateHz();
  std::optional<uint64_t> FramesLeft();
  Activity GetActivity();
  bool WaitUntil(const std::function<bool(const Activity&)>& condition,
                 std::chrono::milliseconds timeout);
  void Advance(std::chrono::nanoseconds time);

  // The session library's side.
  std::shared_ptr<Session> Current();
  bool IsReady(const Session& session);
  uint16_t Register(Session& session, const PortStatusCallbacks& callbacks);
  void Unregister(const Session& session, uint16_t cookie);
  bool Start(const Session& session);
  bool Stop(const Session& session);
  PcmParameters GetParameters(const Session& session);
  size_t Read(const Session& session, void* buffer, size_t bytes);
  bool GetPosition(const Session& session, uint64_t* delay_ns, uint64_t* bytes, timespec* time);
  void UpdateTracks(const Session& session, size_t count);

 private:
  using Lock = std::unique_lock<std::mutex>;
  using Ticket = uint64_t;  // of a callback that is queued or being delivered; 0 for none

  struct Registration {
    std::shared_ptr<const Session> session;
    uint16_t cookie;
    std::shared_ptr<const PortStatusCallbacks> callbacks;
  };
  struct Queued {
    Ticket ticket;
    Callback callback;
    std::optional<Registration> target;  // absent: whoever is registered by then
  };
  struct ScheduledRule {
    Rule rule;
    int64_t due_ns;  // headset time; kNever when done, or not a matter of time
  };
  struct Delivery {
    const PortStatusCallbacks* callbacks;
    std::thread::id thread;
  };

  Headset();
  void Run();  // the headset's thread
  bool Serves(const Session& session) const { return &session == session_.get(); }

  // The clock, in ns; and headset time, by which `at` and `every` go.
  int64_t Now() const;
  int64_t HeadsetTime() const;
  bool TimeRuns() const;
  void WaitFor(Lock& lock, int64_t due_ns);

  void PassRefusal();

  // Rules and callbacks.
  void RunDueRules(std::vector<Ticket>* tickets = nullptr);
  void RunRulesOf(Call call, Lock& lock);
  void RunRulesAfter(Call call, const std::optional<Registration>& target = std::nullopt);
  Ticket RunAction(const Action& action);
  Ticket Enqueue(const Callback& callback, int64_t delay_ns,
                 const std::optional<Registration>& target = std::nullopt);
  void AwaitDelivery(Ticket ticket, Lock& lock);
  bool IsRegistered(const Registration& registration) const;
  void Deliver(const Callback& callback, const std::optional<Registration>& target, Lock& lock);
  int64_t NextDueNs() const;

  // The stream.
  void EndStream();
  void EndWait();
  uint32_t FrameBytes() const;
  int64_t DurationNs(size_t bytes) const;
  size_t BytesLeft() const;
  void Encode(const int16_t* stereo, uint8_t* out) const;
  void Fill(uint8_t* out, size_t bytes);
  void Count(uint64_t& counter);

  std::mutex mutex_;
  std::condition_variable changed_;

  Settings settings_;
  std::unique_ptr<SoundSource> source_;
  uint32_t source_rate_hz_ = 0;
  Behaviour first_behaviour_;  // before any script
  Behaviour behaviour_;
  Activity activity_;

  std::shared_ptr<Session> session_;
  // Those of the session that was replaced last stay, and are called: it never tells them otherwise.
  std::vector<Registration> registrations_;
  std::vector<ScheduledRule> rules_;
  std::multimap<int64_t, Queued> queue_;  // by the clock
  std::set<Ticket> open_tickets_;
  Ticket last_ticket_ = 0;
  std::vector<Delivery> deliveries_;  // callables that are running

  bool start_requested_ = false;
  uint64_t stream_number_ = 0;   // a read that waits gives up when this changes
  int64_t stepped_ns_ = 0;       // the clock of Pacing::kStepped
  int64_t first_start_ns_ = -1;  // by the clock; -1 before the first StartStream
  int64_t asked_ns_ = 0;         // length of all sound asked for
  int64_t waited_ns_ = 0;        // time spent on unanswered starts and in blocked reads
  int64_t waiting_since_ns_ = -1;
  int64_t captured_until_ns_ = 0;     // by the clock: all sound before this is delivered
  std::array<uint8_t, 8> partial_{};  // a frame of which only the first bytes are delivered
  size_t partial_left_ = 0;           // bytes of it yet to come, at its end
  size_t partial_size_ = 0;
  timespec position_time_{};
  bool position_fails_next_ = false;

  bool quit_ = false;
  std::thread thread_;  // last: it uses all of the above
};

}  // namespace virtual_headset

#endif  // PLATFORM_VIRTUAL_HEADSET_HEADSET_H_
