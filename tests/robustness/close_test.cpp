// Closing a stream while something is under way in it: a read in the start wait, in the port or in
// processing, callbacks before, during and after, another open. Reader and closer meet at random
// offsets; the sanitizers watch.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/robustness/module_calls.h"
#include "tests/robustness/scripted_session.h"
#include "tests/support/log_capture.h"

namespace {

using namespace std::chrono_literals;
using scripted_session::Answer;
using scripted_session::Current;
using scripted_session::LastRegistration;
using scripted_session::SessionParams;
using scripted_session::Status;
using Clock = std::chrono::steady_clock;

constexpr int kIterations = 2500;  // of each of the three positions

// Something that has happened or not; waiting for it has an end.
class Event {
 public:
  void Set(bool set = true) {
    std::lock_guard<std::mutex> lock(mutex_);
    set_ = set;
    changed_.notify_all();
  }
  bool Wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, 60s, [this] { return set_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool set_ = false;
};

bool StartAtOnce() {
  Answer(LastRegistration(), Status::SUCCESS);
  return true;
}

class Closing : public testing::Test {
 protected:
  Closing() {
    device_->set_parameters(device_, "binaural_recording_algorithmMode=1");  // the cheaper chain
  }
  ~Closing() override {
    device_->common.close(&device_->common);
    scripted_session::Reset();
  }

  audio_stream_in* Open() {
    audio_stream_in* stream = nullptr;
    EXPECT_EQ(OpenStream(device_, &stream), 0);
    return stream;
  }
  void Close(audio_stream_in* stream) {
    const auto begin = Clock::now();
    device_->close_input_stream(device_, stream);
    longest_close_ = std::max(longest_close_, Clock::now() - begin);
  }
  static ssize_t Read(audio_stream_in* stream) {
    uint8_t pcm[2048];  // one block
    return stream->read(stream, pcm, sizeof(pcm));
  }

  // Opens, reads on a second thread until a read fails, closes at a random moment after `reached_`.
  void RaceReaderAgainstClose() {
    std::mt19937 random(1);
    for (int n = 0; n < kIterations; ++n) {
      reached_.Set(false);
      audio_stream_in* stream = Open();
      std::thread reader([stream] {
        while (Read(stream) > 0) {
        }
      });
      ASSERT_TRUE(reached_.Wait());
      for (volatile uint32_t spin = random() % 2000; spin > 0; spin = spin - 1) {
      }
      Close(stream);
      reader.join();
      // The framework may still load an operation from the closed stream's memory.
      ASSERT_EQ(Read(stream), 0);
    }
    EXPECT_LT(longest_close_, 4s) << "the close did not wake what it waited for";
  }

