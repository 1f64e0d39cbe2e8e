// Life cycle and queries of the capture library, and the hand-over of parameters to its stages.
// Setters are in setters.cpp, the signal processing behind chain.h.
#include "instance.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "band_layout.h"
#include "flush_denormals.h"
#include "pcm_edge.h"

namespace {

using namespace bcap;

constexpr uint32_t kMagic = 0xB14A0A11u;
constexpr size_t kHandleAlignment = 4;
constexpr uint32_t kClearedAtLeast = 10160;  // what callers of the library count on being cleared

// At the handle. The core follows at the next multiple of its alignment.
struct Header {
  uint32_t magic;  // kMagic from the end of bcap_init to the start of bcap_shutdown
};
static_assert(alignof(Header) <= kHandleAlignment, "a handle is aligned to 4 only");
static_assert(std::is_trivially_destructible_v<Chain>, "bcap_shutdown destroys the mutex only");

template <typename T>
T* align_up(void* address, size_t alignment = alignof(T)) {
  const size_t beyond = reinterpret_cast<uintptr_t>(address) % alignment;
  return reinterpret_cast<T*>(static_cast<char*>(address) + (beyond == 0 ? 0 : alignment - beyond));
}

Core* core_behind(void* header) {
  return align_up<Core>(static_cast<char*>(header) + sizeof(Header));
}

bool is_accepted(const bcap_config_t* config) {
  return config != nullptr && (config->sampleRate == 48000 || config->sampleRate == 44100) &&
         config->blockSize == BCAP_BLOCK_FRAMES && config->mode <= 3;
}

// Copies what setters have stored, unless one of them is busy: then the block runs on what it has.
ChangeFlags take_changes(Core& core) {
  ChangeFlags changed{};
  if (core.mutex.try_lock()) {
    changed = core.changed;
    if (changed.parameters) {
      core.active = core.pending;
      core.changed = {};
    }
    core.mutex.unlock();
  }
  return changed;
}

bool lacks_channels(const bcap_buffer_desc_t& description, uint32_t count) {
  if (count == 0) {
    return false;
  }
  return description.channels == nullptr || description.channels[0] == nullptr ||
         (count > 1 && description.channels[1] == nullptr);
}

// The part that all stages share, after their own checks. `out` null: nothing is written.
int run_stage(bcap_handle_t handle, const bcap_buffer_desc_t* in, const bcap_buffer_desc_t* out,
              void* scratch_memory, bool output_count_waived) {
  Core* core = find_core(handle);
  if (core == nullptr) {
    return BCAP_ERROR_INSTANCE;
  }
  if (in == nullptr || scratch_memory == nullptr) {
    return BCAP_ERROR_NULL_ARGUMENT;
  }
  if (in->channel_count != kEars ||
      (out != nullptr && out->channel_count != kEars && !output_count_waived)) {
    return BCAP_ERROR_CHANNEL_COUNT;
  }
  if (lacks_channels(*in, in->channel_count) ||
      (out != nullptr && lacks_channels(*out, out->channel_count))) {
    return BCAP_ERROR_NULL_ARGUMENT;
  }
  FlushDenormals flush_denormals;
  const ChangeFlags changed = take_changes(*core);
  if (core->reset_requested.exchange(false, std::memory_order_acquire)) {
    core->chain.Reset();
  }
  Scratch& scratch = *align_up<Scratch>(scratch_memory);
  const StereoBlock block = scratch.samples.block();
  load_pcm(*in, block);
  core->chain.Process(block, core->active, changed, scratch);
  if (out != nullptr && !store_pcm(block, *out)) {
    core->chain.Reset();  // whatever went wrong must not live on in a filter
  }
  return BCAP_OK;
}

}  // namespace

namespace bcap {

InstanceSize instance_size() {
  constexpr size_t kUsed = sizeof(Header) + alignof(Core) - 1 + sizeof(Core);
  constexpr size_t kCleared = std::max<size_t>(kClearedAtLeast, kUsed);
  return {kCleared, kCleared + kHandleAlignment - 1, sizeof(Scratch) + alignof(Scratch) - 1};
}

Core* find_core(bcap_handle_t handle) {
  if (handle == nullptr || reinterpret_cast<uintptr_t>(handle) % kHandleAlignment != 0 ||
      reinterpret_cast<Header*>(handle)->magic != kMagic) {
    return nullptr;
  }
  return core_behind(handle);
}

bool inspect_parameters(bcap_handle_t handle, Parameters& parameters) noexcept {
  Core* core = find_core(handle);
  if (core == nullptr) {
    return false;
  }
  MutexLock lock(core->mutex);
  parameters = core->pending;
  return true;
}

bool inspect_last_block(bcap_handle_t handle, BlockReport& report) noexcept {
  const Core* core = find_core(handle);
  if (core == nullptr) {
    return false;
  }
  report = core->chain.report();
  return true;
}

size_t inspect_band_count(uint32_t sample_rate_hz) noexcept {
  return sample_rate_hz == 48000 || sample_rate_hz == 44100 ? band_layout(sample_rate_hz).count : 0;
}

BandEdges inspect_band(uint32_t sample_rate_hz, size_t band) noexcept {
  const BandLayout& layout = band_layout(sample_rate_hz);
  const float bin_hz = static_cast<float>(sample_rate_hz) / kFrameSamples;
  const float lowest_hz = (static_cast<float>(layout.edge[band]) - 0.5f) * bin_hz;
  const float highest_hz = (static_cast<float>(layout.edge[band + 1]) - 0.5f) * bin_hz;
  return {std::max(lowest_hz, 0.0f), layout.centre_hz[band],
          std::min(highest_hz, 0.5f * static_cast<float>(sample_rate_hz))};
}

}  // namespace bcap

