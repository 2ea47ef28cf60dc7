// The voice model behind the rnnoise_* calls: speech must read as voice and
// pass gains, stationary noise, hum and silence must not; the gain release
// floor, the silent-frame rule and the zero-fill reset hold on every frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "orienangle/estimator/voice_model/rnnoise.h"
#include "sim/noise.h"
#include "sim/resample.h"
#include "sim/voiced_speech.h"
#include "sim/wav_file.h"
#include "support/sandbox.h"

namespace {
constexpr int kFrame = 480;
constexpr int kBands = 22;
constexpr int kRate = 48000;

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
      for (int i = 0; i < kFrame; ++i) in[i] = x[s + i] * scale * 32768.0f;
      FrameResult r;
      r.probability = rnnoise_process_frame(st, r.gains, in);
      out.push_back(r);
    }
    return out;
  }
};

struct Summary {
  double voicedShare = 0;    // frames with probability > 0.5
  double openGainShare = 0;  // frames with 3 or more of gains 1..15 above 0.5 (the estimator's test)
  double meanGain = 0;       // gains 1..15
};

Summary summarise(const std::vector<FrameResult> &frames, size_t from = 0, size_t to = SIZE_MAX) {
  Summary s;
  to = std::min(to, frames.size());
  for (size_t f = from; f < to; ++f) {
    int open = 0;
    for (int b = 1; b <= 15; ++b) {
      open += frames[f].gains[b] > 0.5f;
      s.meanGain += frames[f].gains[b] / 15.0 / (to - from);
    }
    s.voicedShare += (frames[f].probability > 0.5f) / double(to - from);
    s.openGainShare += (open >= 3) / double(to - from);
  }
  return s;
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
  const std::string path = box.file("say.wav");
  const std::string cmd = "command -v espeak-ng >/dev/null 2>&1 && espeak-ng -w '" + path +
                          "' 'Please turn the light on in the kitchen and tell me the weather for tomorrow.'";
  WavData wav;
  if (std::system(cmd.c_str()) != 0 || !wavRead(path, &wav).empty()) return {};
  return resample(wavChannel(wav, 0), wav.sampleRate, kRate);
}
}  // namespace

TEST(VoiceModel, SpeechReadsAsVoiceAlsoInNoise) {
  Sandbox box;
  const std::vector<float> espeak = espeakSpeech(box);
  const std::vector<float> voiced = makeVoicedSpeech(6.0, kRate, 5);
  struct Case {
    const char *name;
    std::vector<float> signal;
    float scale;
    double minVoiced, minOpen;
  } cases[] = {
      {"synthetic", voiced, 1.0f, 0.6, 0.5},
      {"synthetic in pink noise at 10 dB",
       withNoise(makeVoicedSpeech(6.0, kRate, 6), NoiseColour::Pink, 10.0), 0.5f, 0.35, -1.0},
      {"espeak", espeak, 0.5f, 0.6, -1.0},
      {"espeak in white noise at 10 dB",
       espeak.empty() ? espeak : withNoise(espeak, NoiseColour::White, 10.0), 0.5f, 0.5, -1.0},
  };
  for (const Case &c : cases) {
    if (c.signal.empty()) continue;  // espeak-ng not installed
    VoiceModel vm;
    const Summary s = summarise(vm.run(c.signal, c.scale));
    EXPECT_GT(s.voicedShare, c.minVoiced) << c.name;
    EXPECT_GT(s.openGainShare, c.minOpen) << c.name;
  }
}

