// The module's algorithm runtime on this machine: the same choice of tuning, the same setters in the same
// order and the same library that a device runs, for the tool to ask and to listen to.
#ifndef TOOLS_TUNE_RUNTIME_H_
#define TOOLS_TUNE_RUNTIME_H_

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "bcap_inspect.h"

#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_config.h"
#include "binaural_record/arithmetic/bcap/1.0/binaural_record_algo_runtime.h"

namespace tune {

enum class Unit { kSwitch, kSixteenthDb, kPeak256, kEighths, kSixteenths };

// A parameter that this generation applies: row i describes kAlgoParamItems[i].
struct AppliedParam {
  int32_t bcap::Parameters::*stored;
  Unit unit;
  const char* meaning;
};
extern const std::array<AppliedParam, kAlgoAppliedParams> kAppliedParams;

// "+16.0 dB", "94% of full scale", "8/8", "on".
std::string InUnit(Unit unit, int32_t value);

// Row of the parameter of that name, or kAlgoAppliedParams.
size_t AppliedIndex(const char* name);

inline constexpr size_t kScenes = 3;
// By scene index: "normal", "selfie", "selfie mirrored".
const char* SceneName(size_t scene_index);

struct TuningRequest {
  std::string headset;
  BcapAlgScene scene = SCENE_NORMAL;
  bool mirror = false;
  int mode = 0;
  uint32_t sample_rate_hz = 48000;

  int scene_index() const { return TuningSceneIndex(scene, mirror); }
};

TuningRequest RequestForSceneIndex(const std::string& headset, size_t scene_index);

// A live instance, tuned from `store` as stream open does it. One at a time: the module has one runtime
// per process. Throws tools::Failure when the module builds none. `store` outlives it.
class TunedRuntime {
 public:
  TunedRuntime(const AlgoConfigCoeff& store, const TuningRequest& request);
  ~TunedRuntime();
  TunedRuntime(const TunedRuntime&) = delete;
  TunedRuntime& operator=(const TunedRuntime&) = delete;

  const TuningChoice& choice() const { return choice_; }
  // What the library holds after clamping.
  bcap::Parameters Stored() const;
  // Sends other values to the instance in the same way.
  void Apply(const AlgoModeParams& params, const int32_t* peq, uint32_t peq_count,
             const int32_t* nfm, uint32_t nfm_count);
  // One block of kBcapBlockFrames interleaved stereo frames, in place.
  void Process(int16_t* frames);
  // What the stages did to the last block.
  bcap::BlockReport LastBlock() const;
  uint32_t latency_frames() const;

 private:
  TuningChoice choice_;
};

// Asks the library, with an instance of its own, what becomes of single values.
class ClampProbe {
 public:
  ClampProbe();
  // `index`: row of kAppliedParams.
  int32_t Param(size_t index, int32_t value);
  struct Range {
    int32_t low, high;
  };
  Range ParamRange(size_t index);
  // Gains or energies as stored; count at most kAlgoBandValues.
  std::array<int32_t, BCAP_MAX_BANDS> Gains(const int32_t* values, uint32_t count);
  std::array<int32_t, BCAP_MAX_BANDS> Energies(const int32_t* values, uint32_t count);

 private:
  TunedRuntime runtime_;
  std::map<std::pair<size_t, int32_t>, int32_t> known_;
};

}  // namespace tune

#endif  // TOOLS_TUNE_RUNTIME_H_
