// Block by block, with the time it takes; see the header.
#include "tools/tune/processing.h"

#include <algorithm>
#include <ctime>

namespace tune {

namespace {

// Of this thread: what other programs do meanwhile does not count.
double ComputeSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

}  // namespace

Processed Process(TunedRuntime* runtime, const Recording& input,
                  const std::function<void(double)>& progress) {
  constexpr size_t kBlocksPerReport = 500;
  const size_t latency = runtime->latency_frames();
  const size_t all = input.frames() + latency;  // silence pushes the last frames out
  std::vector<int16_t> block(2 * kBcapBlockFrames);
  std::vector<int16_t> raw;
  raw.reserve(2 * (all + kBcapBlockFrames));
  Processed processed;
  for (size_t begin = 0; begin < all; begin += kBcapBlockFrames) {
    std::fill(block.begin(), block.end(), int16_t{0});
    const size_t there =
        begin < input.frames() ? std::min(input.frames() - begin, kBcapBlockFrames) : 0;
    const auto* from = input.samples.data() + 2 * std::min(begin, input.frames());
    std::copy(from, from + 2 * there, block.begin());
    const double start = ComputeSeconds();
    runtime->Process(block.data());
    processed.compute_seconds += ComputeSeconds() - start;
    processed.blocks.push_back(runtime->LastBlock());
    raw.insert(raw.end(), block.begin(), block.end());
    if (progress && begin / kBcapBlockFrames % kBlocksPerReport == 0) {
      progress(static_cast<double>(begin) / static_cast<double>(all));
    }
  }
  const auto first = raw.begin() + static_cast<std::ptrdiff_t>(2 * latency);
  processed.recording.sample_rate_hz = input.sample_rate_hz;
  processed.recording.samples.assign(first,
                                     first + static_cast<std::ptrdiff_t>(input.samples.size()));
  processed.delay_seconds = static_cast<double>(latency) / input.sample_rate_hz;
  return processed;
}

}  // namespace tune
