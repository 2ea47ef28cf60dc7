#include "voice-reference/voice_sources.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

#include "sim/noise.h"
#include "sim/resample.h"
#include "sim/wav_file.h"

namespace {
constexpr double kTwoPi = 6.283185307179586;
constexpr double kTalkerDbfs = -30.0;
constexpr int kTalkerPrompts = 3;

// Prompts of one recorded talker (2 to 3 s each); a recording takes kTalkerPrompts of
// them in a row, starting where its seed says.
const char *const kPrompts[] = {"agent-newlocation",
                                "at-tone-time-exactly",
                                "call-fwd-no-ans",
                                "cannot-complete-as-dialed",
                                "check-number-dial-again",
                                "conf-getchannel",
                                "conf-invalid",
                                "conf-leaderhasleft",
                                "conf-onlyperson",
                                "conf-placeintoconf",
                                "conf-waitforleader",
                                "confbridge-begin-leader",
                                "confbridge-lock-no-join",
                                "confbridge-only-participant",
                                "demo-nomatch",
                                "dir-firstlast"};
constexpr int kPromptCount = sizeof kPrompts / sizeof kPrompts[0];

const char *const kNoiseNames[] = {"pink", "white", "babble", "fan", "music", "knocks", "street"};

std::vector<float> prompt(const std::string &dir, int index, int pitchedRate) {
  WavData wav;
  if (!wavRead(dir + "/" + kPrompts[index % kPromptCount] + ".wav", &wav).empty() ||
      wav.channels != 1)
    return {};
  // Declaring a rate other than the true one shifts pitch and formants: a different voice.
  return resample(wavChannel(wav, 0), pitchedRate ? pitchedRate : wav.sampleRate, kVoiceRate);
}

// Prompts one after another with pauses of `minPause`..`maxPause` seconds.
std::vector<float> speech(const std::string &dir, int first, int count, int pitchedRate,
                          double minPause, double maxPause, std::mt19937 &rng) {
  std::uniform_real_distribution<double> pause(minPause, maxPause);
  std::vector<float> out;
  for (int k = 0; k < count; ++k) {
    const std::vector<float> p = prompt(dir, first + k, pitchedRate);
    if (p.empty()) return {};
    out.insert(out.end(), p.begin(), p.end());
    out.resize(out.size() + static_cast<size_t>(pause(rng) * kVoiceRate), 0.0f);
  }
  return out;
}

void addDecayingTone(std::vector<float> &x, size_t at, double hz, double amplitude,
                     double decaySeconds) {
  const size_t n = std::min(x.size() - std::min(at, x.size()),
                            static_cast<size_t>(5 * decaySeconds * kVoiceRate));
  for (size_t i = 0; i < n; ++i) {
    const double t = static_cast<double>(i) / kVoiceRate;
    const double attack = std::min(1.0, t / 0.005);
    x[at + i] += static_cast<float>(amplitude * attack * std::exp(-t / decaySeconds) *
                                    std::sin(kTwoPi * hz * t));
  }
}

// Several talkers at once: the prompts at different pitches, little pause.
std::vector<float> babble(const std::string &dir, size_t n, std::mt19937 &rng) {
  const int rates[] = {6800, 7400, 8000, 8800, 9600, 7000};
  std::vector<float> out(n, 0.0f);
  for (int v = 0; v < 6; ++v) {
    std::vector<float> voice;
    for (int first = static_cast<int>(rng() % kPromptCount); voice.size() < n; first += 3) {
      const std::vector<float> part = speech(dir, first, 3, rates[v], 0.05, 0.3, rng);
      if (part.empty()) return {};
      voice.insert(voice.end(), part.begin(), part.end());
    }
    const size_t shift = rng() % n;
    for (size_t i = 0; i < n; ++i) out[i] += voice[(i + shift) % n];
  }
  return out;
}

// A fan: blade-pass tone and harmonics with a wandering phase over
// low-pass broadband air noise.
std::vector<float> fan(size_t n, std::mt19937 &rng) {
  std::normal_distribution<double> g(0.0, 1.0);
  std::vector<float> out(n);
  double low = 0.0, phase = 0.0, drift = 0.0;
  for (size_t i = 0; i < n; ++i) {
    drift = 0.9995 * drift + 0.0005 * g(rng);
    phase += kTwoPi * 96.0 * (1.0 + 0.02 * drift) / kVoiceRate;
    double tone = 0.0;
    for (int h = 1; h <= 8; ++h) tone += std::sin(h * phase) / h;
    low += 0.05 * (g(rng) - low);
    out[i] = static_cast<float>(0.3 * tone * (1.0 + 0.05 * std::sin(phase / 3.0)) + 2.0 * low +
                                0.05 * g(rng));
  }
  return out;
}

// Music-like: chords of harmonic notes on a beat, a bass, a kick and a hi-hat.
std::vector<float> music(size_t n, std::mt19937 &rng) {
  const double scale[] = {220.0, 246.9, 277.2, 329.6, 370.0, 440.0, 493.9, 554.4};
  const size_t beat = kVoiceRate / 4;  // eighth notes at 120 beats per minute
  std::uniform_int_distribution<int> note(0, 7);
  std::normal_distribution<double> g(0.0, 1.0);
  std::vector<float> out(n, 0.0f);
  for (size_t at = 0, k = 0; at < n; at += beat, ++k) {
    if (k % 2 == 0) {
      for (int c = 0; c < 3; ++c) {
        const double f0 = scale[note(rng)] * (c == 0 ? 1.0 : 2.0);
        for (int h = 1; h <= 6; ++h) addDecayingTone(out, at, f0 * h, 0.3 / h, 0.35);
      }
      addDecayingTone(out, at, scale[note(rng)] / 4.0, 0.5, 0.3);
    }
    if (k % 4 == 0) addDecayingTone(out, at, 60.0, 1.0, 0.08);
    for (size_t i = 0; i < 1200 && at + i < n; ++i)
      out[at + i] += static_cast<float>(0.15 * g(rng) * std::exp(-static_cast<double>(i) / 200.0));
  }
  return out;
}

// Door knocks: groups of two to four knuckle raps (damped wooden modes and a
// click) every few seconds over a quiet room.
std::vector<float> knocks(size_t n, std::mt19937 &rng) {
  std::normal_distribution<double> g(0.0, 1.0);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  std::vector<float> out = makeNoise(NoiseColour::Pink, n, rng());
  for (float &x : out) x *= 0.002f;
  for (size_t at = kVoiceRate / 2; at < n;
       at += static_cast<size_t>((1.5 + 1.5 * u(rng)) * kVoiceRate)) {
    const int raps = 2 + static_cast<int>(rng() % 3);
    for (int r = 0; r < raps; ++r) {
      const size_t t = at + static_cast<size_t>(r * (0.16 + 0.05 * u(rng)) * kVoiceRate);
      for (double hz : {170.0, 310.0, 540.0, 930.0})
        addDecayingTone(out, t, hz * (0.95 + 0.1 * u(rng)), 0.4, 0.04);
      for (size_t i = 0; i < 150 && t + i < n; ++i) out[t + i] += static_cast<float>(0.5 * g(rng));
    }
  }
  return out;
}

// Street-like: rumble, a wash of traffic and cars passing by (swelling
// low-passed noise with an engine tone).
std::vector<float> street(size_t n, std::mt19937 &rng) {
  std::normal_distribution<double> g(0.0, 1.0);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  std::vector<float> wash = makeNoise(NoiseColour::Pink, n, rng());
  std::vector<float> out(n);
  double rumble = 0.0, car = 0.0;
  std::vector<double> centre, hz;
  for (double t = 0.5 + 2.0 * u(rng); t < static_cast<double>(n) / kVoiceRate + 1.0;
       t += 1.5 + 2.5 * u(rng)) {
    centre.push_back(t);
    hz.push_back(30.0 + 40.0 * u(rng));
  }
  for (size_t i = 0; i < n; ++i) {
    const double t = static_cast<double>(i) / kVoiceRate;
    rumble = 0.995 * rumble + 0.005 * g(rng) * 10.0;
    car += 0.1 * (g(rng) - car);
    double passing = 0.0, engine = 0.0;
    for (size_t c = 0; c < centre.size(); ++c) {
      const double e = std::exp(-0.5 * std::pow((t - centre[c]) / 0.7, 2.0));
      passing += e;
      engine += e * (std::sin(kTwoPi * hz[c] * t) + 0.5 * std::sin(kTwoPi * 2 * hz[c] * t));
    }
    out[i] = static_cast<float>(0.3 * wash[i] + rumble + passing * 1.5 * car + 0.3 * engine);
  }
  return out;
}

std::string wavWriteMono(const std::string &path, const std::vector<float> &x) {
  WavData wav;
  wav.sampleRate = kVoiceRate;
  wav.channels = 1;
  double peak = 1e-9;
  for (float v : x) peak = std::max(peak, static_cast<double>(std::fabs(v)));
  for (float v : x) wav.samples.push_back(floatToS16(static_cast<float>(0.5 * v / peak)));
  return wavWrite(path, wav);
}
}  // namespace