  LogCapture log_{ANDROID_LOG_FATAL};
  Event reached_;
  audio_hw_device* const device_ = OpenDevice();
  Clock::duration longest_close_{};
};

TEST_F(Closing, WakesAReadThatWaitsForTheStart) {
  Current().on_start = [&] {
    reached_.Set();
    return true;  // and no answer
  };
  RaceReaderAgainstClose();
}

TEST_F(Closing, WakesAReadThatWaitsInThePort) {
  Event stopped;
  Current().on_start = [&] {
    stopped.Set(false);
    return StartAtOnce();
  };
  Current().on_stop = [&] { stopped.Set(); };
  Current().on_read = [&](void*, size_t) -> size_t {
    reached_.Set();
    stopped.Wait();
    return 0;
  };
  RaceReaderAgainstClose();
}

TEST_F(Closing, WaitsForAReadThatProcesses) {
  std::atomic<bool> stopped{false};
  Current().on_start = [&] {
    stopped = false;
    return StartAtOnce();
  };
  Current().on_stop = [&] { stopped = true; };
  Current().on_read = [&](void*, size_t bytes) {
    reached_.Set();
    return stopped ? 0 : bytes;
  };
  RaceReaderAgainstClose();
}

TEST_F(Closing, KeepsTheMemoryOfAReadThatNeverComesBack) {
  log_.SetMinimumPriority(ANDROID_LOG_ERROR);
  Event released;
  Current().on_read = [&](void*, size_t bytes) {
    reached_.Set();
    released.Wait();
    return bytes;
  };
  audio_stream_in* stream = Open();
  ssize_t read_result = -1;
  std::thread reader([&] { read_result = Read(stream); });
  ASSERT_TRUE(reached_.Wait());
  Close(stream);
  EXPECT_GE(longest_close_, 5s);
  EXPECT_LT(longest_close_, 10s);
  EXPECT_THAT(log_.TakeErrors("BinauralRecordHalStream"),
              testing::ElementsAre(testing::EndsWith("its memory is quarantined")));

  // Another stream lives meanwhile; the late read finds its own stream gone and nothing else.
  audio_stream_in* next = Open();
  released.Set();
  reader.join();
  EXPECT_EQ(read_result, 0);
  EXPECT_EQ(Read(stream), 0);
  Close(next);
}

TEST_F(Closing, LeavesAStreamThatIsOpenedMeanwhileItsAlgorithm) {
  Event stopping, opened;
  Current().on_stop = [&] {
    stopping.Set();
    opened.Wait();
  };
  audio_stream_in* first = Open();
  ASSERT_EQ(Read(first), 2048);
  std::thread closer([&] { Close(first); });
  ASSERT_TRUE(stopping.Wait());
  audio_stream_in* second = Open();
  opened.Set();
  closer.join();
  EXPECT_EQ(Read(second), 2048);
  EXPECT_EQ(device_->set_parameters(device_, "binaural_recording_mirror=false"), 0);
  Close(second);
}

void CallEverything(const std::shared_ptr<const scripted_session::Registration>& registration) {
  if (registration != nullptr) {
    const auto& [callbacks, cookie] = *registration;
    callbacks.session_params_cb(cookie, SessionParams{});
    callbacks.control_result_cb(cookie, true, Status::SINK_NOT_READY);
    callbacks.control_result_cb(static_cast<uint16_t>(cookie + 1), true, Status::SUCCESS);
    callbacks.session_changed_cb(cookie);
  }
}

TEST_F(Closing, OutlivesCallbacksFromTwoThreadsAndFromInsideEveryCall) {
  std::atomic<bool> quit{false};
  // Each keeps calling the last registration it saw, also when its port has gone.
  const auto hammer = [&quit] {
    while (!quit) {
      const auto registration = LastRegistration();
      for (int n = 0; n < 20 && !quit; ++n) {
        CallEverything(registration);
      }
    }
  };
  std::thread first_session(hammer), second_session(hammer);
  const auto from_inside = [] { CallEverything(LastRegistration()); };
  Current().on_register = [&]() -> uint16_t {
    from_inside();
    return LastRegistration()->cookie;
  };
  Current().on_start = [&] {
    from_inside();
    return !StartAtOnce();  // no waiting for an answer that a session change may have undone
  };
  Current().on_stop = from_inside;
  Current().on_unregister = from_inside;
  for (int n = 0; n < kIterations; ++n) {
    audio_stream_in* stream = Open();
    stream->start(stream);
    stream->common.set_parameters(&stream->common, "RecordSuspended=true");
    Close(stream);
  }
  quit = true;
  first_session.join();
  second_session.join();
}

TEST_F(Closing, LetsTheSessionWaitForItsCallbacks) {
  // A session that calls back from its own thread and does not return from the call before that.
  const auto from_another_thread = [] { std::thread(CallEverything, LastRegistration()).join(); };
  Current().on_stop = from_another_thread;
  Current().on_unregister = from_another_thread;
  audio_stream_in* stream = Open();
  ASSERT_EQ(Read(stream), 2048);
  Close(stream);
  EXPECT_LT(longest_close_, 4s);
}

}  // namespace
