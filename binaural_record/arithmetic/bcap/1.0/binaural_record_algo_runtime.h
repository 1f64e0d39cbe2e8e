// The algorithm runtime of the one capture stream: the library instance with its memory and ring
// buffers, the choice of tuning for headset, scene and mode, and the two capture timestamp slots.
//
// 1. `gRuntimeParam` and everything it points to is guarded by gRuntimeMutex (recursive). The
//    exported functions take it themselves; whoever reads or writes a field directly takes it too, and
//    fetches pointers anew after each acquisition: a mode change may have replaced them.
// 2. Every pointer is null when what it pointed to is gone. `algInited` false means there is no
//    instance: `bcapHandle`, `algPersistMem` and `algScratchMem` are null. The ring buffers may still
//    be there (a failed sizing leaves them); release and the next initialisation free them.
// 3. A change of scene, mirror flag or headset name takes effect when the next instance is built.
// 4. Nothing throws. All functions may be called from any thread, also with the mutex held.
#ifndef BINAURAL_RECORD_ARITHMETIC_BCAP_1_0_BINAURAL_RECORD_ALGO_RUNTIME_H_
#define BINAURAL_RECORD_ARITHMETIC_BCAP_1_0_BINAURAL_RECORD_ALGO_RUNTIME_H_

#include <cstddef>
#include <cstdint>

#include "bcap.h"

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_config.h"
#include "binaural_record/utils/ring_buffer.h"

inline constexpr size_t kBcapBlockFrames = 512;
inline constexpr size_t kBcapBlockBytes = kBcapBlockFrames * 2 * sizeof(int16_t);

// Index of a headset's profile and row of the built-in defaults. Only the first two are accepted as a
// scene; the third is what SCENE_SELFIE means while the mirror flag is set.
enum BcapAlgScene : uint32_t {
  SCENE_NORMAL = 0,
  SCENE_SELFIE = 1,
  SCENE_SELFIE_MIRROR = 2,
};

struct SavedCapturePosition {
  int64_t frames;
  int64_t time;  // ns
  bool used;
};

struct BinauralStreamInRuntimeParam {
  uint32_t sampleRate;   // Hz
  uint32_t channelMask;  // input channel mask
  uint32_t format;
  uint32_t frameCount;     // per buffer period
  RingBuffer* preBuff;     // raw PCM waiting for processing, owned
  RingBuffer* postBuff;    // processed PCM waiting to be read, owned
  uint32_t ringBufferLen;  // bytes of each
  void* algPersistMem;     // owned
  void* algScratchMem;     // owned
  bcap_config_t bcapInfo_;
  bcap_handle_t bcapHandle;
  int16_t* channelPtrs[2];  // left and right sample of the first frame of procBuffer
  int16_t procBuffer[2 * kBcapBlockFrames];  // one block, interleaved stereo, processed in place
  bcap_buffer_desc_t inBufDesc;
  bcap_buffer_desc_t outBufDesc;
  char btHeadsetName[kBtHeadsetNameBytes];  // of the connected headset, NUL-terminated
  SavedCapturePosition saved[2];            // a queue of two
  uint32_t algScene;                        // a BcapAlgScene
  uint32_t algMode;                         // requested mode, 0..3
  bool algInited;                           // an instance exists
  bool mirrorEnabled;                       // the selfie scene uses the mirrored profile
};

static_assert(sizeof(bcap_buffer_desc_t) == 12 + 4 * (sizeof(void*) == 8) + sizeof(void*),
              "three words and an address: four words on the 32-bit target");
static_assert(sizeof(bcap_config_t) == 16, "four words on every target");

// The record of the process; zero at load. Stream close clears it except algScene, algMode,
// mirrorEnabled and btHeadsetName.
extern BinauralStreamInRuntimeParam gRuntimeParam;

// ---------------------------------------------------------------------------------------------
// The choice of tuning
// ---------------------------------------------------------------------------------------------

