// The scene, one frame after the other: Voice makes the sound at the talker's mouth, Room takes it to
// both ears. All levels are relative until the last step, which scales to full range.
#include "platform/virtual_headset/scene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <tuple>
#include <vector>

namespace virtual_headset {
namespace {

constexpr float kPi = 3.14159265F;
constexpr float kSpeedOfSoundMps = 343.0F;
constexpr size_t kEars = 2;  // left, right

// Xorshift generator (G. Marsaglia, "Xorshift RNGs", 2003): the same sequence everywhere.
class Random {
 public:
  explicit Random(uint32_t seed) : state_(seed * 2654435761U + 0x9E3779B9U) {
    state_ = state_ == 0 ? 1 : state_;
  }
  float Symmetric() { return static_cast<float>(static_cast<int32_t>(Next())) * 0x1p-31F; }
  float Between(float low, float high) {
    return low + (high - low) * static_cast<float>(Next() >> 8) * 0x1p-24F;
  }
  size_t Below(size_t count) { return Next() % count; }

 private:
  uint32_t Next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return state_;
  }

  uint32_t state_;
};

// Share of the way to its target that a value goes in one sample.
float SmoothingOf(float time_constant_ms, float rate_hz) {
  return 1.0F - std::exp(-1000.0F / (time_constant_ms * rate_hz));
}

class OnePole {
 public:
  explicit OnePole(float share) : share_(share) {}
  static OnePole LowPass(float cutoff_hz, float rate_hz) {
    return OnePole(1.0F - std::exp(-2.0F * kPi * std::min(cutoff_hz, 0.45F * rate_hz) / rate_hz));
  }
  float Next(float input) { return state_ += share_ * (input - state_); }

 private:
  float share_;
  float state_ = 0;
};

// Two-pole digital resonator with gain 1 at 0 Hz (D. H. Klatt, "Software for a cascade/parallel
// formant synthesizer", JASA 67, 1980, eq. 1 and 2), or at its own frequency.
class Resonator {
 public:
  void Tune(float frequency_hz, float bandwidth_hz, float rate_hz, bool unity_at_peak = false) {
    const float angle = 2.0F * kPi * std::min(frequency_hz, 0.45F * rate_hz) / rate_hz;
    const float radius = std::exp(-kPi * bandwidth_hz / rate_hz);
    c_ = -radius * radius;
    b_ = 2.0F * radius * std::cos(angle);
    a_ = unity_at_peak ? (1.0F - radius) * std::sqrt(1.0F - 2.0F * radius * std::cos(2.0F * angle) +
                                                     radius * radius)
                       : 1.0F - b_ - c_;
  }
  float Next(float input) {
    const float output = a_ * input + b_ * last_ + c_ * before_last_;
    before_last_ = last_;
    return last_ = output;
  }

