// The voice model behind the rnnoise_* calls: speech must read as voice and
// pass gains, stationary noise, hum and silence must not; the gain release
// floor, the silent-frame rule and the zero-fill reset hold on every frame.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "orienangle/voice_model/rnnoise.h"
#include "sim/noise.h"
#include "sim/resample.h"
#include "sim/voiced_speech.h"
#include "sim/wav_file.h"
#include "support/sandbox.h"

namespace {
constexpr int kFrame = 480;
constexpr int kBands = 22;
constexpr int kRate = 48000;
constexpr float kFullScale = 32768.0f;

struct FrameResult {
  float probability;
  float gains[kBands];
};

struct VoiceModel {
  DenoiseState *st = rnnoise_create(nullptr);
  ~VoiceModel() { rnnoise_destroy(st); }

  // Runs the signal (-1..1 scale) through the model, `scale` times 16-bit full scale.
  std::vector<FrameResult> run(const std::vector<float> &x, float scale = 1.0f) {
    std::vector<FrameResult> out;
    float in[kFrame];
    for (size_t s = 0; s + kFrame <= x.size(); s += kFrame) {
      for (int i = 0; i < kFrame; ++i) in[i] = x[s + i] * scale * kFullScale;
      FrameResult r;
      r.probability = rnnoise_process_frame(st, r.gains, in);
      out.push_back(r);
    }
    return out;
  }
};

struct Summary {
  double voicedShare;     // frames with probability > 0.5
  double openGainShare;   // frames with 3 or more of gains 1..15 above 0.5 (the estimator's test)
  double meanGain;        // gains 1..15
};

Summary summarise(const std::vector<FrameResult> &frames, size_t skip = 0) {
  Summary s{0, 0, 0};
  size_t n = 0;
  for (size_t f = skip; f < frames.size(); ++f, ++n) {
    int open = 0;
    for (int b = 1; b <= 15; ++b) {
      open += frames[f].gains[b] > 0.5f;
      s.meanGain += frames[f].gains[b] / 15.0;
    }
    s.voicedShare += frames[f].probability > 0.5f;
    s.openGainShare += open >= 3;
  }
  s.voicedShare /= n;
  s.openGainShare /= n;
  s.meanGain /= n;
  return s;
}

std::vector<float> hum(size_t count) {
  std::vector<float> x(count);
  for (size_t i = 0; i < count; ++i) {
    const double t = static_cast<double>(i) / kRate;
    x[i] = static_cast<float>(0.3 * std::sin(2 * M_PI * 50 * t) + 0.05 * std::sin(2 * M_PI * 150 * t) +
                              0.02 * std::sin(2 * M_PI * 250 * t));
  }
  return x;
}

std::vector<float> withNoise(const std::vector<float> &speech, NoiseColour colour, double snrDb) {
  std::vector<float> noise = makeNoise(colour, speech.size(), 11);
  const double k = noiseScaleForSnr(activePower(speech, kRate), meanPower(noise), snrDb);
  std::vector<float> out(speech);
  for (size_t i = 0; i < out.size(); ++i) out[i] += static_cast<float>(k * noise[i]);
  return out;
}

// espeak-ng speech at 48 kHz, or empty when the synthesiser is not installed.
std::vector<float> espeakSpeech(const Sandbox &box) {
  if (std::system("command -v espeak-ng >/dev/null 2>&1") != 0) return {};
  const std::string path = box.file("say.wav");
  const std::string cmd = "espeak-ng -w '" + path +
                          "' 'Please turn the light on in the kitchen and tell me the weather for tomorrow.'";
  if (std::system(cmd.c_str()) != 0) return {};
  WavData wav;
  if (!wavRead(path, &wav).empty()) return {};
  return resample(wavChannel(wav, 0), wav.sampleRate, kRate);
}
}  // namespace

TEST(VoiceModel, SyntheticVoicedSpeechReadsAsVoiceAndOpensGains) {
  VoiceModel vm;
  const Summary s = summarise(vm.run(makeVoicedSpeech(6.0, kRate, 5)));
  EXPECT_GT(s.voicedShare, 0.6);
  EXPECT_GT(s.openGainShare, 0.5);
}

TEST(VoiceModel, EspeakSpeechReadsAsVoiceAlsoInNoise) {
  Sandbox box;
  const std::vector<float> speech = espeakSpeech(box);
  if (speech.empty()) GTEST_SKIP() << "espeak-ng not available";
  VoiceModel clean;
  EXPECT_GT(summarise(clean.run(speech, 0.5f)).voicedShare, 0.6);
  VoiceModel noisy;
  EXPECT_GT(summarise(noisy.run(withNoise(speech, NoiseColour::White, 10.0), 0.5f)).voicedShare, 0.5);
}

TEST(VoiceModel, VoicedSpeechInPinkNoiseStillReadsAsVoiceAt10dB) {
  VoiceModel vm;
  const Summary s = summarise(vm.run(withNoise(makeVoicedSpeech(6.0, kRate, 6), NoiseColour::Pink, 10.0), 0.5f));
  EXPECT_GT(s.voicedShare, 0.35);
}