// Why a choice ended where it did; every step but kMatched means the built-in values.
enum class TuningStep {
  kMatched,
  kNoStore,         // nothing was parsed, or what was parsed has been released
  kNoHeadset,       // no headset of that name
  kNoProfile,       // headset found, but no profile with a module for the scene
  kModeNotInModule  // profile found, but its module lacks the mode
};

struct TuningChoice {
  TuningStep step;
  uint32_t headset;              // index in the store when kMatched, else the last one of that name
  const ProfileConfig* profile;  // null unless kMatched
  const ModuleConfig* module;    // likewise
  const AlgoModeParams* params;  // never null. Deliberate: mode 0 of the module, whatever the mode
  const int32_t* nfmData;        // never null, nfmNum values
  const int32_t* peqData;        // never null, peqNum values, those of mode 0
  uint32_t nfmNum;
  uint32_t peqNum;
};

// Profile index of `scene`: 0 for SCENE_NORMAL, 1 or (mirrored) 2 for SCENE_SELFIE, -1 for any other.
int TuningSceneIndex(uint32_t scene, bool mirror) noexcept;

// What an instance in `mode` gets for `headset` at scene index 0..2. The first headset of that name
// whose profile and module fit wins. The result points into `store` or at the built-in tables; the
// caller guards the store. Writes no log.
TuningChoice ChooseTuning(const AlgoConfigCoeff& store, const char* headset, int scene_index,
                          int mode) noexcept;

// Bundle handed to setOnePassModeSceneParameters.
struct AlgoConfigCtlParams {
  const AlgoModeParams& params;
  uint32_t nfmNum;
  uint32_t peqNum;
  const int32_t* peqData;
  const int32_t* nfmData;
};

// Sends one set of parameters to runtime->bcapHandle as stored; the library clamps. A refused band
// table is logged and does not stop the rest. Caller holds gRuntimeMutex.
void setOnePassModeSceneParameters(BinauralStreamInRuntimeParam* runtime,
                                   AlgoConfigCtlParams* ctl) noexcept;

// Chooses and applies the tuning for `scene`, then stores it in algScene; another scene than the first
// two, or a mode other than 0, changes nothing. The headset is always that of gRuntimeParam; the flag
// is not consulted. Caller holds gRuntimeMutex.
void algo_change_scene_parameters(BinauralStreamInRuntimeParam* runtime, BcapAlgScene scene,
                                  int mode, bool flag) noexcept;

// ---------------------------------------------------------------------------------------------
// Exported by the module
// ---------------------------------------------------------------------------------------------

#pragma GCC visibility push(default)
extern "C" {

// Address of gRuntimeParam, never null.
BinauralStreamInRuntimeParam* record_get_runtime_parameters_1_0() noexcept;

// True: in this generation the algorithm is always in the path.
bool is_bcap_algo_1_0() noexcept;

// Builds ring buffers, memory and instance for the record's stream and applies the current scene.
// With an instance in place and `force` false, the mode it already has is left alone (0). Any other
// call rebuilds everything, so that buffered audio is dropped on purpose. `mode` outside 0..3 counts
// as 0. 0, or -1 when the record is null, the buffers' size is 0 or above 16 MiB, memory is short, or
// the library refuses the sample rate; there is then no instance.
int binaural_algorithm_init_1_0(BinauralStreamInRuntimeParam* runtime, int mode,
                                bool force) noexcept;

// Destroys instance, memory and ring buffers, whatever of them exists. Always 0.
int binaural_algorithm_release_1_0(BinauralStreamInRuntimeParam* runtime) noexcept;

// Finds a free timestamp slot: true with its index, 0 or 1, or false with -1. The caller holds
// gRuntimeMutex from here until it has filled the slot.
bool getTimestampSavingSpace_1_0(signed char* index) noexcept;

}  // extern "C"
#pragma GCC visibility pop

#endif  // BINAURAL_RECORD_ARITHMETIC_BCAP_1_0_BINAURAL_RECORD_ALGO_RUNTIME_H_