 private:
  float a_ = 1, b_ = 0, c_ = 0;
  float last_ = 0, before_last_ = 0;
};

struct Formants {
  float f1_hz, f2_hz, f3_hz;
};

// Averages of men's vowels (G. E. Peterson and H. L. Barney, "Control methods used in a study of the
// vowels", JASA 24, 1952, table II).
constexpr Formants kVowels[] = {
    {270, 2290, 3010}, {390, 1990, 2550}, {530, 1840, 2480}, {660, 1720, 2410}, {730, 1090, 2440},
    {570, 840, 2410},  {440, 1020, 2240}, {300, 870, 2240},  {640, 1190, 2390},
};

// Targets set by ear.
struct Consonant {
  float closure_ms;  // mouth shut before it
  float steady_ms;
  float breath_ms;  // breath in the vowel's position after it
  Formants formants;
  float closure_voice, voice, hiss, hiss_hz;
};
// clang-format off
constexpr Consonant kConsonants[] = {
    // shut  steady breath      formants         shut   voice  hiss   hiss_hz
    {  0,    70,    0,    { 250, 1100, 2200}, 0.00F, 0.30F, 0.00F, 1000},  // m
    {  0,    65,    0,    { 250, 1500, 2500}, 0.00F, 0.30F, 0.00F, 1000},  // n
    {  0,    60,    0,    { 360, 1300, 2700}, 0.00F, 0.60F, 0.00F, 1000},  // l
    {  0,    60,    0,    { 350, 1150, 1550}, 0.00F, 0.60F, 0.00F, 1000},  // r
    {  0,    60,    0,    { 300,  700, 2200}, 0.00F, 0.55F, 0.00F, 1000},  // w
    {  0,    55,    0,    { 280, 2200, 2900}, 0.00F, 0.55F, 0.00F, 1000},  // y
    {  0,   105,    0,    { 320, 1500, 2600}, 0.00F, 0.00F, 0.16F, 6200},  // s
    {  0,   110,    0,    { 320, 1600, 2500}, 0.00F, 0.00F, 0.20F, 3200},  // sh
    {  0,    85,    0,    { 320, 1100, 2200}, 0.00F, 0.00F, 0.05F, 7500},  // f
    {  0,     0,   65,    { 500, 1500, 2500}, 0.00F, 0.00F, 0.00F, 1000},  // h
    { 55,     8,    0,    { 200,  800, 2100}, 0.08F, 0.20F, 0.12F,  900},  // b
    { 55,     8,    0,    { 200, 1700, 2600}, 0.08F, 0.20F, 0.14F, 3800},  // d
    { 55,    12,    0,    { 200, 1950, 2350}, 0.08F, 0.20F, 0.14F, 1900},  // g
    { 70,    10,   30,    { 250,  850, 2100}, 0.00F, 0.00F, 0.18F, 1000},  // p
    { 70,    12,   35,    { 250, 1750, 2600}, 0.00F, 0.00F, 0.22F, 4200},  // t
    { 70,    16,   40,    { 250, 1900, 2300}, 0.00F, 0.00F, 0.20F, 2100},  // k
};
// clang-format on
constexpr size_t kCodas[] = {0, 1, 2, 6};  // m, n, l, s

// A stretch of speech with constant targets.
struct Phone {
  float duration_ms = 0;
  Formants formants{500, 1500, 2500};
  float voice = 0, breath = 0, hiss = 0, hiss_hz = 1000;
  float pitch_hz = 110;
};

// Formant synthesis of invented phrases: glottal pulses and breath through a cascade of formants,
// hiss beside it.
class Voice {
 public:
  Voice(uint32_t rate_hz, Random random)
      : rate_hz_(static_cast<float>(rate_hz)), random_(random), move_(SmoothingOf(11, rate_hz_)),
        swell_(SmoothingOf(5, rate_hz_)), glide_(SmoothingOf(45, rate_hz_)),
        samples_per_update_(std::max<uint32_t>(1, rate_hz / 1000)) {
    // Left out, and so passing everything on, where the rate has no room for them.
    if (rate_hz >= 11025) {
      upper_[0].Tune(3500, 180, rate_hz_);
      upper_[1].Tune(4500, 250, rate_hz_);
    }
  }

  float Next() {
    if (samples_left_ <= 0) {
      Advance();
    }
    --samples_left_;
    Approach();
    if (until_update_-- == 0) {
      until_update_ = samples_per_update_ - 1;
      formant_[0].Tune(now_.formants.f1_hz, 70, rate_hz_);
      formant_[1].Tune(now_.formants.f2_hz, 95, rate_hz_);
      formant_[2].Tune(now_.formants.f3_hz, 140, rate_hz_);
      hiss_.Tune(now_.hiss_hz, 0.45F * now_.hiss_hz, rate_hz_, true);
    }
    const float noise = random_.Symmetric();
    float sound = now_.voice * Glottis() + now_.breath * 0.25F * noise;
    for (Resonator& resonator : formant_) {
      sound = resonator.Next(sound);
    }
    for (Resonator& resonator : upper_) {
      sound = resonator.Next(sound);
    }
    return sound + 4.0F * now_.hiss * hiss_.Next(noise);
  }

