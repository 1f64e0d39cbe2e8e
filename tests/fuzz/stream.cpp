// Stream operations in any order, on open, closed and foreign streams, with reads of any size, while
// the session does anything: refuses, answers wrongly, changes under way, delivers too little or
// claims too much.
#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_runtime.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/surroundings.h"
#include "tests/robustness/scripted_session.h"

namespace {

using namespace scripted_session;

constexpr size_t kBufferBytes = 1 << 16;

// What the session does next, whatever it is called for. Only this thread is about.
void CallBack(uint8_t choice) {
  const auto registration = LastRegistration();
  if (registration == nullptr) {
    return;
  }
  const auto& callbacks = registration->callbacks;
  const auto cookie = static_cast<uint16_t>(registration->cookie + (choice & 128 ? 1 : 0));
  if (choice % 8 == 0) {
    callbacks.session_changed_cb(cookie);
  } else if (choice % 8 == 1) {
    callbacks.session_params_cb(cookie, SessionParams{});
  } else if (choice % 8 > 2) {
    callbacks.control_result_cb(cookie, true, static_cast<Status>(choice / 8 % 10));
  }
}

// A read fills no more than the buffers below have, whatever is asked for.
void Behave() {
  auto& session = Current();
  session = Behaviour();
  session.on_read = [](void* buffer, size_t bytes) {
    memset(buffer, 1, std::min(bytes, kBufferBytes));
    return bytes;
  };
}

void Misbehave(Input& input) {
  auto& session = Current();
  const size_t what = input.Below(9);
  if (what == 0) {
    session.present = input.Byte() & 1;
  } else if (what == 1) {
    session.ready = input.Byte() & 1;
  } else if (what == 2) {
    session.parameters = {static_cast<SampleRate>(input.Byte()),
                          static_cast<ChannelMode>(input.Byte() % 4),
                          static_cast<BitsPerSample>(input.Byte() % 6)};
  } else if (what == 3) {
    session.on_start = [first = input.Byte(), second = input.Byte()] {
      CallBack(first);
      CallBack(second);
      return (second & 1) == 0;
    };
  } else if (what == 4) {
    session.on_stop = [choice = input.Byte()] { CallBack(choice); };
  } else if (what == 5) {
    session.on_unregister = [choice = input.Byte()] { CallBack(choice); };
  } else if (what == 6) {
    session.on_read = [claim = input.Byte(), choice = input.Byte()](void* buffer, size_t bytes) {
      CallBack(choice);
      memset(buffer, claim, std::min(bytes, kBufferBytes));
      return claim < 8 ? claim : claim < 16 ? bytes + claim : bytes;
    };
  } else if (what == 7) {
    session.on_position = [choice = input.Byte()](uint64_t* delay, uint64_t* bytes, timespec* at) {
      *delay = choice * 0x0101010101010101u;
      *bytes = ~*delay;
      at->tv_sec = choice & 2 ? -1 : choice;
      return (choice & 1) == 0;
    };
  } else {
    Behave();
  }
}

size_t ReadSize(Input& input) {
  const uint8_t choice = input.Byte();
  if (choice % 8 == 2) {
    const size_t high = input.Byte();
    return high * 256 + input.Byte();
  }
  const size_t sizes[] = {choice / 8u, 3840u + choice / 8u, 0,
                          0x7FFFFFFFu + choice / 8u};  // the last: refused before a byte is copied
  return choice % 8 < 4 ? sizes[choice % 8] : 3840;
}

}  // namespace

void FuzzOne(Input& input) {
  const fuzz::Surroundings surroundings;
  Behave();
  gRuntimeParam.algMode = 1;  // the cheaper chain: what it computes is not the question here
  audio_hw_device* device = OpenDevice();
  static std::vector<uint8_t> buffer(kBufferBytes + 16);
  audio_stream_in* probe = nullptr;
  FUZZ_CHECK(OpenStream(device, &probe) == 0);
  const audio_stream_in operations = *probe;  // handed stale pointers below, never followed
  device->close_input_stream(device, probe);
  std::array<audio_stream_in*, 3> streams{};  // open, closed or null
  std::vector<audio_stream_in*> opened;
  while (!input.empty()) {
    const uint8_t operation = input.Byte();
    audio_stream_in*& stream = streams[operation / 16 % streams.size()];
    audio_stream* const common = stream == nullptr ? nullptr : &stream->common;
    const bool flag = operation & 16;
    const size_t what = operation % 16;
    if (what == 0) {
      const int result = OpenStream(device, &stream);
      FUZZ_CHECK(IsOneOf(result, {0, -1, -22}));
      FUZZ_CHECK((stream == nullptr) == (result == -22));
      opened.push_back(stream);
    } else if (what == 1) {
      device->close_input_stream(device, stream);
    } else if (what == 2) {
      Misbehave(input);
    } else if (what == 3) {
      CallBack(input.Byte());
    } else if (what == 4) {
      FUZZ_CHECK(IsOneOf(operations.start(stream), {0, -5}));
    } else if (what == 5) {
      FUZZ_CHECK(operations.stop(stream) == 0);
    } else if (what == 6) {
      FUZZ_CHECK(IsOneOf(operations.common.standby(common), {0, -16}));
    } else if (what == 7) {
      int64_t frames = 0, time = 0;
      FUZZ_CHECK(operations.get_capture_position(stream, &frames, flag ? nullptr : &time) == 0);
    } else if (what == 8) {
      operations.common.set_parameters(common, flag ? "RecordSuspended=true"
                                                    : "RecordSuspended=;sup_formats");
    } else if (what == 9) {
      const std::string mode = std::to_string(operation / 16 % 4);
      device->set_parameters(device, ("binaural_recording_algorithmMode=" + mode).c_str());
    } else if (what == 10) {
      operations.common.get_sample_rate(common);
      operations.common.get_format(common);
      operations.common.get_buffer_size(common);
      free(operations.common.get_parameters(common, "sup_channels;sup_formats"));
    } else if (what == 11) {
      audio_hw_device* other = OpenDevice();
      FUZZ_CHECK(other->common.close(&other->common) == 0);
    } else {
      const size_t bytes = ReadSize(input);
      const ssize_t result = operations.read(stream, buffer.data() + input.Below(16), bytes);
      FUZZ_CHECK(result == 0 || static_cast<size_t>(result) == bytes);
    }
  }
  Reset();
  for (audio_stream_in* stream : opened) {
    device->close_input_stream(device, stream);
  }
  device->common.close(&device->common);
}
