// The coefficient file of algorithm 1.0 and the store it is read into.
//
// Device open reads the whole file once (adev_parse_algo_config_coeff_1_0); the runtime picks one
// headset's profile from the store when it builds a library instance. The tuning tool reads a file
// into a store of its own through ParseCoefficients, the same code with a listener for its faults.
//
// 1. Texts are NUL-terminated; counts are those of the document, not of what was read.
// 2. Integers are read like `atoi` (leading blanks skipped, trailing junk ignored, no digits give 0)
//    and saturate at 32 bits on every target.
// 3. `coeffBuf` is guarded by gRuntimeMutex. The parser takes it only to publish its result, the
//    runtime for as long as it uses what it chose.
// 4. Nothing here throws unless it says so; shortage of memory is the documented failure of each function.
#ifndef BINAURAL_RECORD_ARITHMETIC_BCAP_1_0_BINAURAL_RECORD_ALGO_CONFIG_H_
#define BINAURAL_RECORD_ARITHMETIC_BCAP_1_0_BINAURAL_RECORD_ALGO_CONFIG_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>

namespace tinyxml2 {
class XMLDocument;
class XMLElement;
}  // namespace tinyxml2

inline constexpr char BINAURAL_ALGO_COEFF_CONFIG_FILE[] =
    "/odm/etc/binaural_record_algo_coeffs.xml";

// Attribute of "tuning" that selects the generation. Deliberate: spelled so.
inline constexpr char kAlgoVersionAttribute[] = "bnc_verson";

inline constexpr size_t kAlgoModes = 4;        // one-pass, pre-processing, analysis, enhancement
inline constexpr size_t kAlgoProfiles = 5;     // read per headset; the first three are scenes
inline constexpr size_t kAlgoBandValues = 96;  // room for one band list in the file
inline constexpr size_t kAlgoDraValues = 4;
inline constexpr size_t kAlgoNameBytes = 64;  // module and profile names with their NUL
inline constexpr size_t kBtHeadsetNameBytes = 128;

// ---------------------------------------------------------------------------------------------
// Records
// ---------------------------------------------------------------------------------------------

// One processing mode's parameters, in file order; the first thirteen are applied, the rest are kept
// for completeness. Signed 32-bit words as written in the file, not yet clamped by the library.
struct AlgoModeParams {
  int32_t selfieModeEn;
  int32_t hpfEn;
  int32_t pregainEn;
  int32_t pregainBoost;
  int32_t pregainLimiterPeak;
  int32_t rnnEn;
  int32_t rnnAmount;
  int32_t postgainEn;
  int32_t postgainBoost;
  int32_t postgainLimiterPeak;
  int32_t rmxAmount;
  int32_t peqAmount;
  int32_t nfmAmount;
  int32_t deqEn;
  int32_t levEn;
  int32_t levAmount;
  int32_t levLoudnessRange;
  int32_t ldnEn;
  int32_t lrcEn;
  int32_t bsepEn;
  int32_t bsepResgainAttenuate;
  int32_t sfeEn;
  int32_t sfeAmount;
  int32_t wnrEn;
  int32_t wnrAmount;
  int32_t pregainAgcEn;
  int32_t pregainAgcAmount;
  int32_t postgainAgcEn;
  int32_t postgainAgcAmount;
  int32_t pregainDraEn;
  int32_t pregainDraTuning[kAlgoDraValues];
  int32_t pregainDraTuningNum;
  int32_t postgainDraEn;
  int32_t postgainDraTuning[kAlgoDraValues];
  int32_t postgainDraTuningNum;
  int32_t postgainOutTarget;
};
static_assert(sizeof(AlgoModeParams) == 42 * sizeof(int32_t),
              "default tables address the words by position");

struct ModuleConfig {
  uint32_t modeConfigFlag;  // bit m: a mode element with value m was read
  char moduleName[kAlgoNameBytes];
  AlgoModeParams modes[kAlgoModes];  // by mode value; all zero where the bit is clear
};
static_assert(sizeof(ModuleConfig) == 740, "words and text only: the same on every target");

struct ProfileConfig {
  uint32_t moduleConfigFound;  // 1 when `module` is set
  uint32_t peqBandGainNum[kAlgoModes];
  char profileName[kAlgoNameBytes];  // logged only: the position is the scene index
  char moduleName[kAlgoNameBytes];   // Deliberate: stays empty, the runtime only prints it
  const ModuleConfig* module;        // into the same store's moduleConfig
  int32_t peqBandGain[kAlgoModes][kAlgoBandValues];
};
static_assert(offsetof(ProfileConfig, module) == 152 - 4 * (sizeof(void*) == 4),
              "one pointer between words and texts");

struct BtHeadsetConfig {
  uint32_t nfmNum;
  uint32_t profileNum;  // profiles read, 0..5
  char btHeadsetName[kBtHeadsetNameBytes];
  ProfileConfig profiles[kAlgoProfiles];  // by position in the file = scene index
  int32_t nfmBandEnergy[kAlgoBandValues];
};