 private:
  // Slope of the glottal flow; pulse of A. E. Rosenberg, "Effect of glottal pulse shape on the quality
  // of natural vowels", JASA 49, 1971, trigonometric form, open for 56 % of the period.
  float Glottis() {
    constexpr float kRise = 0.40F;
    constexpr float kFall = 0.16F;
    const float step = now_.pitch_hz * (1.0F + jitter_) / rate_hz_;
    phase_ += step;
    if (phase_ >= 1.0F) {
      phase_ -= 1.0F;
      jitter_ = 0.008F * random_.Symmetric();
    }
    float flow = 0;
    if (phase_ < kRise) {
      flow = 0.5F * (1.0F - std::cos(kPi * phase_ / kRise));
    } else if (phase_ < kRise + kFall) {
      flow = std::cos(0.5F * kPi * (phase_ - kRise) / kFall);
    }
    const float slope = (flow - flow_) / step;
    flow_ = flow;
    return 0.1F * slope;
  }

  void Approach() {
    const Phone& target = phones_[current_];
    const auto approach = [](float& value, float goal, float share) {
      value += share * (goal - value);
    };
    // Two poles in a row: no corner where one sound turns into the next.
    for (auto [value, between, goal] :
         {std::tuple(&now_.formants.f1_hz, &between_.f1_hz, target.formants.f1_hz),
          std::tuple(&now_.formants.f2_hz, &between_.f2_hz, target.formants.f2_hz),
          std::tuple(&now_.formants.f3_hz, &between_.f3_hz, target.formants.f3_hz)}) {
      approach(*between, goal, move_);
      approach(*value, *between, move_);
    }
    approach(now_.voice, target.voice, swell_);
    approach(now_.breath, target.breath, swell_);
    approach(now_.hiss, target.hiss, swell_);
    approach(now_.pitch_hz, target.pitch_hz, glide_);
    now_.hiss_hz = target.hiss_hz;
  }

  void Advance() {
    ++current_;
    if (current_ >= count_) {
      PlanPhrase();
    }
    samples_left_ += phones_[current_].duration_ms * rate_hz_ / 1000.0F;
  }

  void Add(const Phone& phone) {
    if (phone.duration_ms > 0 && count_ < phones_.size()) {
      phones_[count_++] = phone;
    }
  }

  void AddConsonant(const Consonant& consonant, const Formants& vowel, float pitch_hz) {
    Phone phone;
    phone.pitch_hz = pitch_hz;
    phone.formants = consonant.formants;
    phone.hiss_hz = consonant.hiss_hz;
    phone.duration_ms = consonant.closure_ms;
    phone.voice = consonant.closure_voice;
    Add(phone);
    phone.duration_ms = consonant.steady_ms;
    phone.voice = consonant.voice;
    phone.hiss = consonant.hiss;
    Add(phone);
    phone.duration_ms = consonant.breath_ms;
    phone.formants = vowel;
    phone.voice = phone.hiss = 0;
    phone.breath = 0.5F;
    Add(phone);
  }

  // Some words, a falling pitch with an accent on each word, and a pause to breathe.
  void PlanPhrase() {
    current_ = count_ = 0;
    const size_t words = 3 + random_.Below(4);
    const bool question = random_.Below(4) == 0;
    for (size_t word = 0; word < words; ++word) {
      const size_t syllables = 1 + random_.Below(3);
      const size_t stressed = random_.Below(syllables);
      for (size_t syllable = 0; syllable < syllables; ++syllable) {
        const bool last = word + 1 == words && syllable + 1 == syllables;
        const bool stress = syllable == stressed;
        const float progress = static_cast<float>(word) / static_cast<float>(words);
        float pitch_hz = 122.0F - 26.0F * progress + (stress ? random_.Between(10, 26) : 0.0F);
        if (last) {
          pitch_hz = question ? 165.0F : 84.0F;
        }
        const Formants vowel = kVowels[random_.Below(std::size(kVowels))];
        if (random_.Below(6) != 0) {
          AddConsonant(kConsonants[random_.Below(std::size(kConsonants))], vowel, pitch_hz);
        }
        Phone phone;
        phone.duration_ms =
            (stress ? random_.Between(110, 160) : random_.Between(65, 95)) * (last ? 1.6F : 1.0F);
        phone.formants = vowel;
        phone.voice = stress ? 1.0F : 0.7F;
        phone.breath = 0.02F;
        phone.pitch_hz = pitch_hz;
        Add(phone);
        if (random_.Below(4) == 0) {
          AddConsonant(kConsonants[kCodas[random_.Below(std::size(kCodas))]], vowel, pitch_hz);
        }
      }
    }
    Phone pause;
    pause.duration_ms = random_.Between(350, 850);
    Add(pause);
  }

