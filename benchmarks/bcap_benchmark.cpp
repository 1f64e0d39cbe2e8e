// What each block of 512 frames costs: every stage, the whole chain, the transforms alone, and two
// general-purpose processors for comparison, all in one run and by turns, so that whatever else the machine
// does falls on all of them alike. Times are of this thread's processor, not of the clock on the wall.
//
// usage: bcap_benchmark                   a table of times and ratios
//        bcap_benchmark --list            the names of the cases
//        bcap_benchmark --run CASE COUNT  COUNT blocks of one case, for a tool that counts instructions
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#ifdef WITH_SPEEX
#include <speex/speex_preprocess.h>
#endif
#ifdef WITH_WEBRTC
#include "webrtc/modules/audio_processing/include/audio_processing.h"
#endif

#include "bcap.h"
#include "bcap/src/chain.h"

namespace {

constexpr size_t kBlock = 512;
constexpr size_t kSignalBlocks = 64;
constexpr uint32_t kRate = 48000;
constexpr size_t kWarmUpBlocks = 200;
constexpr size_t kTimedBlocks = 4000;

// Noise with a slow swell, some 30 dB below full scale, so that no stage finds a short cut.
struct Signal {
  std::vector<int16_t> frames;  // interleaved
  std::vector<float> planar[2];

  Signal() : frames(2 * kBlock * kSignalBlocks) {
    uint32_t random = 1;
    for (size_t n = 0; n < frames.size(); ++n) {
      random = random * 1664525u + 1013904223u;
      const int swell = static_cast<int>(n / 8192 % 4) + 1;
      frames[n] = static_cast<int16_t>((static_cast<int32_t>(random) >> 16) * swell / 64);
      planar[n % 2].push_back(static_cast<float>(frames[n]) / 32768.0f);
    }
  }
  const int16_t* Block(size_t index) const { return &frames[index % kSignalBlocks * 2 * kBlock]; }
  const float* Ear(size_t ear, size_t index) const {
    return &planar[ear][index % kSignalBlocks * kBlock];
  }
};

struct Case {
  std::string name;
  std::function<void(size_t block)> run;
};

class Library {
 public:
  explicit Library(bool everything) {
    const bcap_config_t config{kRate, kBlock, 0, 600};
    memory_.resize(bcap_query_memory(&config));
    scratch_.resize(bcap_query_scratch(&config));
    bcap_init(&config, memory_.data(), &handle_);
    bcap_hpf_enable_set(handle_, everything);
    bcap_lrc_enable_set(handle_, everything);
    bcap_pregain_enable_set(handle_, everything);
    bcap_rnn_enable_set(handle_, everything);
    bcap_postgain_enable_set(handle_, everything);
    if (everything) {
      bcap_pregain_boost_set(handle_, 256);
      bcap_postgain_boost_set(handle_, 320);
      bcap_postgain_limiter_peak_set(handle_, 241);
      bcap_peq_band_gain_tuning_set(handle_, 73, A_PEQ_TUNING_DATA_PRESET1_SR48K);
      bcap_nfm_band_energy_tuning_set(handle_, 73, A_NFM_TUNING_DATA_SR48K);
    }
  }
  ~Library() { bcap_shutdown(handle_); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  void Process(const int16_t* frames) {
    std::copy(frames, frames + 2 * kBlock, block_);
    int16_t* channels[2] = {block_, block_ + 1};
    const bcap_buffer_desc_t desc{2, 2, 4, channels};
    bcap_pre_process(handle_, &desc, &desc, scratch_.data());
  }

 private:
  std::vector<char> memory_;
  std::vector<char> scratch_;
  bcap_handle_t handle_ = nullptr;
  int16_t block_[2 * kBlock];
};

// Everything a stage on its own needs.
struct Stages {
  bcap::Scratch scratch;
  bcap::Parameters parameters = bcap::default_parameters(0);
  bcap::HighPass high_pass;
  bcap::PeakLimiter<448> limiter;
  bcap::StereoStft stft;
  bcap::NoiseReduction noise_reduction;
  bcap::NearField near_field;
  bcap::Equalizer equalizer;
  bcap::EarBalance ear_balance;
  bcap::MakeUpGain make_up_gain;
  bcap::Ramp full;
  bcap::BandSpectra bands{};
  std::vector<float> band_gains = std::vector<float>(bcap::kMaxBands, 0.7f);
  std::vector<float> bin_gains = std::vector<float>(bcap::kBins);
  bcap::StereoSpectrum spectrum{};
  std::array<float, bcap::kFrameSamples> frame;

