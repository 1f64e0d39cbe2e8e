// What the recorder learns from the module's log without showing it: the last error, for its own
// failure message, and the port's state, which no operation reports.
#ifndef TOOLS_RECORD_MODULE_WATCH_H
#define TOOLS_RECORD_MODULE_WATCH_H

#include <chrono>
#include <string>

namespace tools {

// An observer for the log sink: any thread, allocates nothing.
void WatchModuleLog(int priority, const char* tag, const char* text);

// "tag: text" of the last line at ERROR; empty when there was none.
std::string LastModuleError();
std::string LastPortState();
// When a read of a started session last got nothing; the clock's epoch when none did.
std::chrono::steady_clock::time_point LastEmptyRead();

}  // namespace tools

#endif
