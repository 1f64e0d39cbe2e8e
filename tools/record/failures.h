// What to tell a person when the module gives no stream or no audio: the likely cause, and what to
// try next.
#ifndef TOOLS_RECORD_FAILURES_H
#define TOOLS_RECORD_FAILURES_H

#include <cstdint>
#include <string>

#include "tools/common/failure.h"
#include "tools/record/module_session.h"

namespace tools {

// `result` is that of open_input_stream, `format` what it left in the configuration.
Failure StreamRefused(int result, const StreamFormat& format);

// No read has delivered for longer than the recorder waits. `started`: the headset answered since,
// for the module starts a session anew after each read that got nothing.
Failure NoAudio(const StreamFormat& format, int mode, const std::string& port_state, bool started,
                double recorded_s);

}  // namespace tools

#endif