  Stages() {
    std::copy_n(A_PEQ_TUNING_DATA_PRESET1_SR48K, 73, parameters.peq_band_gain.values.begin());
    std::copy_n(A_NFM_TUNING_DATA_SR48K, 73, parameters.nfm_band_energy.values.begin());
    high_pass.Prepare(kRate);
    limiter.Prepare(kRate);
    stft.Reset();
    noise_reduction.Prepare(kRate);
    near_field.Prepare(kRate);
    near_field.Configure(parameters);
    equalizer.Configure(parameters);
    ear_balance.Prepare(kRate);
    make_up_gain.Prepare(kRate);
    full.Snap(1.0f);
  }

  bcap::StereoBlock Load(const Signal& signal, size_t block) {
    std::copy_n(signal.Ear(0, block), kBlock, scratch.samples.left.begin());
    std::copy_n(signal.Ear(1, block), kBlock, scratch.samples.right.begin());
    return scratch.samples.block();
  }
};

std::vector<Case> cases(const Signal& signal) {
  std::vector<Case> all;
  auto everything = std::make_shared<Library>(true);
  all.push_back(
      {"whole chain", [&signal, everything](size_t n) { everything->Process(signal.Block(n)); }});
  auto nothing = std::make_shared<Library>(false);
  all.push_back({"whole chain, all off",
                 [&signal, nothing](size_t n) { nothing->Process(signal.Block(n)); }});

  auto s = std::make_shared<Stages>();
  const bcap::BandLayout& layout = bcap::band_layout(kRate);
  all.push_back({"2 + 2 transforms", [&signal, s](size_t n) {
                   for (size_t ear = 0; ear < 2; ++ear) {
                     // Any 1024 samples do; the last block has no successor.
                     const float* frame = signal.Ear(ear, n % (kSignalBlocks - 1));
                     bcap::forward_real_transform(frame, s->spectrum[ear], s->scratch.transform);
                     bcap::inverse_real_transform(s->spectrum[ear], s->frame.data(),
                                                  s->scratch.transform);
                   }
                 }});
  all.push_back(
      {"hpf", [&signal, s](size_t n) { s->high_pass.Process(s->Load(signal, n), s->full); }});
  all.push_back({"limiter, at work",
                 [&signal, s](size_t n) { s->limiter.Process(s->Load(signal, n), 0.02f); }});
  all.push_back({"windows and transforms", [&signal, s](size_t n) {
                   const bcap::StereoBlock block = s->Load(signal, n);
                   s->stft.Analyse(block.left, block.right, s->scratch.transform);
                   s->stft.Synthesise(block.left, block.right, s->scratch.transform);
                 }});
  all.push_back({"band measurement", [s, &layout](size_t) {
                   bcap::measure_bands(layout, s->stft.newest(), s->bands);
                 }});
  all.push_back(
      {"rnn", [s](size_t) { s->noise_reduction.Process(s->bands, 1.0f, s->band_gains.data()); }});
  all.push_back({"nfm", [s](size_t) {
                   std::fill(s->band_gains.begin(), s->band_gains.end(), 1.0f);
                   s->near_field.Process(s->bands, 1.0f, s->band_gains.data());
                 }});
  all.push_back({"peq, applying all gains", [s, &layout](size_t) {
                   std::fill(s->band_gains.begin(), s->band_gains.end(), 0.999f);
                   bcap::spread_band_gains(layout, s->band_gains.data(), s->bin_gains.data());
                   bcap::apply_bin_gains(s->bin_gains.data(), s->spectrum);
                 }});
  all.push_back(
      {"lrc", [&signal, s](size_t n) { s->ear_balance.Process(s->Load(signal, n), true, false); }});
  all.push_back({"postgain, without limiter", [&signal, s](size_t n) {
                   s->make_up_gain.Process(s->Load(signal, n), true, 20.0f, -18.0f, false);
                 }});

#ifdef WITH_SPEEX
  std::vector<std::shared_ptr<SpeexPreprocessState>> speex;
  for (int ear = 0; ear < 2; ++ear) {
    speex.emplace_back(speex_preprocess_state_init(kBlock, kRate), speex_preprocess_state_destroy);
  }
  all.push_back({"Speex preprocessor, 2 channels", [&signal, speex](size_t n) {
                   int16_t ears[2][kBlock];
                   for (size_t i = 0; i < kBlock; ++i) {
                     ears[0][i] = signal.Block(n)[2 * i];
                     ears[1][i] = signal.Block(n)[2 * i + 1];
                   }
                   speex_preprocess_run(speex[0].get(), ears[0]);
                   speex_preprocess_run(speex[1].get(), ears[1]);
                 }});
#endif
#ifdef WITH_WEBRTC
  std::shared_ptr<webrtc::AudioProcessing> webrtc_processing(webrtc::AudioProcessing::Create());
  webrtc_processing->noise_suppression()->Enable(true);
  webrtc_processing->high_pass_filter()->Enable(true);
  webrtc_processing->gain_control()->set_mode(webrtc::GainControl::kAdaptiveDigital);
  webrtc_processing->gain_control()->Enable(true);
  // It takes 10 ms at a time: 480 frames, so each block of 512 runs it on 480 and the table scales the time.
  all.push_back({"WebRTC processing, 2 channels", [&signal, webrtc_processing](size_t n) {
                   float ears[2][480];
                   std::copy_n(signal.Ear(0, n), 480, ears[0]);
                   std::copy_n(signal.Ear(1, n), 480, ears[1]);
                   float* channels[2] = {ears[0], ears[1]};
                   const webrtc::StreamConfig stereo(kRate, 2);
                   webrtc_processing->ProcessStream(channels, stereo, stereo, channels);
                 }});
#endif
  return all;
}

double scale_of(const Case& c) {
  return c.name.rfind("WebRTC", 0) == 0 ? 512.0 / 480.0 : 1.0;
}

double thread_microseconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) * 1e-3;
}

