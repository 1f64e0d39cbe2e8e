// The log sink of the host programs; see the header. The queue and its thread live as long as the
// process: the module's threads may log until the very end.
#include "tools/common/log_sink.h"

#include <algorithm>
#include <android/log.h>
#include <array>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "tools/common/console.h"

namespace tools {
namespace {

constexpr size_t kSlots = 1024;  // one second of everything that one read per 20 ms logs
constexpr size_t kTagBytes = 48;
constexpr size_t kTextBytes = 968;

struct Line {
  int priority;
  std::array<char, kTagBytes> tag;
  std::array<char, kTextBytes> text;
};

template <size_t N>
void CopyCut(std::array<char, N>& to, const char* from) {
  const size_t length = std::strlen(from);
  std::memcpy(to.data(), from, std::min(length + 1, N));
  if (length >= N) {
    std::memcpy(to.data() + N - 4, "...", 4);
  }
}

struct Sink {
  LogShown shown = LogShown::kNothing;
  LogObserver observer = nullptr;
  std::mutex mutex;
  std::condition_variable changed;
  std::array<Line, kSlots> slots{};
  size_t first = 0;
  size_t count = 0;
  size_t dropped = 0;
  bool writing = false;
};

Sink* gSink = nullptr;
thread_local int tMuted = 0;

char Letter(int priority) {
  constexpr char kLetters[] = "??VDIWEF";
  return priority >= 0 && priority < 8 ? kLetters[priority] : '?';
}

// The platform logger's callback; any thread.
void TakeLine(const __android_logger_data* data, const char* message) {
  const char* tag = data->tag != nullptr ? data->tag : "";
  const char* text = message != nullptr ? message : "";
  if (gSink->observer != nullptr) {
    gSink->observer(data->priority, tag, text);
  }
  const bool shown =
      gSink->shown == LogShown::kEverything || (gSink->shown == LogShown::kInfoAndAbove &&
                                                data->priority >= ANDROID_LOG_INFO && tMuted == 0);
  if (!shown) {
    return;
  }
  const std::lock_guard<std::mutex> lock(gSink->mutex);
  if (gSink->count == kSlots) {
    ++gSink->dropped;
    return;
  }
  Line& line = gSink->slots[(gSink->first + gSink->count) % kSlots];
  line.priority = data->priority;
  CopyCut(line.tag, tag);
  CopyCut(line.text, text);
  ++gSink->count;
  gSink->changed.notify_all();
}

// The sink's own thread: takes a line out under the lock, writes it outside.
[[noreturn]] void WriteLines() {
  std::unique_lock<std::mutex> lock(gSink->mutex);
  while (true) {
    gSink->changed.wait(lock, [] { return gSink->count > 0; });
    const Line line = gSink->slots[gSink->first];
    gSink->first = (gSink->first + 1) % kSlots;
    --gSink->count;
    const size_t dropped = std::exchange(gSink->dropped, 0);
    gSink->writing = true;
    lock.unlock();
    TheConsole().Line(std::string(1, Letter(line.priority)) + "/" + line.tag.data() + ": " +
                      line.text.data());
    if (dropped > 0) {
      TheConsole().Line("(" + std::to_string(dropped) + " log lines dropped: output too slow)");
    }
    lock.lock();
    gSink->writing = false;
    gSink->changed.notify_all();
  }
}

}  // namespace

void InstallLogSink(LogShown shown, LogObserver observer) {
  gSink = new Sink;  // never freed: see the top of the file
  gSink->shown = shown;
  gSink->observer = observer;
  __android_log_set_minimum_priority(shown == LogShown::kEverything ? ANDROID_LOG_VERBOSE
                                                                    : ANDROID_LOG_INFO);
  __android_log_set_logger(TakeLine);
  std::thread(WriteLines).detach();
}

bool FlushLogSink(std::chrono::milliseconds limit) {
  if (gSink == nullptr) {
    return true;
  }
  std::unique_lock<std::mutex> lock(gSink->mutex);
  return gSink->changed.wait_for(lock, limit, [] { return gSink->count == 0 && !gSink->writing; });
}

MuteLogScope::MuteLogScope() {
  ++tMuted;
}
MuteLogScope::~MuteLogScope() {
  --tMuted;
}

}  // namespace tools