  const float rate_hz_;
  Random random_;
  const float move_, swell_, glide_;  // shares per sample: formants, levels, pitch
  const uint32_t samples_per_update_;
  uint32_t until_update_ = 0;
  std::array<Phone, 160> phones_;  // the longest phrase: 6 words, 3 syllables, 7 phones, a pause
  size_t count_ = 0;
  size_t current_ = 0;
  float samples_left_ = 0;
  Phone now_;
  Formants between_{500, 1500, 2500};
  std::array<Resonator, 3> formant_;
  std::array<Resonator, 2> upper_;
  Resonator hiss_;
  float phase_ = 0, jitter_ = 0, flow_ = 0;
};

// What has been said lately, to be heard later.
class DelayLine {
 public:
  explicit DelayLine(size_t least_samples) : samples_(2) {
    while (samples_.size() < least_samples + 2) {
      samples_.resize(2 * samples_.size());
    }
  }
  void Write(float sample) {
    position_ = (position_ + 1) & (samples_.size() - 1);
    samples_[position_] = sample;
  }
  float Read(size_t delay) const { return samples_[(position_ - delay) & (samples_.size() - 1)]; }
  float Read(float delay) const {
    const auto whole = static_cast<size_t>(delay);
    const float part = delay - static_cast<float>(whole);
    return (1.0F - part) * Read(whole) + part * Read(whole + 1);
  }

 private:
  std::vector<float> samples_;
  size_t position_ = 0;
};

// The ear's side of a sound that comes from one direction: delay and shadow of a spherical head
// (C. P. Brown and R. O. Duda, "A structural model for binaural sound synthesis", IEEE Trans. Speech
// and Audio Processing 6, 1998, eq. 2 to 5).
constexpr float kHeadRadiusM = 0.0875F;

float HeadDelayS(float incidence) {
  return kHeadRadiusM / kSpeedOfSoundMps *
         (incidence < 0.5F * kPi ? -std::cos(incidence) : incidence - 0.5F * kPi);
}

class HeadShadow {
 public:
  explicit HeadShadow(float rate_hz) {
    const float corner = kSpeedOfSoundMps / kHeadRadiusM / rate_hz;  // half of 2c/a, times 1/fs
    scale_ = 1.0F / (1.0F + corner);
    low_ = corner * scale_;
    feedback_ = (1.0F - corner) * scale_;
  }
  void Turn(float incidence) {
    constexpr float kLeast = 0.1F;
    constexpr float kDarkest = 150.0F * kPi / 180.0F;
    alpha_ = 1.0F + 0.5F * kLeast + (1.0F - 0.5F * kLeast) * std::cos(incidence / kDarkest * kPi);
  }
  float Next(float input) {
    const float high = alpha_ * scale_;
    const float output = (low_ + high) * input + (low_ - high) * last_in_ + feedback_ * last_out_;
    last_in_ = input;
    return last_out_ = output;
  }

