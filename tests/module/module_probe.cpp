// What the built module costs its host process: load time, heap while a stream is open, stack of a
// read. Loads the module file as the platform does, with the virtual headset behind it.
//
// usage: module_probe MODULE [STACK_LIMIT_BYTES]   prints "name value" lines; 1 when above the limit
#include <dlfcn.h>
#include <hardware/audio.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <android/log.h>

#include "platform/host/host_loader.h"
#include "platform/virtual_headset/virtual_headset.h"

namespace {

constexpr size_t kStackBytes = 512 * 1024;
constexpr unsigned char kPaint = 0xA5;
constexpr int kReads = 100;

struct ReadRun {
  audio_stream_in* stream;
  const unsigned char* entry;  // stack position below which only the reads can have written
  int good;
};

void* Read(void* argument) {
  auto* run = static_cast<ReadRun*>(argument);
  static unsigned char buffer[3840];
  run->entry = static_cast<const unsigned char*>(__builtin_frame_address(0));
  for (int i = 0; i < kReads; ++i) {
    run->good += run->stream->read(run->stream, buffer, sizeof buffer) == sizeof buffer;
  }
  return nullptr;
}

// Bytes of stack that reads take, on a thread whose stack was painted before; 0 when a read failed.
size_t StackOfReads(audio_stream_in* stream) {
  auto* stack = static_cast<unsigned char*>(mmap(nullptr, kStackBytes, PROT_READ | PROT_WRITE,
                                                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0));
  std::fill(stack, stack + kStackBytes, kPaint);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, stack, kStackBytes);
  ReadRun run{stream, nullptr, 0};
  pthread_t thread;
  if (pthread_create(&thread, &attributes, Read, &run) != 0) {
    return 0;
  }
  pthread_join(thread, nullptr);
  const unsigned char* lowest = std::find_if_not(stack, stack + kStackBytes,
                                                 [](unsigned char byte) { return byte == kPaint; });
  const size_t depth = static_cast<size_t>(run.entry - lowest);
  munmap(stack, kStackBytes);
  return run.good == kReads ? depth : 0;
}

}  // namespace

int main(int argc, char** argv) {
  __android_log_set_logger([](const __android_logger_data*, const char*) {});
  virtual_headset::Settings settings;
  settings.source = virtual_headset::Source::kTone;
  settings.pacing = virtual_headset::Pacing::kAsFastAsRead;
  std::string error;
  virtual_headset::Configure(settings, &error);  // a headset that does not play fails the reads

  const auto begin = std::chrono::steady_clock::now();
  const hw_module_t* module = nullptr;
  if (host_load_module(argv[1], AUDIO_HARDWARE_MODULE_ID, &module) != 0) {
    std::fprintf(stderr, "%s\n", host_loader_error());
    return 1;
  }
  const std::chrono::duration<double, std::micro> loaded = std::chrono::steady_clock::now() - begin;

  const size_t heap_before = mallinfo2().uordblks;
  hw_device_t* opened = nullptr;
  audio_stream_in* stream = nullptr;
  audio_config config{};
  if (module->methods->open(module, AUDIO_HARDWARE_INTERFACE, &opened) != 0) {
    return 1;
  }
  auto* device = reinterpret_cast<audio_hw_device*>(opened);
  if (device->open_input_stream(device, 0, AUDIO_DEVICE_IN_PROXY, &config, &stream,
                                AUDIO_INPUT_FLAG_NONE, "", AUDIO_SOURCE_CAMCORDER) != 0) {
    return 1;
  }
  const size_t heap_open = mallinfo2().uordblks;
  const size_t stack = StackOfReads(stream);
  device->close_input_stream(device, stream);
  opened->close(opened);

  std::printf("load_us %.0f\nheap_bytes %zu\nstack_bytes %zu\n", loaded.count(),
              heap_open - heap_before, stack);
  const size_t limit = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : kStackBytes;
  const bool unloads = dlclose(module->dso) == 0;
  return unloads && stack > 0 && stack <= limit ? 0 : 1;
}
