// The capture thread: reads period by period from the module's stream, measures, writes, and sends
// the timed parameters between two reads, so that the same command gives the same recording in real
// time and as fast as possible.
#ifndef TOOLS_RECORD_CAPTURE_H
#define TOOLS_RECORD_CAPTURE_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tools/record/meter.h"
#include "tools/record/module_session.h"
#include "tools/record/options.h"
#include "tools/record/pcm_output.h"

namespace tools {

struct CapturePlan {
  uint64_t frames = 0;       // to record
  size_t request_bytes = 0;  // per read; whole frames, never 0
  int rate_hz = 0;
  int channels = 0;
  std::vector<TimedParameters> at;  // in order of time
};

class Capture {
 public:
  using Clock = std::chrono::steady_clock;

  // All three must outlive the object.
  Capture(CapturePlan plan, ModuleSession& session, PcmOutput& output, Meter& meter);
  ~Capture();  // only before Start() or after ended()
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  void Start();
  // Readable once the thread has ended; for poll().
  int ended_fd() const { return ended_fd_; }
  bool ended() const { return ended_; }
  // The thread writes nothing more once this has returned true, and ends after the read it is in.
  // False when a write takes longer than a second.
  bool Stop();
  // After ended(); throws what ended the thread, if anything did.
  void Join();

  uint64_t frames() const { return frames_; }
  uint64_t reads() const { return reads_; }
  uint64_t failed_reads() const { return failed_reads_; }
  bool complete() const { return frames_ == plan_.frames; }
  // When audio came last; the start before the first.
  Clock::time_point last_audio() const { return Clock::time_point(Clock::duration(last_audio_)); }
  // From Start() to the first audio.
  Clock::duration time_to_first_sample() const { return Clock::duration(first_audio_ - started_); }
  // Timed parameters sent so far.
  size_t parameters_sent() const { return next_parameters_; }
  // What the thread has to say; for the thread that owns the console.
  std::vector<std::string> TakeNotices();

 private:
  void Run();
  void ReadOnce(std::vector<int16_t>& buffer);
  void SendDueParameters();
  bool StopAsked();
  bool SetWriting(bool writing);
  void Deliver(const int16_t* samples, size_t bytes);

  const CapturePlan plan_;
  ModuleSession& session_;
  PcmOutput& output_;
  Meter& meter_;
  const int ended_fd_;
  std::thread thread_;
  std::exception_ptr failure_;

  std::atomic<uint64_t> frames_{0};
  std::atomic<uint64_t> reads_{0};
  std::atomic<uint64_t> failed_reads_{0};
  std::atomic<size_t> next_parameters_{0};
  std::atomic<bool> ended_{false};
  std::atomic<Clock::rep> started_{0};
  std::atomic<Clock::rep> first_audio_{0};
  std::atomic<Clock::rep> last_audio_{0};
  Clock::duration without_audio_{0};  // spent in reads that failed; capture thread only

  std::mutex mutex_;
  std::condition_variable changed_;
  bool stop_ = false;
  bool writing_ = false;
  std::vector<std::string> notices_;
};

}  // namespace tools

#endif