 private:
  float scale_, low_, feedback_;
  float alpha_ = 1;
  float last_in_ = 0, last_out_ = 0;
};

// A talker on a circle round the listener's head in a box-shaped room: the direct sound, one
// reflection from each wall by mirror images (J. B. Allen and D. A. Berkley, JASA 65, 1979), late
// reverberation by a feedback delay network (J.-M. Jot and A. Chaigne, AES 90th Convention, 1991),
// and the room's own noise.
class Room {
 public:
  Room(uint32_t rate_hz, Random random)
      : rate_hz_(static_cast<float>(rate_hz)), random_(random),
        heard_(static_cast<size_t>(kLongestPathM / kSpeedOfSoundMps * rate_hz_)),
        shadow_{HeadShadow(rate_hz_), HeadShadow(rate_hz_)}, back_{OnePole::LowPass(4500, rate_hz_),
                                                                   OnePole::LowPass(4500,
                                                                                    rate_hz_)},
        walls_{OnePole::LowPass(5000, rate_hz_), OnePole::LowPass(5000, rate_hz_)},
        rumble_(OnePole::LowPass(90, rate_hz_)), air_{OnePole::LowPass(350, rate_hz_),
                                                      OnePole::LowPass(350, rate_hz_)},
        whisper_{OnePole::LowPass(2500, rate_hz_), OnePole::LowPass(2500, rate_hz_)} {
    for (size_t i = 0; i < kLines; ++i) {
      const auto length = static_cast<size_t>(kLineMs[i] * rate_hz_ / 1000.0F);
      lines_.push_back({DelayLine(length), length, OnePole::LowPass(3800, rate_hz_),
                        std::pow(10.0F, -3.0F * kLineMs[i] / 1000.0F / kReverberationS)});
    }
    Move(/*jump=*/true);
  }

  std::array<float, kEars> Next(float voice) {
    heard_.Write(voice);
    if (until_move_-- == 0) {
      until_move_ = kSamplesPerMove - 1;
      Move(/*jump=*/false);
    }
    std::array<float, kEars> ears = Reverberation(voice);
    for (size_t ear = 0; ear < kEars; ++ear) {
      float reflections = 0;
      for (size_t path = 0; path < kPaths; ++path) {
        Tap& tap = taps_[path][ear];
        tap.delay += tap.delay_step;
        tap.gain += tap.gain_step;
        const float sound = tap.gain * heard_.Read(tap.delay);
        if (path > 0) {
          reflections += sound;
          continue;
        }
        // The outer ear takes the brilliance from what comes from behind.
        const float shadowed = shadow_[ear].Next(sound);
        const float dull = back_[ear].Next(shadowed);
        ears[ear] += dull + brilliance_ * (shadowed - dull);
      }
      ears[ear] += walls_[ear].Next(reflections);
    }
    AddNoise(ears);
    return ears;
  }

 private:
  static constexpr size_t kPaths = 7;  // direct, then one for each wall, floor and ceiling
  static constexpr size_t kLines = 8;
  static constexpr uint32_t kSamplesPerMove = 64;
  static constexpr float kLongestPathM = 14.0F;
  static constexpr float kTalkerDistanceM = 1.3F;
  static constexpr float kRoundS = 16.0F;
  static constexpr float kWallGain = 0.6F;
  static constexpr float kReverberationS = 0.42F;
  static constexpr float kReverberationLevel = 0.05F;
  // Without a common measure, so that no pitch is heard.
  static constexpr float kLineMs[kLines] = {29.7F, 31.3F, 37.1F, 41.1F, 43.7F, 47.9F, 53.3F, 59.1F};

  struct Tap {
    float delay = 0, delay_step = 0;  // samples
    float gain = 0, gain_step = 0;
  };
  struct Line {
    DelayLine delay;
    size_t length;
    OnePole damping;
    float gain;
  };

  // Sets the taps' course for the next samples by where the talker will be at their end.
  void Move(bool jump) {
    // x to the right, y to the front, z up, in m from the listener's head; the walls beyond it.
    constexpr float kRight = 2.1F, kLeft = -2.9F, kFront = 2.6F, kBack = -1.8F;
    constexpr float kCeiling = 1.2F, kFloor = -1.4F;
    const float angle = 2.0F * kPi * time_s_ / kRoundS;
    time_s_ = std::fmod(time_s_ + kSamplesPerMove / rate_hz_, kRoundS);
    const float x = kTalkerDistanceM * std::sin(angle);
    const float y = kTalkerDistanceM * std::cos(angle);
    const std::array<std::array<float, 3>, kPaths> images = {{
        {x, y, 0},
        {2 * kRight - x, y, 0},
        {2 * kLeft - x, y, 0},
        {x, 2 * kFront - y, 0},
        {x, 2 * kBack - y, 0},
        {x, y, 2 * kCeiling},
        {x, y, 2 * kFloor},
    }};
    brilliance_ = 0.75F + 0.25F * std::cos(angle);
    for (size_t path = 0; path < kPaths; ++path) {
      const auto [ix, iy, iz] = images[path];
      const float distance_m = std::sqrt(ix * ix + iy * iy + iz * iz);
      for (size_t ear = 0; ear < kEars; ++ear) {
        const float towards = (ear == 0 ? -ix : ix) / distance_m;  // 1: straight into this ear
        const float incidence = std::acos(std::clamp(towards, -1.0F, 1.0F));
        const float delay = (distance_m / kSpeedOfSoundMps + HeadDelayS(incidence)) * rate_hz_;
        float gain = 1.0F / distance_m;
        if (path == 0) {
          shadow_[ear].Turn(incidence);
        } else {
          gain *= kWallGain * (0.7F + 0.3F * towards);
        }
        Tap& tap = taps_[path][ear];
        if (jump) {
          tap.delay = delay;
          tap.gain = gain;
        }
        tap.delay_step = (delay - tap.delay) / kSamplesPerMove;
        tap.gain_step = (gain - tap.gain) / kSamplesPerMove;
      }
    }
  }