TEST(VoiceModel, StationaryNoiseHumAndSilenceAreNotVoice) {
  const size_t n = 5 * kRate;
  std::vector<float> hum(n);
  for (size_t i = 0; i < n; ++i) {
    const double w = 2 * M_PI * 50 * static_cast<double>(i) / kRate;
    hum[i] = static_cast<float>(0.3 * std::sin(w) + 0.05 * std::sin(3 * w) + 0.02 * std::sin(5 * w));
  }
  struct Case {
    const char *name;
    std::vector<float> signal;
    float scale;
  } cases[] = {
      {"white -20 dBFS", makeNoise(NoiseColour::White, n, 1), 0.1f},
      {"white at a few LSB", makeNoise(NoiseColour::White, n, 2), 1e-4f},
      {"pink -20 dBFS", makeNoise(NoiseColour::Pink, n, 3), 0.1f},
      {"50 Hz hum", hum, 1.0f},
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

// Speech, then steady noise: every gain is at least 0.6 of the last (and some
// fall exactly that fast), and voice ends soon after the last syllable.
TEST(VoiceModel, GainsReleaseNoFasterThanTheFloorAndVoiceEndsAfterTheTalker) {
  std::vector<float> x = makeVoicedSpeech(3.0, kRate, 8);
  const size_t speechFrames = x.size() / kFrame;
  x.resize(x.size() + 3 * kRate, 0.0f);
  const std::vector<float> noise = makeNoise(NoiseColour::White, x.size(), 9);
  for (size_t i = 0; i < x.size(); ++i) x[i] += 0.01f * noise[i];
  VoiceModel vm;
  const std::vector<FrameResult> frames = vm.run(x);
  int releasedAtFloor = 0;
  for (size_t f = 1; f < frames.size(); ++f) {
    ASSERT_TRUE(frames[f].probability >= 0.0f && frames[f].probability <= 1.0f) << f;
    for (int b = 0; b < kBands; ++b) {
      const float floor = 0.6f * frames[f - 1].gains[b];
      ASSERT_TRUE(frames[f].gains[b] >= floor && frames[f].gains[b] <= 1.0f) << f << " band " << b;
      releasedAtFloor += frames[f].gains[b] == floor && floor > 0.01f;
    }
  }
  EXPECT_GT(releasedAtFloor, 0) << "gains never fell as fast as the floor allows";
  EXPECT_GT(summarise(frames, 0, speechFrames).voicedShare, 0.5);
  const Summary tail = summarise(frames, speechFrames + 30);  // from 0.3 s after the last syllable
  EXPECT_LT(tail.voicedShare, 0.02);
  EXPECT_LT(tail.meanGain, 0.2);
}

TEST(VoiceModel, SilentFrameRepeatsTheLastGainsAndIsNotVoice) {
  VoiceModel vm;
  const std::vector<FrameResult> speech = vm.run(makeVoicedSpeech(1.0, kRate, 3));
  float zeros[kFrame] = {};
  float whisper[kFrame];  // below one LSB RMS: still silent
  for (int i = 0; i < kFrame; ++i) whisper[i] = (i % 3 == 0) ? 1.0f : 0.0f;
  for (const float *in : {zeros, whisper}) {
    float out[kBands];
    EXPECT_EQ(rnnoise_process_frame(vm.st, out, in), 0.0f);
    EXPECT_EQ(0, memcmp(out, speech.back().gains, sizeof out));
  }
}

TEST(VoiceModel, InitZeroFillsAndRestartsLikeAFreshState) {
  VoiceModel used, fresh;
  used.run(makeNoise(NoiseColour::White, kRate, 5), 0.2f);
  ASSERT_EQ(0, rnnoise_init(used.st, nullptr));
  const auto *bytes = reinterpret_cast<const unsigned char *>(used.st);
  EXPECT_EQ(std::vector<unsigned char>(rnnoise_get_size(), 0),
            std::vector<unsigned char>(bytes, bytes + rnnoise_get_size()));
  const std::vector<float> x = makeVoicedSpeech(1.5, kRate, 2);
  const std::vector<FrameResult> a = used.run(x), b = fresh.run(x);
  ASSERT_EQ(a.size(), b.size());
  for (size_t f = 0; f < a.size(); ++f)
    ASSERT_TRUE(a[f].probability == b[f].probability && !memcmp(a[f].gains, b[f].gains, sizeof b[f].gains))
        << f;
}

TEST(VoiceModel, FullScaleClippedInputStaysFinite) {
  std::vector<float> square(2 * kRate);
  for (size_t i = 0; i < square.size(); ++i) square[i] = (i / 60) % 2 ? 1.0f : -1.0f;
  VoiceModel vm;
  for (const FrameResult &r : vm.run(square)) {
    ASSERT_TRUE(std::isfinite(r.probability));
    for (float g : r.gains) ASSERT_TRUE(std::isfinite(g) && g >= 0.0f && g <= 1.0f);
  }
}
