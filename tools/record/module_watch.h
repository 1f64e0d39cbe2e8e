// What the recorder learns from the module's log without showing it: the last error, for its own
// failure message, where its tuning comes from, and the port's state; no operation reports these.
#ifndef TOOLS_RECORD_MODULE_WATCH_H
#define TOOLS_RECORD_MODULE_WATCH_H

#include <chrono>
#include <string>

namespace tools {

// An observer for the log sink: any thread, allocates nothing.
void WatchModuleLog(int priority, const char* tag, const char* text);

// "tag: text" of the last line at ERROR; empty when there was none.
std::string LastModuleError();
// The line by which the device, when it was opened, refused its coefficient file; empty when it took it.
std::string CoefficientRefusal();
// Whether the stream opened last, or the last change of its mode, took its tuning from the coefficient file.
bool TunedFromFile();
std::string LastPortState();
// When a read of a started session last got nothing; the clock's epoch when none did.
std::chrono::steady_clock::time_point LastEmptyRead();

}  // namespace tools

#endif