struct AlgoConfigCoeff {
  uint32_t parseConfigSuccessFlag;  // 1 once the whole file was read without a fault
  uint32_t btHeadsetNum;
  uint32_t moduleNum;
  BtHeadsetConfig* btConfig;   // owned, btHeadsetNum records, or null
  ModuleConfig* moduleConfig;  // owned, moduleNum records, or null
};

// The store of the process; zero at load. Written at device open and close, read when an instance is
// built. Reached through get_bcap_algo_config_coeff_1_0.
extern AlgoConfigCoeff coeffBuf;

// ---------------------------------------------------------------------------------------------
// Names of the parameters
// ---------------------------------------------------------------------------------------------

// A plain `param` of the file.
struct AlgoParamItem {
  const char* name;   // in the file
  const char* label;  // in the log
  int32_t AlgoModeParams::*field;
  int32_t start;  // what a mode element begins with
};

inline constexpr AlgoParamItem kAlgoParamItems[] = {
    // clang-format off
    {"selfie_mode",            "selfieModeEn",         &AlgoModeParams::selfieModeEn,         0},
    {"hpf_enable",             "hpfEn",                &AlgoModeParams::hpfEn,                0},
    {"pregain_enable",         "pregainEn",            &AlgoModeParams::pregainEn,            0},
    {"pregain_boost",          "pregainBoost",         &AlgoModeParams::pregainBoost,         256},
    {"pregain_limiter_peak",   "pregainLimiterPeak",   &AlgoModeParams::pregainLimiterPeak,   256},
    {"rnn_enable",             "rnnEn",                &AlgoModeParams::rnnEn,                0},
    {"rnn_amount",             "rnnAmount",            &AlgoModeParams::rnnAmount,            8},
    {"postgain_enable",        "postgainEn",           &AlgoModeParams::postgainEn,           0},
    {"postgain_boost",         "postgainBoost",        &AlgoModeParams::postgainBoost,        272},
    {"postgain_limiter_peak",  "postgainLimiterPeak",  &AlgoModeParams::postgainLimiterPeak,  241},
    {"rmx_amount",             "rmxAmount",            &AlgoModeParams::rmxAmount,            9},
    {"peq_amount",             "peqAmount",            &AlgoModeParams::peqAmount,            16},
    {"nfm_amount",             "nfmAmount",            &AlgoModeParams::nfmAmount,            16},
    {"deq_enable",             "deqEn",                &AlgoModeParams::deqEn,                0},
    {"lev_enable",             "levEn",                &AlgoModeParams::levEn,                0},
    {"lev_amount",             "levAmount",            &AlgoModeParams::levAmount,            0},
    {"lev_loudness_range",     "levLoudnessRange",     &AlgoModeParams::levLoudnessRange,     0},
    {"ldn_enable",             "ldnEn",                &AlgoModeParams::ldnEn,                0},
    {"lrc_enable",             "lrcEn",                &AlgoModeParams::lrcEn,                0},
    {"bsep_enable",            "bsepEn",               &AlgoModeParams::bsepEn,               0},
    {"bsep_resgain_attenuate", "bsepResgainAttenuate", &AlgoModeParams::bsepResgainAttenuate, 0},
    {"sfe_enable",             "sfeEn",                &AlgoModeParams::sfeEn,                0},
    {"sfe_amount",             "sfeAmount",            &AlgoModeParams::sfeAmount,            0},
    {"wnr_enable",             "wnrEn",                &AlgoModeParams::wnrEn,                0},
    {"wnr_amount",             "wnrAmount",            &AlgoModeParams::wnrAmount,            0},
    {"pregain_agc_enable",     "pregainAgcEn",         &AlgoModeParams::pregainAgcEn,         0},
    {"pregain_agc_amount",     "pregainAgcAmount",     &AlgoModeParams::pregainAgcAmount,     0},
    {"postgain_agc_enable",    "postgainAgcEn",        &AlgoModeParams::postgainAgcEn,        0},
    {"postgain_agc_amount",    "postgainAgcAmount",    &AlgoModeParams::postgainAgcAmount,    0},
    {"pregain_dra_enable",     "pregainDraEn",         &AlgoModeParams::pregainDraEn,         0},
    {"postgain_dra_enable",    "postgainDraEn",        &AlgoModeParams::postgainDraEn,        0},
    {"postgain_out_target",    "postgainOutTarget",    &AlgoModeParams::postgainOutTarget,    0},
    // clang-format on
};
inline constexpr size_t kAlgoAppliedParams =
    13;  // the leading items, the ones this generation uses

// A `param` whose value is a comma list.
struct AlgoListItem {
  const char* name;
  const char* label;
  int32_t (AlgoModeParams::*values)[kAlgoDraValues];
  int32_t AlgoModeParams::*count;
  int32_t start[kAlgoDraValues];
  const char* error;  // what the log says when the list cannot be read
};