void print_table(const std::vector<Case>& all) {
  std::vector<std::vector<double>> times(all.size());
  for (size_t block = 0; block < kWarmUpBlocks + kTimedBlocks; ++block) {
    for (size_t c = 0; c < all.size(); ++c) {
      const double start = thread_microseconds();
      all[c].run(block);
      const double stop = thread_microseconds();
      if (block >= kWarmUpBlocks) {
        times[c].push_back((stop - start) * scale_of(all[c]));
      }
    }
  }
  double floor = 1.0;
  double peer = 0.0;
  for (size_t c = 0; c < all.size(); ++c) {
    std::sort(times[c].begin(), times[c].end());
    const double median = times[c][kTimedBlocks / 2];
    floor = all[c].name == "2 + 2 transforms" ? median : floor;
    peer = all[c].name.rfind("Speex", 0) == 0 ? median : peer;
  }
  std::printf("%-32s %9s %9s %11s %10s %9s\n", "per 512 frames, both ears", "median us", "99.9 %",
              "slowest/med", "transforms", peer > 0.0 ? "Speex" : "");
  for (size_t c = 0; c < all.size(); ++c) {
    const double median = times[c][kTimedBlocks / 2];
    std::printf("%-32s %9.2f %9.2f %11.2f %10.2f", all[c].name.c_str(), median,
                times[c][kTimedBlocks - kTimedBlocks / 1000 - 1], times[c].back() / median,
                median / floor);
    if (peer > 0.0) {
      std::printf(" %9.3f", median / peer);
    }
    std::printf("\n");
  }
}

}  // namespace

int main(int argc, char** argv) {
  const Signal signal;
  const std::vector<Case> all = cases(signal);
  if (argc == 1) {
    print_table(all);
    return 0;
  }
  if (argc == 2 && std::strcmp(argv[1], "--list") == 0) {
    for (const Case& c : all) {
      std::printf("%s\n", c.name.c_str());
    }
    return 0;
  }
  if (argc == 4 && std::strcmp(argv[1], "--run") == 0) {
    for (const Case& c : all) {
      if (c.name == argv[2]) {
        const size_t count = std::strtoul(argv[3], nullptr, 10);
        for (size_t block = 0; block < count; ++block) {
          c.run(block);
        }
        return 0;
      }
    }
  }
  std::fprintf(stderr, "usage: %s [--list | --run CASE COUNT]\n", argv[0]);
  return 2;
}
