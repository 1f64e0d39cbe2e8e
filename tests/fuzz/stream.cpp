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
  switch (input.Below(9)) {
    case 0:
      session.present = input.Byte() & 1;
      break;
    case 1:
      session.ready = input.Byte() & 1;
      break;
    case 2:
      session.parameters = {static_cast<SampleRate>(input.Byte()),
                            static_cast<ChannelMode>(input.Byte() % 4),
                            static_cast<BitsPerSample>(input.Byte() % 6)};
      break;
    case 3:
      session.on_start = [first = input.Byte(), second = input.Byte()] {
        CallBack(first);
        CallBack(second);
        return (second & 1) == 0;
      };
      break;
    case 4:
      session.on_stop = [choice = input.Byte()] { CallBack(choice); };
      break;
    case 5:
      session.on_unregister = [choice = input.Byte()] { CallBack(choice); };
      break;
    case 6:
      session.on_read = [claim = input.Byte(), choice = input.Byte()](void* buffer, size_t bytes) {
        CallBack(choice);
        memset(buffer, claim, std::min(bytes, kBufferBytes));
        return claim < 8 ? claim : claim < 16 ? bytes + claim : bytes;
      };
      break;
    case 7:
      session.on_position = [choice = input.Byte()](uint64_t* delay, uint64_t* bytes,
                                                    timespec* at) {
        *delay = choice * 0x0101010101010101u;
        *bytes = ~*delay;
        at->tv_sec = choice & 2 ? -1 : choice;
        return (choice & 1) == 0;
      };
      break;
    default:
      Behave();
      break;
  }
}

size_t ReadSize(Input& input) {
  const uint8_t choice = input.Byte();
  switch (choice % 8) {
    case 0:
      return choice / 8;
    case 1:
      return 3840u + choice / 8;
    case 2:
      return size_t{input.Byte()} * 256 + input.Byte();
    case 3:
      return size_t{0x7FFFFFFF} + choice / 8;  // refused before a byte is copied
    default:
      return 3840;
  }
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
    switch (operation % 16) {
      case 0: {
        const int result = OpenStream(device, &stream);
        FUZZ_CHECK(IsOneOf(result, {0, -1, -22}));
        FUZZ_CHECK((stream == nullptr) == (result == -22));
        opened.push_back(stream);
        break;
      }
      case 1:
        device->close_input_stream(device, stream);
        break;
      case 2:
        Misbehave(input);
        break;
      case 3:
        CallBack(input.Byte());
        break;
      case 4:
        FUZZ_CHECK(IsOneOf(operations.start(stream), {0, -5}));
        break;
      case 5:
        FUZZ_CHECK(operations.stop(stream) == 0);
        break;
      case 6:
        FUZZ_CHECK(IsOneOf(operations.common.standby(common), {0, -16}));
        break;
      case 7: {
        int64_t frames = 0, time = 0;
        FUZZ_CHECK(operations.get_capture_position(stream, &frames,
                                                   operation & 16 ? nullptr : &time) == 0);
        break;
      }
      case 8:
        operations.common.set_parameters(common, operation & 16 ? "RecordSuspended=true"
                                                                : "RecordSuspended=;sup_formats");
        break;
      case 9:
        device->set_parameters(
            device,
            ("binaural_recording_algorithmMode=" + std::to_string(operation / 16 % 4)).c_str());
        break;
      case 10:
        operations.common.get_sample_rate(common);
        operations.common.get_format(common);
        operations.common.get_buffer_size(common);
        free(operations.common.get_parameters(common, "sup_channels;sup_formats"));
        break;
      case 11: {
        audio_hw_device* other = OpenDevice();
        FUZZ_CHECK(other->common.close(&other->common) == 0);
        break;
      }
      default: {
        const size_t bytes = ReadSize(input);
        uint8_t* const at = buffer.data() + input.Below(16);
        const ssize_t result = operations.read(stream, at, bytes);
        FUZZ_CHECK(result == 0 || static_cast<size_t>(result) == bytes);
        break;
      }
    }
  }
  Reset();
  for (audio_stream_in* stream : opened) {
    device->close_input_stream(device, stream);
  }
  device->common.close(&device->common);
}