std::string voiceRecipesRead(const std::string &path, std::vector<VoiceRecipe> *out) {
  std::ifstream in(path);
  if (!in) return "cannot read " + path;
  int lineNo = 0;
  for (std::string line; std::getline(in, line);) {
    ++lineNo;
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    VoiceRecipe r{};
    std::string noise, snr;
    if (!(fields >> r.name >> noise >> snr >> r.seed >> r.direction))
      return path + ":" + std::to_string(lineNo) + ": need name noise snr seed direction";
    r.noiseOnly = snr[0] == '@';
    r.snrDb = std::atof(snr.c_str() + (r.noiseOnly ? 1 : 0));
    const auto *known = std::find(std::begin(kNoiseNames), std::end(kNoiseNames), noise);
    if (known == std::end(kNoiseNames))
      return path + ":" + std::to_string(lineNo) + ": unknown noise " + noise;
    r.noise = static_cast<VoiceNoise>(known - std::begin(kNoiseNames));
    out->push_back(r);
  }
  return "";
}

std::vector<float> voiceTalker(const std::string &soundDir, uint32_t seed) {
  std::mt19937 rng(seed);
  return speech(soundDir, static_cast<int>(seed % kPromptCount), kTalkerPrompts, 0, 0.3, 1.2, rng);
}