TEST(VoiceModel, StationaryNoiseHumAndSilenceAreNotVoice) {
  const size_t n = 5 * kRate;
  struct Case {
    const char *name;
    std::vector<float> signal;
    float scale;
  } cases[] = {
      {"white -20 dBFS", makeNoise(NoiseColour::White, n, 1), 0.1f},
      {"white at a few LSB", makeNoise(NoiseColour::White, n, 2), 1e-4f},
      {"pink -20 dBFS", makeNoise(NoiseColour::Pink, n, 3), 0.1f},
      {"50 Hz hum", hum(n), 1.0f},
      {"digital silence", std::vector<float>(n, 0.0f), 1.0f},
  };
  for (const Case &c : cases) {
    VoiceModel vm;
    const Summary s = summarise(vm.run(c.signal, c.scale));
    EXPECT_LT(s.voicedShare, 0.02) << c.name;
    EXPECT_LT(s.openGainShare, 0.02) << c.name;
    EXPECT_LT(s.meanGain, 0.2) << c.name;
  }
}

TEST(VoiceModel, VoiceEndsSoonAfterTheTalkerStopsInSteadyNoise) {
  std::vector<float> x = makeVoicedSpeech(3.0, kRate, 8);
  const size_t speechFrames = x.size() / kFrame;
  x.resize(x.size() + 3 * kRate, 0.0f);
  const std::vector<float> noise = makeNoise(NoiseColour::White, x.size(), 9);
  for (size_t i = 0; i < x.size(); ++i) x[i] += 0.01f * noise[i];
  VoiceModel vm;
  const std::vector<FrameResult> frames = vm.run(x);
  EXPECT_GT(summarise({frames.begin(), frames.begin() + speechFrames}).voicedShare, 0.5);
  const Summary tail = summarise(frames, speechFrames + 30);  // from 0.3 s after the last syllable
  EXPECT_LT(tail.voicedShare, 0.02);
  EXPECT_LT(tail.meanGain, 0.2);
}

TEST(VoiceModel, EveryGainIsAtLeastSixTenthsOfTheLastAndWithinUnity) {
  std::vector<float> x = makeVoicedSpeech(2.0, kRate, 4);
  std::vector<float> noise = makeNoise(NoiseColour::Pink, kRate, 4);
  for (float v : noise) x.push_back(0.003f * v);
  VoiceModel vm;
  const std::vector<FrameResult> frames = vm.run(x);
  int releasedAtFloor = 0;
  for (size_t f = 1; f < frames.size(); ++f) {
    ASSERT_GE(frames[f].probability, 0.0f);
    ASSERT_LE(frames[f].probability, 1.0f);
    for (int b = 0; b < kBands; ++b) {
      const float floor = 0.6f * frames[f - 1].gains[b];
      ASSERT_GE(frames[f].gains[b], floor) << "frame " << f << " band " << b;
      ASSERT_LE(frames[f].gains[b], 1.0f);
      releasedAtFloor += frames[f].gains[b] == floor && floor > 0.01f;
    }
  }
  EXPECT_GT(releasedAtFloor, 0) << "gains never fell as fast as the floor allows";
}

TEST(VoiceModel, SilentFrameRepeatsTheLastGainsAndIsNotVoice) {
  VoiceModel vm;
  const std::vector<FrameResult> speech = vm.run(makeVoicedSpeech(1.0, kRate, 3));
  const float *last = speech.back().gains;
  float zeros[kFrame] = {};
  float whisper[kFrame];  // below one LSB RMS: still silent
  for (int i = 0; i < kFrame; ++i) whisper[i] = (i % 3 == 0) ? 1.0f : 0.0f;
  for (const float *in : {zeros, whisper}) {
    float out[kBands];
    EXPECT_EQ(rnnoise_process_frame(vm.st, out, in), 0.0f);
    EXPECT_EQ(0, memcmp(out, last, sizeof out));
  }
}

TEST(VoiceModel, InitZeroFillsAndRestartsLikeAFreshState) {
  const std::vector<float> x = makeVoicedSpeech(1.5, kRate, 2);
  VoiceModel used;
  used.run(makeNoise(NoiseColour::White, kRate, 5), 0.2f);
  ASSERT_EQ(0, rnnoise_init(used.st, nullptr));
  std::vector<unsigned char> bytes(rnnoise_get_size());
  memcpy(bytes.data(), used.st, bytes.size());
  EXPECT_EQ(std::vector<unsigned char>(bytes.size(), 0), bytes);

  VoiceModel fresh;
  const std::vector<FrameResult> a = used.run(x), b = fresh.run(x);
  ASSERT_EQ(a.size(), b.size());
  for (size_t f = 0; f < a.size(); ++f) {
    ASSERT_EQ(a[f].probability, b[f].probability) << f;
    ASSERT_EQ(0, memcmp(a[f].gains, b[f].gains, sizeof a[f].gains)) << f;
  }
}

TEST(VoiceModel, FullScaleClippedInputStaysFinite) {
  std::vector<float> square(2 * kRate);
  for (size_t i = 0; i < square.size(); ++i) square[i] = (i / 60) % 2 ? 1.0f : -1.0f;
  VoiceModel vm;
  for (const FrameResult &r : vm.run(square, 1.0f)) {
    ASSERT_TRUE(std::isfinite(r.probability));
    for (float g : r.gains) ASSERT_TRUE(std::isfinite(g) && g >= 0.0f && g <= 1.0f);
  }
}
