// The read path: port -> preBuff -> capture library, block by block -> postBuff -> caller. Runs on the
// framework's capture thread.
//
// Locks: each stage takes gRuntimeMutex for the sections that touch the runtime record and fetches
// its pointers anew inside, because a control thread may have rebuilt the instance meanwhile; one
// block's take, processing and put are one section. None of them is held across a port call. The only
// allocation is the temporary of a supplementary read.
#define LOG_TAG "BinauralRecordHalStream"

#include <limits.h>
#include <stdlib.h>

#include <memory>

#include "bcap.h"
#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_runtime.h"
#include "binaural_record/hidl/2ch-record/1.0/binaural_stream_ops.h"
#include "binaural_record/hidl/2ch-record/1.0/live_objects.h"
#include "binaural_record/utils/locks.h"
#include "binaural_record/utils/log.h"

using vendor::corva::binaural_record::StreamGuard;
using vendor::corva::binaural_record::utils::gRuntimeMutex;
using vendor::corva::binaural_record::utils::RuntimeLock;
using vendor::corva::binaural_record::utils::StaticLock;
using vendor::corva::bluetooth_audio_extend::BinauralStreamState;

vendor::corva::binaural_record::utils::StaticMutex gPortReadMutex;
vendor::corva::binaural_record::utils::StaticMutex gPreBuffMutex;
vendor::corva::binaural_record::utils::StaticMutex gPostBuffMutex;

namespace {

constexpr int kBlockBytes = sizeof(BinauralStreamInRuntimeParam::procBuffer);
static_assert(kBlockBytes == 2048, "the library's block is 512 stereo frames of 16 bits");

// A count beyond the ring buffer's reach is refused by it like any other that does not fit.
int RingCount(size_t bytes) {
  return bytes > INT_MAX ? -1 : static_cast<int>(bytes);
}

int WritePreBuff(const void* source, size_t bytes) {
  RuntimeLock lock(gRuntimeMutex);
  StaticLock pre_lock(gPreBuffMutex);
  return RingBuffer_write(record_get_runtime_parameters_1_0()->preBuff, source, RingCount(bytes),
                          0);
}

size_t AvailableBytes(RingBuffer* BinauralStreamInRuntimeParam::*buffer) {
  RuntimeLock lock(gRuntimeMutex);
  return static_cast<size_t>(
      RingBuffer_available_data(record_get_runtime_parameters_1_0()->*buffer));
}

// Index, test and store are one section, so that a position query cannot shift the slots in between.
void SavePosition(const char* function, int64_t frames, int64_t time) {
  RuntimeLock lock(gRuntimeMutex);
  signed char index = -1;
  if (!getTimestampSavingSpace_1_0(&index)) {
    return;
  }
  BINAURAL_LOG(INFO) << function << " enter, save position info----";
  const auto slot_index = static_cast<unsigned char>(index);  // -1 becomes too large
  if (slot_index > 1) {
    BINAURAL_LOG(ERROR) << function << ", index error----";
    return;
  }
  auto& slot = record_get_runtime_parameters_1_0()->saved[slot_index];
  slot.frames = frames;
  slot.time = time;
  slot.used = true;
}

// One more port read when preBuff is low.
bool supplementaryDataRead(BinauralStreamIn& in) {
  // Deliberate: the length is the global stream's period, not that of the stream being read.
  const size_t length = in_get_buffer_size(reinterpret_cast<const audio_stream*>(gStreamIn.load()));
  BINAURAL_LOG(INFO) << __func__ << " enter, need reread additionReadLen " << length << "----";
  if (length < 1) {
    BINAURAL_LOG(ERROR) << __func__ << ", additionReadLen error.";
    return false;
  }
  const std::unique_ptr<void, decltype(&free)> temporary(calloc(1, length), free);
  if (temporary == nullptr) {
    BINAURAL_LOG(ERROR) << __func__ << ", calloc fail----";
    return false;
  }
  {
    StaticLock lock(gPortReadMutex);
    if (in.bluetooth_input_.ReadData(temporary.get(), length) == 0) {
      BINAURAL_LOG(ERROR) << __func__ << ", readData fail----";
      return false;
    }
  }
  int64_t frames = 0;
  int64_t time = 0;
  obtain_bluetooth_capture_position(&in.stream, &frames, &time);
  SavePosition(__func__, frames, time);
  BINAURAL_LOG(DEBUG) << __func__ << ", preBuff write start-----";
  // Deliberate: the length asked for is queued, zeros for what the port did not deliver.
  if (WritePreBuff(temporary.get(), length) == -1) {
    BINAURAL_LOG(ERROR) << __func__ << "----RingBuffer_write failed--";
    return false;
  }
  BINAURAL_LOG(DEBUG) << __func__ << ", preBuff write end-----";
  return true;
}

enum class BlockResult { kProcessed, kNoInput, kFailed };

// Takes one block from preBuff, processes it in place and puts it into postBuff.
BlockResult ProcessBlock(const char* function) {
  BinauralStreamInRuntimeParam* runtime = record_get_runtime_parameters_1_0();
  RuntimeLock lock(gRuntimeMutex);
  BINAURAL_LOG(DEBUG) << function << ", preBuff read start-----";
  {
    StaticLock pre_lock(gPreBuffMutex);
    if (RingBuffer_read(runtime->preBuff, runtime->procBuffer, kBlockBytes, 0) == -1) {
      BINAURAL_LOG(ERROR) << function << " enter, RingBuffer_read failed----";
      return BlockResult::kNoInput;
    }
  }
  BINAURAL_LOG(DEBUG) << function << ", preBuff read stop-----";
  if (runtime->bcapInfo_.mode > 1) {
    BINAURAL_LOG(ERROR) << function << " enter, runtimeParams->bcapInfo_.mode error return----";
    return BlockResult::kFailed;
  }
  BINAURAL_LOG(DEBUG) << function << " enter, bcap_pre_process---";
  const int result = bcap_pre_process(runtime->bcapHandle, &runtime->inBufDesc,
                                      &runtime->outBufDesc, runtime->algScratchMem);
  if (result != 0) {
    // Deliberate: DEBUG; the failure shows in in_read's own line.
    BINAURAL_LOG(DEBUG) << function << " bcap_pre_process error, ret " << result;
    return BlockResult::kFailed;
  }
  BINAURAL_LOG(DEBUG) << function << ", postBuff write start-----";
  {
    StaticLock post_lock(gPostBuffMutex);
    if (RingBuffer_write(runtime->postBuff, runtime->procBuffer, kBlockBytes, 0) == -1) {
      BINAURAL_LOG(ERROR) << function << " enter, RingBuffer_write failed-----";
      return BlockResult::kFailed;
    }
  }
  BINAURAL_LOG(DEBUG) << function << ", postBuff write stop-----";
  return BlockResult::kProcessed;
}

// Processes blocks until postBuff holds `bytes` bytes or as many have been processed.
bool alg_process(BinauralStreamIn& in, size_t bytes) {
  BINAURAL_LOG(DEBUG) << __func__ << " enter, ---- onceLen=" << kBlockBytes;
  for (size_t processed = 0; processed < bytes; processed += kBlockBytes) {
    const size_t available = AvailableBytes(&BinauralStreamInRuntimeParam::postBuff);
    if (available >= bytes) {
      BINAURAL_LOG(DEBUG) << __func__
                          << " enter, postBuff already has enough data, break-- availableDataLen="
                          << available;
      return true;
    }
    if (AvailableBytes(&BinauralStreamInRuntimeParam::preBuff) < kBlockBytes &&
        !supplementaryDataRead(in)) {
      BINAURAL_LOG(ERROR) << __func__ << ", supplementaryDataRead fail----";
      return false;
    }
    switch (ProcessBlock(__func__)) {
      case BlockResult::kProcessed:
        break;
      case BlockResult::kNoInput:
        // Deliberate: not a failure here; in_read finds postBuff short and says so.
        return true;
      case BlockResult::kFailed:
        return false;
    }
  }
  return true;
}

// The processed PCM for the caller; false with its line when postBuff has too little.
bool TakeProcessed(const char* function, void* buffer, size_t bytes) {
  BinauralStreamInRuntimeParam* runtime = record_get_runtime_parameters_1_0();
  RuntimeLock lock(gRuntimeMutex);
  const int32_t available = RingBuffer_available_data(runtime->postBuff);
  if (static_cast<size_t>(available) < bytes) {
    // Deliberate: no blank before "bytes".
    BINAURAL_LOG(ERROR) << function << ", RingBuffer has not enough data, return 0, avail buffer "
                        << available << "bytes needs " << bytes;
    return false;
  }
  BINAURAL_LOG(DEBUG) << function << ", postBuff read start-----";
  {
    StaticLock post_lock(gPostBuffMutex);
    if (RingBuffer_read(runtime->postBuff, buffer, RingCount(bytes), 0) == -1) {
      BINAURAL_LOG(ERROR) << function << ", RingBuffer_read failed---";
      return false;
    }
  }
  BINAURAL_LOG(DEBUG) << function << ", postBuff read stop-----";
  return true;
}

}  // namespace

