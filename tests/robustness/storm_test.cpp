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

#include <gtest/gtest.h>

#include "platform/host/binaural_host.h"
#include "tests/robustness/module_calls.h"
#include "tests/robustness/quiet_log.h"
#include "tests/support/headset_control.h"

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

class Storm : public testing::Test {
 public:
  Storm() {
    host_redirect("/odm/etc/binaural_record_algo_coeffs.xml", COEFFICIENT_FILE);
    Calm();
    device_ = OpenDevice();
    // The operations are the same for every stream: a stale pointer is handed to them, not followed.
    audio_stream_in* stream = nullptr;
    Expect("open", OpenStream(device_, &stream), {0});
    operations_ = *stream;
    Close(stream);
  }
  ~Storm() override { device_->common.close(&device_->common); }

  static void Calm() {
    virtual_headset::Settings settings;
    settings.source = virtual_headset::Source::kSilence;
    settings.pacing = virtual_headset::Pacing::kAsFastAsRead;
    ConfigureHeadset(settings);
  }

  void Close(audio_stream_in* stream) { device_->close_input_stream(device_, stream); }

  // What one thread does, at least once, with so many turns left to the others after each time.
  std::thread Repeat(void (Storm::*deed)(), int turns) {
    return std::thread([this, deed, turns] {
      do {
        (this->*deed)();
        Yield(turns);
      } while (!quit_);
    });
  }

  void CycleStream(std::mt19937& random) {
    audio_stream_in* stream = nullptr;
    const int result = OpenStream(device_, &stream);
    Expect("open_input_stream", result, {0, -1, -22});
    if (stream == nullptr) {
      return;
    }
    audio_stream_in* const before = current_.exchange(stream);
    Close(before);  // already closed, or still open beside the new one
    Yield(static_cast<int>(random() % 40));
    if (random() % 4 != 0) {
      Close(stream);
    }
  }

  void Read() {
    std::array<uint8_t, kPeriodBytes> pcm{};
    const ssize_t result = operations_.read(current_, pcm.data(), pcm.size());
    periods_read_ += result != 0;
    Yield(result == 0);
    Expect("read", result, {0, kPeriodBytes});
  }

  void SetParameters() {
    for (const char* parameters : kParameters) {
      Expect("set_parameters", device_->set_parameters(device_, parameters), {0});
    }
  }

  void ToggleLogging() {
    for (const int priority : {ANDROID_LOG_INFO, ANDROID_LOG_FATAL, ANDROID_LOG_VERBOSE}) {
      __android_log_set_minimum_priority(priority);
      std::this_thread::yield();
    }
  }

  void Control() {
    // The record begins with it; null is handed in too.
    const auto common = [this] { return reinterpret_cast<audio_stream*>(current_.load()); };
    Expect("standby", operations_.common.standby(common()), {0, -16});
    Expect("stop", operations_.stop(current_), {0});
    Expect("start", operations_.start(current_), {0, -5});
    Expect("set_parameters", operations_.common.set_parameters(common(), "sup_channels="), {0});
    free(operations_.common.get_parameters(common(), "sup_channels;sup_formats"));
    free(device_->get_parameters(device_, "sup_sampling_rates"));
    int64_t frames = 0, time = 0;
    Expect("position", operations_.get_capture_position(current_, &frames, &time), {0});
    operations_.common.get_sample_rate(common());
    operations_.common.get_channels(common());
    operations_.common.get_format(common());
    operations_.common.get_buffer_size(common());
    operations_.common.dump(common(), -1);
  }

  void CycleDevices() {
    audio_hw_device* device = OpenDevice();
    Expect("close", device->common.close(&device->common), {0});
    Expect("second close", device_->common.close(&device->common), {0});
  }

  void Misbehave() {
    std::istringstream faults(kFaults);
    for (std::string fault; std::getline(faults >> std::ws, fault, ';');) {
      Do(fault);
      Yield(2);
    }
  }

  static void Expect(const char* call, int64_t result, std::initializer_list<int64_t> documented) {
    if (std::find(documented.begin(), documented.end(), result) == documented.end()) {
      ADD_FAILURE() << call << " returned " << result;
    }
  }

  static void Yield(int turns) {
    for (; turns > 0; --turns) {
      std::this_thread::yield();
    }
  }

  const QuietLog log_{ANDROID_LOG_INFO};
  audio_hw_device* device_ = nullptr;
  audio_stream_in operations_{};
  std::atomic<audio_stream_in*> current_{nullptr};  // the stream opened last, whether or not closed
  std::atomic<bool> quit_{false};
  std::atomic<uint64_t> periods_read_{0};
};

TEST_F(Storm, LeavesTheModuleWorking) {
  const char* seconds = std::getenv("STORM_SECONDS");
  std::mt19937 random(seconds == nullptr ? 1 : std::random_device()());
  const auto end = std::chrono::steady_clock::now() +
                   std::chrono::seconds(seconds == nullptr ? 0 : std::atoi(seconds));
  std::thread threads[] = {Repeat(&Storm::Read, 0),
                           Repeat(&Storm::SetParameters, 10),
                           Repeat(&Storm::ToggleLogging, 0),
                           Repeat(&Storm::Control, 5),
                           Repeat(&Storm::CycleDevices, 20),
                           Repeat(&Storm::Misbehave, 60)};  // the last faults are cures
  int opens = 0;
  for (; !HasFailure() && (std::chrono::steady_clock::now() < end || opens < 150); ++opens) {
    CycleStream(random);
  }
  quit_ = true;
  // Two streams of the same session: the second close releases whoever waits in the first.
  virtual_headset::Reset();
  Close(current_);
  for (std::thread& thread : threads) {
    thread.join();
  }
  std::cout << opens << " streams, " << periods_read_ << " periods delivered\n";

  device_->set_parameters(device_, "binaural_recording_algorithmMode=0");
  Calm();
  audio_stream_in* stream = nullptr;
  Expect("open after the storm", OpenStream(device_, &stream), {0});
  std::array<uint8_t, kPeriodBytes> pcm{};
  Expect("read after the storm", stream->read(stream, pcm.data(), pcm.size()), {kPeriodBytes});
  Close(stream);
}

}  // namespace