  std::array<float, kEars> Reverberation(float voice) {
    std::array<float, kLines> out;
    for (size_t i = 0; i < kLines; ++i) {
      Line& line = lines_[i];
      out[i] = line.gain * line.damping.Next(line.delay.Read(line.length - 1));
    }
    // Each ear hears the lines with signs of its own, so that the tail surrounds the head.
    const std::array<float, kEars> ears = {
        kReverberationLevel *
            (out[0] - out[1] + out[2] - out[3] + out[4] - out[5] + out[6] - out[7]),
        kReverberationLevel *
            (out[0] + out[1] - out[2] - out[3] + out[4] + out[5] - out[6] - out[7]),
    };
    // Householder mixing: energy is kept, every line feeds every other.
    float sum = 0;
    for (const float sample : out) {
      sum += sample;
    }
    for (size_t i = 0; i < kLines; ++i) {
      lines_[i].delay.Write(out[i] - sum * (2.0F / kLines) + voice);
    }
    return ears;
  }

  // Low frequencies reach both ears alike, high ones each ear by itself, as in any diffuse field.
  void AddNoise(std::array<float, kEars>& ears) {
    const float rumble = kRumble * rumble_.Next(random_.Symmetric());
    for (size_t ear = 0; ear < kEars; ++ear) {
      const float noise = random_.Symmetric();
      ears[ear] += rumble + kAir * air_[ear].Next(noise) + kWhisper * whisper_[ear].Next(noise) +
                   kSelfNoise * noise;
    }
  }
  static constexpr float kRumble = 0.17F;
  static constexpr float kAir = 0.09F;
  static constexpr float kWhisper = 0.03F;
  static constexpr float kSelfNoise = 0.0015F;

  const float rate_hz_;
  Random random_;
  DelayLine heard_;
  std::array<std::array<Tap, kEars>, kPaths> taps_;
  std::array<HeadShadow, kEars> shadow_;
  std::array<OnePole, kEars> back_, walls_;
  OnePole rumble_;
  std::array<OnePole, kEars> air_, whisper_;
  std::vector<Line> lines_;
  float brilliance_ = 1;
  float time_s_ = 0;
  uint32_t until_move_ = 0;
};

class Scene : public SoundSource {
 public:
  explicit Scene(uint32_t rate_hz) : voice_(rate_hz, Random(1)), room_(rate_hz, Random(2)) {}

  void Render(int16_t* stereo, size_t frames) override {
    for (size_t i = 0; i < frames; ++i) {
      for (const float ear : room_.Next(voice_.Next())) {
        *stereo++ =
            static_cast<int16_t>(std::lround(std::clamp(ear * kFullScale, -32768.0F, 32767.0F)));
      }
    }
  }

 private:
  static constexpr float kFullScale = 1830.0F;  // set for speech at -30 LUFS

  Voice voice_;
  Room room_;
};

}  // namespace

std::unique_ptr<SoundSource> MakeScene(uint32_t rate_hz) {
  return std::make_unique<Scene>(rate_hz);
}

}  // namespace virtual_headset
