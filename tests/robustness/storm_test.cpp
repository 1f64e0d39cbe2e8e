// Every operation of the module against every other, from seven threads at once: a reader, modes and
// scenes and headset names, the log level, streams opened and closed, stream control, a second
// device, and a session that misbehaves. Streams are used after their close, closed twice and
// forgotten. A fixed piece of it, or as long as STORM_SECONDS says.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <initializer_list>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/host/binaural_host.h"
#include "platform/virtual_headset/virtual_headset.h"
#include "tests/robustness/module_calls.h"
#include "tests/robustness/quiet_log.h"

namespace {

constexpr size_t kPeriodBytes = 3840;

constexpr const char* kParameters[] = {
    "binaural_recording_algorithmMode=1",
    "binaural_recording_algorithmMode=0",
    "binaural_recording_orientation=front;binaural_recording_mirror=true",
    "binaural_recording_bt_name=Alder Buds;binaural_recording_algorithmMode=2",
    "binaural_recording_algorithmMode=3;RecordSuspended=true",
    "binaural_recording_algorithmMode=0;RecordSuspended=false;sup_formats=",
    "binaural_recording_orientation=back;binaural_recording_mirror=false",
    "binaural_recording_bt_name=;routing=-2147483584",
};

// Each fault, and sooner or later what undoes it.
constexpr char kFaults[] =
    "session-change; reads empty; answer FAILURE; reads full; answer SUCCESS early; "
    "instance replaced; parameters RATE_16000 MONO BITS_24; session-params; "
    "reads short 1000; result SUCCESS; parameters RATE_48000 STEREO BITS_16; ready no; "
    "answer SUCCESS twice; reads over 64; result SUCCESS cookie wrong; ready yes; "
    "start refused; position alternating; reads full; start ok; instance absent; "
    "parameters 0 0 0; session-change cookie wrong; instance present; register zero; "
    "parameters RATE_44100 STEREO BITS_16; reads blocking; register ok; reads full; "
    "answer never; parameters RATE_48000 STEREO BITS_16; answer SUCCESS; position ok";

class Storm {
 public:
  explicit Storm(uint32_t seed) : random_(seed) {
    ConfigureHeadset();
    device_ = OpenDevice();
    // The operations are the same for every stream: a stale pointer is handed to them, not followed.
    audio_stream_in* stream = nullptr;
    Expect("open", OpenStream(device_, &stream), {0});
    operations_ = *stream;
    Close(stream);
  }

  // For that long, or for 150 streams; the module works afterwards.
  void Run(std::chrono::seconds wanted) {
    const auto end = std::chrono::steady_clock::now() + wanted;
    std::array<std::thread, 6> threads{
        std::thread(&Storm::Read, this),          std::thread(&Storm::SetParameters, this),
        std::thread(&Storm::ToggleLogging, this), std::thread(&Storm::Control, this),
        std::thread(&Storm::CycleDevices, this),  std::thread(&Storm::Misbehave, this)};
    while (!failed_ && (std::chrono::steady_clock::now() < end || opens_ < 150)) {
      CycleStream();
    }
    quit_ = true;
    // Two streams of the same session: the second close releases whoever waits in the first.
    virtual_headset::Reset();
    Close(current_);
    for (std::thread& thread : threads) {
      thread.join();
    }
    CheckThatItWorks();
    device_->common.close(&device_->common);
    std::cout << opens_ << " streams, " << periods_read_ << " of " << reads_
              << " reads delivered\n";
    // Each thread had its part.
    for (const auto* count : {&reads_, &parameter_calls_, &control_calls_, &devices_, &faults_}) {
      EXPECT_GT(*count, 0u);
    }
  }

 private:
  void ConfigureHeadset() {
    virtual_headset::Settings settings;
    settings.source = virtual_headset::Source::kSilence;
    settings.pacing = virtual_headset::Pacing::kAsFastAsRead;
    std::string error;
    if (!virtual_headset::Configure(settings, &error)) {
      Complain(error);
    }
  }

  void Close(audio_stream_in* stream) { device_->close_input_stream(device_, stream); }

  void CycleStream() {
    audio_stream_in* stream = nullptr;
    const int result = OpenStream(device_, &stream);
    ++opens_;
    Expect("open_input_stream", result, {0, -1, -22});
    if (stream == nullptr) {
      return;
    }
    audio_stream_in* const before = current_.exchange(stream);
    Close(before);  // already closed, or still open beside the new one
    Yield(Below(40));
    if (Below(4) != 0) {
      Close(stream);
    }
  }