inline constexpr AlgoListItem kAlgoListItems[] = {
    {"pregain_dra_tuning",
     "pregainDraTuning",
     &AlgoModeParams::pregainDraTuning,
     &AlgoModeParams::pregainDraTuningNum,
     {-400, 10923, 30433, 32168},
     " parse_and_save_item_coeffs pregain_dra_tuning error."},
    // Deliberate: the doubled "n" of the message.
    {"postgain_dra_tuning",
     "postgainDraTuning",
     &AlgoModeParams::postgainDraTuning,
     &AlgoModeParams::postgainDraTuningNum,
     {-400, 6554, 28264, 31579},
     " parse_and_save_item_coeffs postgain_dra_tunning error."},
};

// Prints the applied parameters as "selfieModeEn=0 hpfEn=1 ...".
std::ostream& operator<<(std::ostream& out, const AlgoModeParams& params);

// ---------------------------------------------------------------------------------------------
// Reading
// ---------------------------------------------------------------------------------------------

enum class CoefficientRule {
  kUnreadable,        // not a file, or not XML: see the document's error
  kNoDeclaration,     // the document does not begin with an XML declaration
  kMissingElement,    // `name` is the child that `element` (null: the document) lacks
  kMissingAttribute,  // `name` is the attribute that `element` lacks
  kNameTooLong,       // attribute `name` does not fit its field
  kModeOutOfRange,    // attribute `name` is not 0..3
  kUnknownParameter,  // the value of attribute `name` is not in the two tables above
  kUnknownModule,     // the value of attribute `name` is no module of the file
  kEmptyList,         // attribute `name` is an empty text
  kListTooLong,       // attribute `name` holds more numbers than fit
  kOutOfMemory,
};

// One fault, valid during the listener's call; element and document live as long as the document.
struct CoefficientFault {
  CoefficientRule rule;
  const char* step;                     // parsing step that found it, as in the log
  const char* message;                  // what the log says after the step's name
  const tinyxml2::XMLElement* element;  // where, or null for the document
  const char* name;                     // the child or attribute concerned, or null
};
// True to go on behind the faulty element, false to end there.
using CoefficientFaultListener = std::function<bool(const CoefficientFault&)>;

// Loads an XML file; false leaves the reason in the document. The file is opened here because the XML
// library does not close it when memory runs out while it reads. Throws std::bad_alloc then.
bool LoadCoefficientDocument(const char* path, tinyxml2::XMLDocument* document);

// Reads the file at `path` into `store`, whose earlier arrays are freed, through the caller's
// `document` (kept, so that elements reported can be looked at afterwards). Every step writes its
// lines to the log. Without a listener reading ends at the first fault; with one it goes on behind
// each faulty element for as long as the listener wants more, so that it hears the faults in file
// order, the first being the module's verdict. Returns 0 when there was none, -1 otherwise; the arrays
// are then left as far as they were read and the flag is 0. Takes no lock.
int ParseCoefficients(const char* path, tinyxml2::XMLDocument* document, AlgoConfigCoeff* store,
                      const CoefficientFaultListener& listener = nullptr) noexcept;

// Generation that a value of the version attribute selects: 1 the built-in one, which reads the file
// here, 2 the library loaded beside it, 0 none (also for null).
int AlgoGenerationOfVersion(const char* version) noexcept;

// Integer at the beginning of `text` by the rules above (2.).
int32_t ReadCoefficientInteger(const char* text) noexcept;

// True for a path that exists and is no regular file. Such a path is not to be loaded: opening a pipe
// would wait for its writer for ever.
bool IsSpecialFile(const char* path) noexcept;

// Frees both arrays and nulls them.
// Deliberate: flag and counts stay; whoever reads a store must look at the arrays too.
void ReleaseCoefficients(AlgoConfigCoeff* store) noexcept;

// Device open: reads BINAURAL_ALGO_COEFF_CONFIG_FILE and publishes the result, also a failed one, in
// `coeffBuf`. 0, or -1 on any fault; the caller then releases.
int adev_parse_algo_config_coeff_1_0() noexcept;

// Device close: ReleaseCoefficients of `coeffBuf`.
void adev_release_algo_config_coeff_1_0() noexcept;

// Address of `coeffBuf`, never null. The caller holds gRuntimeMutex while it uses the contents.
AlgoConfigCoeff* get_bcap_algo_config_coeff_1_0() noexcept;

// Reads the comma list `text` into at most `capacity` integers and stores how many there were; empty
// fields vanish. 0, or -1 when the text is null or empty, memory is short or there are more than
// `capacity` fields; `count` is then untouched, `dst` may hold the leading fields.
int parse_and_save_item_coeffs(int* dst, int capacity, const char* text, unsigned* count) noexcept;

#endif  // BINAURAL_RECORD_ARITHMETIC_BCAP_1_0_BINAURAL_RECORD_ALGO_CONFIG_H_