extern "C" {

const bcap_version_t* bcap_get_version() noexcept {
  static constexpr bcap_version_t kVersion{{1, 1, 0, 1}, "$Change: 5864073 $"};
  return &kVersion;
}

uint32_t bcap_query_memory(const bcap_config_t* config) noexcept {
  return is_accepted(config) ? instance_size().persistent_bytes : 0;
}

uint32_t bcap_query_scratch(const bcap_config_t* config) noexcept {
  return is_accepted(config) ? instance_size().scratch_bytes : 0;
}

int bcap_init(const bcap_config_t* config, void* memory, bcap_handle_t* handle) noexcept {
  if (!is_accepted(config) || memory == nullptr || handle == nullptr) {
    return BCAP_OK;  // Deliberate: a rejected configuration looks like success, the handle stays as it was
  }
  auto* header = align_up<Header>(memory, kHandleAlignment);
  std::memset(header, 0, instance_size().cleared_bytes);
  Core* core = new (core_behind(header)) Core;
  core->sample_rate = config->sampleRate;
  core->block_size = config->blockSize;
  core->mode = config->mode;
  core->active = default_parameters(config->mode);
  {
    MutexLock lock(core->mutex);
    core->pending = core->active;
    core->changed = {true, true, true};
  }
  core->chain.Prepare(*config);
  header->magic = kMagic;
  *handle = reinterpret_cast<bcap_handle_t>(header);
  return BCAP_OK;
}

void bcap_reset(bcap_handle_t handle) noexcept {
  if (Core* core = find_core(handle)) {
    core->reset_requested.store(true, std::memory_order_release);
  }
}

void bcap_shutdown(bcap_handle_t handle) noexcept {
  Core* core = find_core(handle);
  if (core == nullptr) {
    return;
  }
  reinterpret_cast<Header*>(handle)->magic = 0;
  core->~Core();
  std::memset(static_cast<void*>(core), 0, sizeof(Core));
}

uint32_t bcap_latency_samples_get(uint32_t mode) noexcept {
  switch (mode) {
    case 0:
      return 1024;
    case 1:
      return 448;
    case 2:
      return 512;
    default:
      return 1536;
  }
}

const bcap_metadata_info_t* bcap_metadata_info_get(uint32_t version) noexcept {
  static constexpr bcap_metadata_info_t kVersion1{{92, 4, 2100, 4, 8}};
  return version == 1 ? &kVersion1 : nullptr;
}

int bcap_pre_process(bcap_handle_t handle, const bcap_buffer_desc_t* in,
                     const bcap_buffer_desc_t* out, void* scratch) noexcept {
  if (in == nullptr || out == nullptr) {
    return BCAP_ERROR_NULL_ARGUMENT;
  }
  const Core* core = find_core(handle);
  const bool output_count_waived = core != nullptr && core->mode == 2;
  if (in->channel_count != kEars || (out->channel_count != kEars && !output_count_waived)) {
    return BCAP_ERROR_CHANNEL_COUNT;
  }
  return run_stage(handle, in, out, scratch, output_count_waived);
}

int bcap_analysis_process(bcap_handle_t handle, const bcap_buffer_desc_t* in,
                          const bcap_buffer_desc_t* out, void* scratch) noexcept {
  if (in == nullptr) {
    return BCAP_ERROR_NULL_ARGUMENT;
  }
  return run_stage(handle, in, out, scratch, false);
}

int bcap_post_process(bcap_handle_t handle, const bcap_buffer_desc_t* in,
                      const bcap_buffer_desc_t* out, void* scratch) noexcept {
  if (in == nullptr || scratch == nullptr) {
    return BCAP_ERROR_NULL_ARGUMENT;
  }
  return run_stage(handle, in, out, scratch, false);
}

}  // extern "C"
