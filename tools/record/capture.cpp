// The capture thread; see the header.
#include "tools/record/capture.h"

#include <algorithm>
#include <cstdio>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace tools {
namespace {

// After a read that gave nothing the next one comes a period later, as for a client in real time.
constexpr auto kPause = std::chrono::milliseconds(20);

}  // namespace

Capture::Capture(CapturePlan plan, ModuleSession& session, PcmOutput& output, Meter& meter)
    : plan_(std::move(plan)), session_(session), output_(output), meter_(meter),
      ended_fd_(::eventfd(0, EFD_CLOEXEC)) {}

Capture::~Capture() {
  if (thread_.joinable()) {
    thread_.join();
  }
  ::close(ended_fd_);
}

void Capture::Start() {
  started_ = last_audio_ = Clock::now().time_since_epoch().count();
  thread_ = std::thread([this] { Run(); });
}

bool Capture::Stop() {
  std::unique_lock<std::mutex> lock(mutex_);
  stop_ = true;
  changed_.notify_all();
  return changed_.wait_for(lock, std::chrono::seconds(1), [this] { return !writing_; });
}

void Capture::Join() {
  thread_.join();
  if (failure_) {
    std::rethrow_exception(std::exchange(failure_, nullptr));
  }
}

std::vector<std::string> Capture::TakeNotices() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(notices_, {});
}

void Capture::Run() {
  try {
    std::vector<int16_t> buffer(plan_.request_bytes / sizeof(int16_t));
    while (!complete() && !StopAsked()) {
      SendDueParameters();
      ReadOnce(buffer);
    }
  } catch (...) {
    failure_ = std::current_exception();
    SetWriting(false);
  }
  ended_ = true;
  const uint64_t one = 1;
  if (::write(ended_fd_, &one, sizeof(one)) < 0) {
    // The descriptor is ours and holds far less than its limit: this cannot be.
  }
}

bool Capture::StopAsked() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return stop_;
}

// False when nothing may be written any more.
bool Capture::SetWriting(bool writing) {
  const std::lock_guard<std::mutex> lock(mutex_);
  writing_ = writing && !stop_;
  changed_.notify_all();
  return writing_;
}

// Due by the recording's own clock: what was recorded, and the time that went by without audio.
void Capture::SendDueParameters() {
  while (next_parameters_ < plan_.at.size()) {
    const TimedParameters& due = plan_.at[next_parameters_];
    const double now_s = static_cast<double>(frames_) / plan_.rate_hz +
                         std::chrono::duration<double>(without_audio_).count();
    if (now_s < due.time_s) {
      return;
    }
    const int result = session_.SetParameters(due.parameters);
    char text[64];
    std::snprintf(text, sizeof(text), "at %.2f s: set \"", now_s);
    const std::lock_guard<std::mutex> lock(mutex_);
    notices_.push_back(text + due.parameters + "\"" +
                       (result == 0 ? "" : ", refused with " + std::to_string(result)));
    ++next_parameters_;
  }
}

void Capture::ReadOnce(std::vector<int16_t>& buffer) {
  // The module may hand back a buffer it has only partly filled.
  std::fill(buffer.begin(), buffer.end(), int16_t{0});
  const Clock::time_point before = Clock::now();
  const ssize_t bytes = session_.Read(buffer.data(), plan_.request_bytes);
  ++reads_;
  if (bytes > 0) {
    Deliver(buffer.data(), static_cast<size_t>(bytes));
    return;
  }
  ++failed_reads_;
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait_for(lock, kPause, [this] { return stop_; });
  without_audio_ += Clock::now() - before;
}

void Capture::Deliver(const int16_t* samples, size_t bytes) {
  const size_t frame_bytes = static_cast<size_t>(plan_.channels) * sizeof(int16_t);
  const uint64_t got = std::min(bytes, plan_.request_bytes) / frame_bytes;
  const uint64_t frames = std::min(got, plan_.frames - frames_);
  if (!SetWriting(true)) {
    return;
  }
  last_audio_ = Clock::now().time_since_epoch().count();
  if (frames_ == 0) {
    first_audio_ = last_audio_.load();
  }
  output_.Write(samples, frames);
  meter_.Add(samples, frames);
  frames_ += frames;
  SetWriting(false);
}

}  // namespace tools
