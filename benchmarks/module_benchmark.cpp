// Time of what the module does for the framework, each beside its floor: a read beside the copy of the
// same bytes, the ring buffer beside memcpy, the coefficient file beside the bare loading of its XML.
#include <cstring>
#include <string>
#include <vector>

#include <android/log.h>
#include <benchmark/benchmark.h>
#include <tinyxml2.h>

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_config.h"
#include "binaural_record/binaural_record_if.h"
#include "binaural_record/utils/ring_buffer.h"
#include "binaural_record/utils/utils.h"
#include "platform/virtual_headset/virtual_headset.h"

namespace {

constexpr size_t kPeriod = 3840;  // 20 ms of 48 kHz stereo

// Argument: algorithm mode, or -1 for the floor.
void ReadOnePeriod(benchmark::State& state) {
  std::vector<char> pcm(kPeriod);
  std::vector<char> source(kPeriod);
  if (state.range(0) < 0) {
    for (auto _ : state) {
      memcpy(pcm.data(), source.data(), kPeriod);
      benchmark::ClobberMemory();
    }
    return;
  }
  virtual_headset::Settings settings;
  settings.source = virtual_headset::Source::kSilence;
  settings.pacing = virtual_headset::Pacing::kAsFastAsRead;
  std::string error;
  virtual_headset::Configure(settings, &error);
  hw_device_t* opened = nullptr;
  HMI.methods->open(&HMI, AUDIO_HARDWARE_INTERFACE, &opened);
  auto* device = reinterpret_cast<audio_hw_device*>(opened);
  const std::string mode = "binaural_recording_algorithmMode=" + std::to_string(state.range(0));
  device->set_parameters(device, mode.c_str());
  audio_config config{};
  audio_stream_in* stream = nullptr;
  device->open_input_stream(device, 0, AUDIO_DEVICE_IN_PROXY, &config, &stream,
                            AUDIO_INPUT_FLAG_NONE, "", AUDIO_SOURCE_MIC);
  for (auto _ : state) {
    if (stream->read(stream, pcm.data(), kPeriod) == 0) {
      state.SkipWithError("read failed");
      break;
    }
  }
  device->close_input_stream(device, stream);
  device->common.close(opened);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kPeriod);
}
BENCHMARK(ReadOnePeriod)->ArgName("mode")->Arg(-1)->Arg(0)->Arg(1);

void CopyTwice(benchmark::State& state) {
  std::vector<char> pcm(kPeriod);
  std::vector<char> storage(kPeriod);
  for (auto _ : state) {
    memcpy(storage.data(), pcm.data(), kPeriod);
    benchmark::ClobberMemory();
    memcpy(pcm.data(), storage.data(), kPeriod);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(CopyTwice);

void RingBufferWriteAndRead(benchmark::State& state) {
  std::vector<char> pcm(kPeriod);
  RingBuffer* ring = RingBuffer_create(15360);
  RingBuffer_write(ring, pcm.data(), 1000, 0);  // so that the positions wander and wrap
  for (auto _ : state) {
    RingBuffer_write(ring, pcm.data(), kPeriod, 0);
    RingBuffer_read(ring, pcm.data(), kPeriod, 0);
    benchmark::ClobberMemory();
  }
  RingBuffer_destroy(ring);
}
BENCHMARK(RingBufferWriteAndRead);

const char kParameters[] =
    "binaural_recording_orientation=front;binaural_recording_mirror=true;"
    "binaural_recording_algorithmMode=0;binaural_recording_bt_name=Some Headset;routing=16";

void CopyParameterString(benchmark::State& state) {
  for (auto _ : state) {
    std::string copy(kParameters);
    benchmark::DoNotOptimize(copy.data());
  }
}
BENCHMARK(CopyParameterString);

void ParseParameterString(benchmark::State& state) {
  for (auto _ : state) {
    auto map = vendor::corva::binaural_record::utils::ParseAudioParams(kParameters);
    benchmark::DoNotOptimize(map);
  }
}
BENCHMARK(ParseParameterString);

void LoadXmlOnly(benchmark::State& state) {
  for (auto _ : state) {
    tinyxml2::XMLDocument document;
    document.LoadFile(SAMPLE_COEFFICIENTS);
    benchmark::DoNotOptimize(document.FirstChild());
  }
}
BENCHMARK(LoadXmlOnly);

void ParseCoefficientFile(benchmark::State& state) {
  for (auto _ : state) {
    tinyxml2::XMLDocument document;
    AlgoConfigCoeff store{};
    if (ParseCoefficients(SAMPLE_COEFFICIENTS, &document, &store) != 0) {
      state.SkipWithError("the sample file does not parse");
      break;
    }
    ReleaseCoefficients(&store);
  }
}
BENCHMARK(ParseCoefficientFile);

}  // namespace

int main(int argc, char** argv) {
  // As on a device, where only INFO and above is formatted; the sink costs nothing.
  __android_log_set_logger([](const __android_logger_data*, const char*) {});
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
