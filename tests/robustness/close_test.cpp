// Closing a stream while something is under way in it: a read in the start wait, in the port or in
// processing, callbacks before, during and after, another open. Reader and closer meet at random
// offsets; the sanitizers watch.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <random>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/robustness/module_calls.h"
#include "tests/robustness/scripted_session.h"
#include "tests/support/log_capture.h"

namespace {

using namespace std::chrono_literals;
using namespace scripted_session;
using Clock = std::chrono::steady_clock;

constexpr int kIterations = 2500;  // of each race

// Something that has happened or not; waiting for it has an end.
class Event {
 public:
  void Set(bool set = true) {
    std::lock_guard<std::mutex> lock(mutex_);
    set_ = set;
    changed_.notify_all();
  }
  bool Wait(std::chrono::seconds limit = 60s) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, limit, [this] { return set_; });
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
    Reset();
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

  LogCapture log_{ANDROID_LOG_FATAL};
  audio_hw_device* const device_ = OpenDevice();
  Clock::duration longest_close_{};
};

// On a second thread a read waits for the start, waits in the port or processes; the close comes at a random
// moment after it got there.
TEST_F(Closing, EndsAReadWhereverItIs) {
  const struct {
    const char* where;
    bool starts, waits_in_port;
  } kPositions[] = {{"start", false, false}, {"port", true, true}, {"processing", true, false}};
  for (const auto& position : kPositions) {
    SCOPED_TRACE(position.where);
    Event reached, stopped;
    Current().on_start = [&] {
      stopped.Set(false);
      if (position.starts) {
        return StartAtOnce();
      }
      reached.Set();
      return true;  // and no answer
    };
    Current().on_stop = [&] { stopped.Set(); };
    Current().on_read = [&](void*, size_t bytes) {
      reached.Set();
      return stopped.Wait(position.waits_in_port ? 60s : 0s) ? 0 : bytes;
    };
    std::mt19937 random(1);
    for (int n = 0; n < kIterations; ++n) {
      reached.Set(false);
      audio_stream_in* stream = Open();
      std::thread reader([stream] {
        while (Read(stream) > 0) {
        }
      });
      ASSERT_TRUE(reached.Wait());
      for (volatile uint32_t spin = random() % 2000; spin > 0; spin = spin - 1) {
      }
      Close(stream);
      reader.join();
      // The framework may still load an operation from the closed stream's memory.
      ASSERT_EQ(Read(stream), 0);
    }
    EXPECT_LT(longest_close_, 4s) << "the close did not wake what it waited for";
  }
}

TEST_F(Closing, KeepsTheMemoryOfAReadThatNeverComesBack) {
  log_.SetMinimumPriority(ANDROID_LOG_ERROR);
  Event reached, released;
  Current().on_read = [&](void*, size_t bytes) {
    reached.Set();
    released.Wait();
    return bytes;
  };
  audio_stream_in* stream = Open();
  ssize_t read_result = -1;
  std::thread reader([&] { read_result = Read(stream); });
  ASSERT_TRUE(reached.Wait());
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

void CallEverything(const std::shared_ptr<const Registration>& registration) {
  if (registration != nullptr) {
    const auto& [callbacks, cookie] = *registration;
    callbacks.session_params_cb(cookie, SessionParams{});
    callbacks.control_result_cb(cookie, true, Status::SINK_NOT_READY);
    callbacks.control_result_cb(static_cast<uint16_t>(cookie + 1), true, Status::SUCCESS);
    callbacks.session_changed_cb(cookie);
  }
}

// A session may call back inside a call, also from its own thread and not returning before that.
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
  const auto from_another_thread = [] { std::thread(CallEverything, LastRegistration()).join(); };
  Current().on_start = [] {
    CallEverything(LastRegistration());
    return !StartAtOnce();  // no waiting for an answer that a session change may have undone
  };
  Current().on_stop = from_another_thread;
  Current().on_unregister = from_another_thread;
  for (int n = 0; n < kIterations; ++n) {
    audio_stream_in* stream = Open();
    stream->start(stream);
    stream->common.set_parameters(&stream->common, "RecordSuspended=true");
    Close(stream);
  }
  quit = true;
  first_session.join();
  second_session.join();
  EXPECT_LT(longest_close_, 4s);
}

}  // namespace
