// Where the log of the module under test goes: the platform logger hands every line to this sink,
// which shows those at or above a chosen severity on the console, by tag, from a thread of its own.
// The thread that logs (the capture thread among them) only copies the line into a fixed queue: it
// allocates nothing and never waits for a terminal or a pipe. A full queue drops lines and says how
// many.
//
// The module's own level is never lowered to make it quieter: it composes its INFO lines whatever is
// shown, because one of them re-creates the algorithm after a change of mode.
#ifndef TOOLS_COMMON_LOG_SINK_H
#define TOOLS_COMMON_LOG_SINK_H

#include <chrono>

namespace tools {

// Sees every line before it is filtered, on the thread that logged it, which may be the capture
// thread: bounded work only.
using LogObserver = void (*)(int priority, const char* tag, const char* text);

// Shown severities; more is shown from left to right. kEverything also makes the module compose its
// VERBOSE and DEBUG lines.
enum class LogShown { kNothing, kInfoAndAbove, kEverything };

// Takes the process's log. Call once, before the module is loaded and after signals are blocked (the
// sink's thread inherits the mask).
void InstallLogSink(LogShown shown, LogObserver observer);

// Waits until every queued line is written, at most as long as told; false when some are left.
bool FlushLogSink(std::chrono::milliseconds limit);

// Lines logged by this thread inside the scope are observed but shown only with kEverything: for a
// program's own polling, which would bury the rest.
class MuteLogScope {
 public:
  MuteLogScope();
  ~MuteLogScope();
  MuteLogScope(const MuteLogScope&) = delete;
  MuteLogScope& operator=(const MuteLogScope&) = delete;
};

}  // namespace tools

#endif
