// The voice model behind the rnnoise_* calls: on recorded speech in noise its
// voice decision must follow the original model's (the calibration fixtures);
// the gain release floor and the silent-frame rule hold on every frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "orienangle/estimator/voice_model/rnnoise.h"
#include "sim/noise.h"
#include "sim/voiced_speech.h"
#include "sim/wav_file.h"
#include "support/sandbox.h"
#include "tools/tool_run.h"
#include "voice-reference/voice_agreement.h"
#include "voice-reference/voice_sources.h"

namespace {
constexpr int kFrame = 480, kBands = 22, kRate = 48000;

struct FrameResult {
  float probability;
  float gains[kBands];
};

// On every frame the probability and gains lie in [0, 1] and no gain falls below
// 0.6 of its last value (the release floor), whatever the input.
struct VoiceModel {
  DenoiseState *st = rnnoise_create(nullptr);
  ~VoiceModel() { rnnoise_destroy(st); }
  FrameResult last{};
  int atFloor = 0;  // gains that fell exactly as fast as the floor allows

  // Runs the signal (-1..1 scale) through the model, `scale` times 16-bit full scale.
  std::vector<FrameResult> run(const std::vector<float> &x, float scale = 1.0f) {
    std::vector<FrameResult> out;
    float in[kFrame];
    for (size_t s = 0; s + kFrame <= x.size(); s += kFrame) {
      for (int i = 0; i < kFrame; ++i) in[i] = x[s + i] * scale * 32768.0f;
      FrameResult r;
      r.probability = rnnoise_process_frame(st, r.gains, in);
      EXPECT_TRUE(r.probability >= 0.0f && r.probability <= 1.0f) << out.size();
      for (int b = 0; b < kBands; ++b) {
        const float floor = 0.6f * last.gains[b];
        EXPECT_TRUE(r.gains[b] >= floor && r.gains[b] <= 1.0f) << "frame " << out.size() << " band " << b;
        atFloor += r.gains[b] == floor && floor > 0.01f;
      }
      out.push_back(last = r);
    }
    return out;
  }
};

// Shares of frames from..to: voiced (probability > 0.5), and with open gains
// (3 or more of gains 1..15 above 0.5, the estimator's test).
std::pair<double, double> shares(const std::vector<FrameResult> &frames, size_t from = 0, size_t to = SIZE_MAX) {
  to = std::min(to, frames.size());
  double voiced = 0, open = 0;
  for (size_t f = from; f < to; ++f) {
    voiced += frames[f].probability > 0.5f;
    open += std::count_if(frames[f].gains + 1, frames[f].gains + 16, [](float g) { return g > 0.5f; }) >= 3;
  }
  return {voiced / double(to - from), open / double(to - from)};
}

}  // namespace

// A few calibration recordings rendered again from their recipes: the voice
// decision agrees with the reference's on most frames and calls no more of
// the noise-only lead voice than the reference does.
TEST(VoiceModel, FollowsTheOriginalModelOnRecordedSpeechInNoise) {
  std::vector<VoiceRecipe> recipes;
  ASSERT_EQ("", voiceRecipesRead(QV_VOICE_FIXTURES "/recipes.txt", &recipes));
  for (const VoiceRecipe &r : recipes) {
    if (r.name != "pink-5" && r.name != "knocks-10" && r.name != "street-5") continue;
    Sandbox box;
    const std::string array = box.file("array.wav");
    const std::string args = voiceRenderSources(kVoicePromptDir, r, box.file("src"), array, box.file("line.wav"));
    if (args.empty()) GTEST_SKIP() << "asterisk-core-sounds-en-wav is not installed";
    ASSERT_EQ(0, runTool(std::string(QV_SIMULATE_PATH) + " " + args + " 2>/dev/null").status) << r.name;
    WavData wav;
    ASSERT_EQ("", wavRead(array, &wav));
    std::vector<float> mic0 = wavChannel(wav, 0);
    for (float &x : mic0) x *= 32768.0f;
    const VoiceAgreement a = voiceAgreementMeasure(
        mic0, voiceReferenceRead(QV_VOICE_FIXTURES "/" + r.name + ".txt"), int(kVoiceLeadSeconds * 50));
    ASSERT_GT(a.frames, 500) << r.name;
    EXPECT_GT(a.agreeing, 0.92 * a.frames) << r.name;
    EXPECT_LE(a.leadOurs, a.leadReference + 2) << r.name;
  }
}

// Speech, then steady noise: some gains fall as fast as the floor allows, and
// voice ends soon after the last syllable.
TEST(VoiceModel, GainsReleaseAtTheFloorAndVoiceEndsAfterTheTalker) {
  std::vector<float> x = makeVoicedSpeech(3.0, kRate, 8);
  const size_t speechFrames = x.size() / kFrame;
  x.resize(x.size() + 3 * kRate, 0.0f);
  const std::vector<float> noise = makeNoise(NoiseColour::White, x.size(), 9);
  for (size_t i = 0; i < x.size(); ++i) x[i] += 0.01f * noise[i];
  VoiceModel vm;
  const std::vector<FrameResult> frames = vm.run(x);
  EXPECT_GT(vm.atFloor, 0);
  EXPECT_GT(shares(frames, 0, speechFrames).first, 0.5);
  const auto [voiced, open] = shares(frames, speechFrames + 30);  // from 0.3 s after the last syllable
  EXPECT_TRUE(voiced < 0.02 && open < 0.02);
}

TEST(VoiceModel, SilentFrameRepeatsTheLastGainsAndIsNotVoice) {
  VoiceModel vm;
  vm.run(makeVoicedSpeech(1.0, kRate, 3));
  float zeros[kFrame] = {};
  float whisper[kFrame];  // below one LSB RMS: still silent
  for (int i = 0; i < kFrame; ++i) whisper[i] = (i % 3 == 0) ? 1.0f : 0.0f;
  for (const float *in : {zeros, whisper}) {
    float out[kBands];
    EXPECT_EQ(rnnoise_process_frame(vm.st, out, in), 0.0f);
    EXPECT_EQ(0, memcmp(out, vm.last.gains, sizeof out));
  }
}

TEST(VoiceModel, FullScaleClippedInputStaysInRange) {
  std::vector<float> square(2 * kRate);
  for (size_t i = 0; i < square.size(); ++i) square[i] = (i / 60) % 2 ? 1.0f : -1.0f;
  VoiceModel().run(square);
}
