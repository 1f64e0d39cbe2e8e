// Every operation of the module against every other, from seven threads at once: a reader, modes and
// scenes and headset names, the log level, streams opened and closed, stream control, a second
// device, and a session that misbehaves. Streams are used after their close, closed twice and
// forgotten.
#ifndef TESTS_ROBUSTNESS_STORM_H_
#define TESTS_ROBUSTNESS_STORM_H_

#include <cstdint>
#include <functional>
#include <string>

struct StormCounts {
  uint64_t opens = 0;  // of streams; failed ones too
  uint64_t reads = 0;
  uint64_t periods_read = 0;  // reads that delivered
  uint64_t parameter_calls = 0;
  uint64_t control_calls = 0;
  uint64_t devices = 0;
  uint64_t faults = 0;  // of the session

  std::string undocumented;  // the first result that no document knows, in words; empty: none
};

// Runs until `goes_on` says no; it is asked after every stream. The module works afterwards, or
// `undocumented` says that it does not.
StormCounts RunStorm(uint32_t seed, const std::function<bool(const StormCounts&)>& goes_on);

#endif  // TESTS_ROBUSTNESS_STORM_H_