std::vector<float> voiceNoiseSource(const std::string &soundDir, VoiceNoise kind, size_t n,
                                    uint32_t seed) {
  std::mt19937 rng(seed * 7919u + static_cast<uint32_t>(kind));
  switch (kind) {
    case VoiceNoise::Babble: return babble(soundDir, n, rng);
    case VoiceNoise::Fan: return fan(n, rng);
    case VoiceNoise::Music: return music(n, rng);
    case VoiceNoise::Knocks: return knocks(n, rng);
    case VoiceNoise::Street: return street(n, rng);
    default: return {};
  }
}

const char *voiceNoiseName(VoiceNoise noise) { return kNoiseNames[static_cast<int>(noise)]; }

int voiceLeadFrames(const VoiceRecipe &r) {
  return static_cast<int>((r.noiseOnly ? kVoiceNoiseOnlySeconds : kVoiceLeadSeconds) * 50);
}

std::string voiceRenderSources(const std::string &soundDir, const VoiceRecipe &r,
                               const std::string &outDir, const std::string &array,
                               const std::string &line) {
  const std::vector<float> talker = voiceTalker(soundDir, r.seed);
  if (talker.empty()) return "";
  mkdir(outDir.c_str(), 0755);
  const std::string talkerPath = outDir + "/talker.wav";
  if (!wavWriteMono(talkerPath, talker).empty()) return "";
  std::ostringstream args;
  const double noiseDbfs = r.noiseOnly ? r.snrDb : kTalkerDbfs - r.snrDb;
  if (r.noiseOnly)
    args << "none " << r.direction << " '" << array << "' '" << line << "' --seconds "
         << kVoiceNoiseOnlySeconds;
  else
    args << "'" << talkerPath << "' " << r.direction << " '" << array << "' '" << line
         << "' --lead " << kVoiceLeadSeconds << " --level " << kTalkerDbfs;
  args << " --seed " << r.seed;
  if (r.noise == VoiceNoise::Pink || r.noise == VoiceNoise::White) {
    args << (r.noiseOnly ? " --noise-level " : " --snr ") << r.snrDb << " --noise "
         << voiceNoiseName(r.noise);
    return args.str();
  }
  const size_t n = r.noiseOnly
                       ? static_cast<size_t>(kVoiceNoiseOnlySeconds * kVoiceRate)
                       : talker.size() + static_cast<size_t>(kVoiceLeadSeconds * kVoiceRate);
  const std::vector<float> noise = voiceNoiseSource(soundDir, r.noise, n, r.seed);
  const std::string noisePath = outDir + "/noise.wav";
  if (noise.empty() || !wavWriteMono(noisePath, noise).empty()) return "";
  args << " --speaker '" << noisePath << "' --speaker-level " << noiseDbfs
       << " --speaker-direction " << (r.direction > 0 ? -50 : 50);
  return args.str();
}