ssize_t in_read(audio_stream_in* stream, void* buffer, size_t bytes) noexcept {
  const StreamGuard in(stream);
  if (!in || buffer == nullptr) {
    return 0;
  }
  auto& port = in->bluetooth_input_;
  if (port.GetState() != BinauralStreamState::STARTED) {
    BINAURAL_LOG(INFO) << __func__ << ": state=" << port.GetState()
                       << " first time bytes=" << bytes;
    if (in->stream.start(&in->stream) != 0) {
      BINAURAL_LOG(ERROR) << __func__ << ": state=" << port.GetState() << " failed to start.";
      return 0;
    }
  }
  size_t read_bytes;
  {
    StaticLock lock(gPortReadMutex);
    read_bytes = port.ReadData(buffer, bytes);
    if (read_bytes == 0) {
      BINAURAL_LOG(ERROR) << __func__ << ", get no data-----";
      in_standby(&in->stream.common);
      return 0;
    }
  }
  if (is_bcap_algo_1_0()) {
    BINAURAL_LOG(DEBUG) << __func__ << ", preBuff write start-----";
    // Deliberate: the bytes asked for are queued, not the bytes that the port delivered.
    if (WritePreBuff(buffer, bytes) == -1) {
      BINAURAL_LOG(ERROR) << __func__ << ", RingBuffer_write failed--";
      return 0;
    }
    BINAURAL_LOG(DEBUG) << __func__ << ", preBuff write end-----";
    if (!alg_process(*in, bytes)) {
      BINAURAL_LOG(ERROR) << __func__ << ", alg_process failed--";
      return 0;
    }
    if (!TakeProcessed(__func__, buffer, bytes)) {
      return 0;
    }
  }
  // Deliberate: one period per successful call, whatever `bytes` was.
  const uint64_t frames_read = in->frames_read_ += in->frames_count_;
  BINAURAL_LOG(DEBUG) << __func__ << ": audio RingBuffer_read bytes=" << bytes
                      << " readLen=" << read_bytes << " frames_read_=" << frames_read << "-----";
  return static_cast<ssize_t>(bytes);
}
