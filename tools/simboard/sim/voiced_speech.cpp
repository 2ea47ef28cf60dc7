#include "sim/voiced_speech.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace {
constexpr double kPi = 3.141592653589793;
constexpr int kFormants = 4;
constexpr double kPeakLevel = 0.5;

struct Vowel {
  double formantHz[kFormants];
};
// Rough formant frequencies of a few vowels of an adult male voice.
constexpr Vowel kVowels[] = {
    {{730, 1090, 2440, 3400}},  // a
    {{270, 2290, 3010, 3700}},  // i
    {{300, 870, 2240, 3300}},   // u
    {{530, 1840, 2480, 3500}},  // e
    {{570, 840, 2410, 3300}},   // o
    {{660, 1720, 2410, 3400}},  // ae
};
constexpr double kFormantBandwidthHz[kFormants] = {80, 100, 140, 180};

// Two-pole resonator with unit gain at DC.
struct Resonator {
  double a1 = 0, a2 = 0, gain = 1, y1 = 0, y2 = 0;
  void tune(double hz, double bandwidthHz, int rate) {
    const double r = std::exp(-kPi * bandwidthHz / rate);
    a1 = 2.0 * r * std::cos(2.0 * kPi * hz / rate);
    a2 = -r * r;
    gain = 1.0 - a1 - a2;
  }
  double step(double x) {
    const double y = gain * x + a1 * y1 + a2 * y2;
    y2 = y1;
    y1 = y;
    return y;
  }
};

// Derivative of a Rosenberg glottal pulse at phase t in 0..1 of one pitch period:
// 40 % opening, 16 % closing, closed for the rest.
double glottalFlowDerivative(double t) {
  constexpr double kOpen = 0.40, kClose = 0.16;
  if (t < kOpen) return 0.5 * kPi / kOpen * std::sin(kPi * t / kOpen);
  if (t < kOpen + kClose)
    return -kPi / (2.0 * kClose) * std::sin(kPi * (t - kOpen) / (2.0 * kClose)) * 2.0;
  return 0.0;
}

struct Syllable {
  size_t start, length;  // in samples
  int vowel;
  double pitchHz;
  double pitchSwing;  // rise-fall (+) or fall-rise (-) of the pitch over the syllable
  bool fricative;     // starts with a hissing consonant
};

constexpr double kAttack = 0.15, kRelease = 0.35;  // parts of a syllable for its rise and fall
constexpr double kFricativeSeconds = 0.05;
constexpr double kFricativeLevel = 0.25;  // relative to the vowel's excitation

// Syllabic envelope: raised-cosine attack and release around a flat nucleus.
double syllableEnvelope(double progress) {
  if (progress < kAttack) return 0.5 - 0.5 * std::cos(kPi * progress / kAttack);
  if (progress > 1.0 - kRelease) return 0.5 - 0.5 * std::cos(kPi * (1.0 - progress) / kRelease);
  return 1.0;
}

std::vector<Syllable> planSyllables(size_t total, int rate, std::mt19937 &rng) {
  std::uniform_real_distribution<double> uni(0.0, 1.0);
  std::vector<Syllable> plan;
  size_t at = 0;
  double basePitch = 110.0 + 30.0 * uni(rng);
  while (at < total) {
    const int syllables = 2 + static_cast<int>(uni(rng) * 3.0);
    for (int s = 0; s < syllables && at < total; ++s) {
      const size_t length = static_cast<size_t>((0.12 + 0.14 * uni(rng)) * rate);
      const double pitch = basePitch * (1.0 + 0.15 * (uni(rng) - 0.5)) * (1.0 - 0.04 * s);
      const double swing = (uni(rng) < 0.5 ? 1.0 : -1.0) * (0.05 + 0.12 * uni(rng));
      plan.push_back(
          {at, length, static_cast<int>(uni(rng) * 6.0) % 6, pitch, swing, uni(rng) < 0.6});
      at += length;
    }
    at += static_cast<size_t>((0.08 + 0.22 * uni(rng)) * rate);
    basePitch = 110.0 + 30.0 * uni(rng);
  }
  return plan;
}
}  // namespace

std::vector<float> makeVoicedSpeech(double seconds, int sampleRate, uint32_t seed) {
  const size_t total = static_cast<size_t>(std::max(0.0, seconds) * sampleRate);
  std::vector<float> out(total, 0.0f);
  std::mt19937 rng(seed);
  std::normal_distribution<double> gauss(0.0, 1.0);
  const std::vector<Syllable> plan = planSyllables(total, sampleRate, rng);

  Resonator formant[kFormants];
  double phase = 0.0, lastWhite = 0.0;
  double previousFormant[kFormants];
  for (int f = 0; f < kFormants; ++f) previousFormant[f] = kVowels[0].formantHz[f];
  double peak = 0.0;
  for (const Syllable &syl : plan) {
    const Vowel &target = kVowels[syl.vowel];
    for (size_t n = 0; n < syl.length && syl.start + n < total; ++n) {
      const double progress = static_cast<double>(n) / syl.length;
      // Formants glide from the previous vowel during the first 30 % of the syllable.
      const double glide = std::min(1.0, progress / 0.3);
      if (n % 48 == 0)
        for (int f = 0; f < kFormants; ++f)
          formant[f].tune(previousFormant[f] + glide * (target.formantHz[f] - previousFormant[f]),
                          kFormantBandwidthHz[f], sampleRate);
      const double pitch = syl.pitchHz * (1.0 - 0.1 * progress) *
                           (1.0 + syl.pitchSwing * std::sin(kPi * progress)) *
                           (1.0 + 0.005 * gauss(rng));
      phase += pitch / sampleRate;
      phase -= std::floor(phase);
      double x = glottalFlowDerivative(phase) + 0.02 * gauss(rng);
      for (int f = 0; f < kFormants; ++f) x = formant[f].step(x);
      double y = syllableEnvelope(progress) * x;
      // A hiss (differenced noise: mostly high frequencies) fading out over the consonant.
      const double hissTime = static_cast<double>(n) / sampleRate;
      const double white = gauss(rng);
      if (syl.fricative && hissTime < kFricativeSeconds)
        y += kFricativeLevel * (1.0 - hissTime / kFricativeSeconds) * (white - lastWhite);
      lastWhite = white;
      out[syl.start + n] = static_cast<float>(y);
      peak = std::max(peak, std::fabs(y));
    }
    for (int f = 0; f < kFormants; ++f) previousFormant[f] = target.formantHz[f];
  }
  if (peak > 0.0)
    for (float &x : out) x = static_cast<float>(x * (kPeakLevel / peak));
  return out;
}
