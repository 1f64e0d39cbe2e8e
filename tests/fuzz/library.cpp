// Any order of the capture library's calls: configurations, every setter, tables up to 96 values, PCM
// of any kind through any stage, reset, shutdown and a new start in memory of any alignment.
#include <array>
#include <cstring>
#include <vector>

#include "bcap.h"
#include "bcap_inspect.h"
#include "tests/bcap/scalars.h"
#include "tests/fuzz/fuzz.h"

namespace {

using Stage = int (*)(bcap_handle_t, const bcap_buffer_desc_t*, const bcap_buffer_desc_t*, void*);
constexpr Stage kStages[] = {bcap_pre_process, bcap_analysis_process, bcap_post_process};

// An instance in memory of exactly the size asked for, at an offset from any alignment.
class Library {
 public:
  explicit Library(Input& input) { Start(input); }
  ~Library() { bcap_shutdown(handle_); }

  void Start(Input& input) {
    bcap_shutdown(handle_);
    handle_ = nullptr;
    const uint8_t choice = input.Byte();
    bcap_config_t config{choice & 1 ? 44100u : 48000u, 512, choice / 2u % 4, 600};
    if (choice >= 0xF0) {  // now and then one that is refused
      config = {input.Word(), input.Byte() * 2u, input.Byte(), input.Word()};
    }
    const uint32_t bytes = bcap_query_memory(&config);
    const uint32_t scratch_bytes = bcap_query_scratch(&config);
    FUZZ_CHECK((bytes == 0) == (scratch_bytes == 0));
    const size_t offset = input.Below(16);
    memory_ = std::vector<char>(offset + bytes, '\xA5');
    scratch_ = std::vector<char>(offset + scratch_bytes, '\xA5');
    scratch_start_ = scratch_.data() + offset;
    FUZZ_CHECK(bcap_init(&config, bytes == 0 ? nullptr : memory_.data() + offset, &handle_) == 0);
    FUZZ_CHECK((handle_ != nullptr) == (bytes != 0));
    const uintptr_t at_least = reinterpret_cast<uintptr_t>(memory_.data() + offset);
    FUZZ_CHECK(bytes == 0 || reinterpret_cast<uintptr_t>(handle_) == (at_least + 3) / 4 * 4);
  }

  void SetTable(Input& input) {
    const uint8_t choice = input.Byte();
    const int32_t count = static_cast<int32_t>(input.Byte() % 100) - 3;
    std::vector<int32_t> values(count > 0 ? static_cast<size_t>(count) : 0);
    for (int32_t& value : values) {
      value = choice & 4 ? static_cast<int32_t>(input.Word()) : (input.Byte() - 128) * 5;
    }
    const int32_t* table = choice & 2 || values.empty() ? nullptr : values.data();
    const int result = choice & 1 ? bcap_peq_band_gain_tuning_set(handle_, count, table)
                                  : bcap_nfm_band_energy_tuning_set(handle_, count, table);
    FUZZ_CHECK(IsOneOf(result, {0, 1, choice & 1 ? 12 : 14, choice & 1 ? 13 : 15}));
  }

  void Process(Input& input) {
    const Stage stage = kStages[input.Below(3)];
    const uint8_t kind = input.Byte();
    uint32_t noise = input.Byte() * 2654435761u + 1;
    std::array<char, 2049> pcm{}, out{};
    const size_t first = kind / 2 % 2;  // samples may lie at odd addresses
    for (size_t n = 0; n < 1024; ++n) {
      noise = noise * 1664525u + 1013904223u;
      const int square = n / 2 % (2u + kind) < 1u + kind / 2 ? 32767 : -32768;
      const int impulse = n == kind * 4u ? -32768 : 0;
      const int samples[] = {static_cast<int>(noise >> 16), square, kind * 128, impulse, 0};
      const auto sample = static_cast<int16_t>(samples[kind % 5]);
      memcpy(&pcm[first + 2 * n], &sample, sizeof(sample));
    }
    const auto channel = [first](auto& samples, size_t ear) {
      return reinterpret_cast<int16_t*>(&samples[first + 2 * ear]);
    };
    int16_t* in_channels[2] = {channel(pcm, 0), kind & 64 ? nullptr : channel(pcm, 1)};
    int16_t* out_channels[2] = {channel(out, 0), channel(out, 1)};
    const bcap_buffer_desc_t in{kind & 128 ? input.Byte() : 2u, 2, 4, in_channels};
    const bcap_buffer_desc_t to{2, 2, 4, kind & 32 ? in_channels : out_channels};
    const int result = stage(handle_, &in, &to, scratch_start_);
    FUZZ_CHECK(IsOneOf(result, {0, 1, 6, 10}));
  }

  void Check() {
    bcap::Parameters parameters;
    if (bcap::inspect_parameters(handle_, parameters)) {
      for (const bcap::BandTable* table :
           {&parameters.peq_band_gain, &parameters.nfm_band_energy}) {
        FUZZ_CHECK(table->guard_before == 0x5AFE57A7u && table->guard_after == 0x5AFE57A7u);
      }
    }
  }

  bcap_handle_t handle() const { return handle_; }

 private:
  bcap_handle_t handle_ = nullptr;
  std::vector<char> memory_;
  std::vector<char> scratch_;
  char* scratch_start_ = nullptr;
};

}  // namespace

void FuzzOne(Input& input) {
  Library library(input);
  while (!input.empty()) {
    const size_t what = input.Below(8);
    if (what == 0) {
      library.Start(input);
    } else if (what == 1) {
      library.SetTable(input);
    } else if (what == 2) {
      bcap_reset(library.handle());
    } else if (what < 5) {
      const auto set = kScalars[input.Below(std::size(kScalars))].set;
      const uint8_t small = input.Byte();
      const auto value = small == 0xFF ? static_cast<int32_t>(input.Word()) : (small - 128) * 4;
      FUZZ_CHECK(set(library.handle(), value) == (library.handle() == nullptr ? 1 : 0));
    } else {
      library.Process(input);
    }
    library.Check();
  }
}