  void Read() {
    std::vector<uint8_t> pcm(kPeriodBytes);
    while (!quit_) {
      const ssize_t result = operations_.read(current_, pcm.data(), pcm.size());
      ++reads_;
      periods_read_ += result != 0;
      Yield(result == 0);
      Expect("read", result, {0, kPeriodBytes});
    }
  }

  void SetParameters() {
    while (!quit_) {
      for (const char* parameters : kParameters) {
        Expect("set_parameters", device_->set_parameters(device_, parameters), {0});
        ++parameter_calls_;
      }
      Yield(10);
    }
  }

  void ToggleLogging() {
    while (!quit_) {
      for (const int priority : {ANDROID_LOG_INFO, ANDROID_LOG_FATAL, ANDROID_LOG_VERBOSE}) {
        __android_log_set_minimum_priority(priority);
        std::this_thread::yield();
      }
    }
  }

  void Control() {
    // The record begins with it; null is handed in too.
    const auto common = [this] { return reinterpret_cast<audio_stream*>(current_.load()); };
    while (!quit_) {
      Expect("standby", operations_.common.standby(common()), {0, -16});
      Expect("stop", operations_.stop(current_), {0});
      Expect("start", operations_.start(current_), {0, -5});
      Expect("set_parameters", operations_.common.set_parameters(common(), "sup_channels="), {0});
      free(operations_.common.get_parameters(common(), "sup_channels;sup_formats"));
      free(device_->get_parameters(device_, "sup_sampling_rates"));
      int64_t frames = 0;
      int64_t time = 0;
      Expect("get_capture_position", operations_.get_capture_position(current_, &frames, &time),
             {0});
      operations_.common.get_sample_rate(common());
      operations_.common.get_channels(common());
      operations_.common.get_format(common());
      operations_.common.get_buffer_size(common());
      operations_.common.dump(common(), -1);
      control_calls_ += 12;
      Yield(5);
    }
  }

  void CycleDevices() {
    while (!quit_) {
      audio_hw_device* device = OpenDevice();
      Expect("close", device->common.close(&device->common), {0});
      Expect("second close", device_->common.close(&device->common), {0});
      ++devices_;
      Yield(20);
    }
  }

  void Misbehave() {
    while (!quit_) {
      std::istringstream faults(kFaults);
      for (std::string fault, error; std::getline(faults >> std::ws, fault, ';');) {
        if (!virtual_headset::Do(fault, &error)) {
          Complain(error);
        }
        ++faults_;
        Yield(2);
      }
      Yield(60);  // the last faults are the cures: let it work for a while
    }
  }

  void CheckThatItWorks() {
    device_->set_parameters(device_, "binaural_recording_algorithmMode=0");
    ConfigureHeadset();
    audio_stream_in* stream = nullptr;
    std::vector<uint8_t> pcm(kPeriodBytes);
    Expect("open after the storm", OpenStream(device_, &stream), {0});
    Expect("read after the storm", stream->read(stream, pcm.data(), pcm.size()), {kPeriodBytes});
    Close(stream);
  }

  void Expect(const char* call, int64_t result, std::initializer_list<int64_t> documented) {
    if (std::find(documented.begin(), documented.end(), result) == documented.end()) {
      Complain(std::string(call) + " returned " + std::to_string(result));
    }
  }

  // The first fault is enough.
  void Complain(const std::string& what) {
    if (!failed_.exchange(true)) {
      ADD_FAILURE() << what;
    }
  }

  static void Yield(int turns) {
    for (; turns > 0; --turns) {
      std::this_thread::yield();
    }
  }

  int Below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(random_); }

  const QuietLog log_{ANDROID_LOG_INFO};
  std::mt19937 random_;
  audio_hw_device* device_ = nullptr;
  audio_stream_in operations_{};
  std::atomic<audio_stream_in*> current_{nullptr};  // the stream opened last, whether or not closed
  std::atomic<bool> quit_{false}, failed_{false};
  std::atomic<uint64_t> opens_{0}, reads_{0}, periods_read_{0}, parameter_calls_{0};
  std::atomic<uint64_t> control_calls_{0}, devices_{0}, faults_{0};
};

TEST(Storm, LeavesTheModuleWorking) {
  host_redirect("/odm/etc/binaural_record_algo_coeffs.xml", COEFFICIENT_FILE);
  const char* seconds = std::getenv("STORM_SECONDS");
  Storm(seconds == nullptr ? 1 : std::random_device()())
      .Run(std::chrono::seconds(seconds == nullptr ? 0 : std::atoi(seconds)));
}

}  // namespace
