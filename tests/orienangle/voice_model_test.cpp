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

// On every frame the probability and gains lie in [0, 1] and no gain falls below
// 0.6 of its last value (the release floor), whatever the input.
struct VoiceModel {
  DenoiseState *st = rnnoise_create(nullptr);
  ~VoiceModel() { rnnoise_destroy(st); }
  float last[kBands] = {};
  int atFloor = 0;  // gains that fell exactly as fast as the floor allows

  // Runs the signal (-1..1 scale) through the model; returns the shares of frames,
  // after the first `skip`, that are voiced (probability > 0.5) and that have
  // open gains (3 or more of gains 1..15 above 0.5, the estimator's test).
  std::pair<double, double> run(const std::vector<float> &x, size_t skip = 0) {
    float in[kFrame], gains[kBands];
    double frames = 0, voiced = 0, open = 0;
    for (size_t s = 0; s + kFrame <= x.size(); s += kFrame) {
      for (int i = 0; i < kFrame; ++i) in[i] = x[s + i] * 32768.0f;
      const float p = rnnoise_process_frame(st, gains, in);
      EXPECT_TRUE(p >= 0.0f && p <= 1.0f) << s;
      for (int b = 0; b < kBands; ++b) {
        EXPECT_TRUE(gains[b] >= 0.6f * last[b] && gains[b] <= 1.0f)
            << "sample " << s << " band " << b;
        atFloor += gains[b] == 0.6f * last[b] && last[b] > 0.02f;
        last[b] = gains[b];
      }
      if (s / kFrame < skip) continue;
      ++frames;
      voiced += p > 0.5f;
      open += std::count_if(gains + 1, gains + 16, [](float g) { return g > 0.5f; }) >= 3;
    }
    return {voiced / frames, open / frames};
  }
};

}  // namespace

// A few calibration recordings rendered again from their recipes, among them
// the hardest noises (music, babble): the voice decision agrees with the
// reference's on at least 95 % of their frames and calls no more of the
// noise-only lead voice than the reference does.
TEST(VoiceModel, FollowsTheOriginalModelOnRecordedSpeechInNoise) {
  std::vector<VoiceRecipe> recipes;
  ASSERT_EQ("", voiceRecipesRead(QV_VOICE_FIXTURES "/recipes.txt", &recipes));
  int frames = 0, agreeing = 0;
  for (const VoiceRecipe &r : recipes) {
    if (r.name != "pink-5" && r.name != "music-10" && r.name != "babble-10" && r.name != "street-5")
      continue;
    Sandbox box;
    const std::string array = box.file("array.wav");
    const std::string args =
        voiceRenderSources(kVoicePromptDir, r, box.file("src"), array, box.file("line.wav"));
    if (args.empty()) GTEST_SKIP() << "asterisk-core-sounds-en-wav is not installed";
    ASSERT_EQ(0, runTool(std::string(QV_SIMULATE_PATH) + " " + args + " 2>/dev/null").status)
        << r.name;
    WavData wav;
    ASSERT_EQ("", wavRead(array, &wav));
    std::vector<float> mic0 = wavChannel(wav, 0);
    for (float &x : mic0) x *= 32768.0f;
    const VoiceAgreement a =
        voiceAgreementMeasure(mic0, voiceReferenceRead(QV_VOICE_FIXTURES "/" + r.name + ".txt"),
                              int(kVoiceLeadSeconds * 50));
    ASSERT_GT(a.frames, 500) << r.name;
    EXPECT_GT(a.agreeing, 0.93 * a.frames) << r.name;
    EXPECT_LE(a.leadOurs, a.leadReference + 2) << r.name;
    frames += a.frames, agreeing += a.agreeing;
  }
  ASSERT_GT(frames, 0);
  EXPECT_GE(agreeing, 0.95 * frames);
}

// Speech, then steady noise: some gains fall as fast as the floor allows, and
// voice ends soon after the last syllable.
TEST(VoiceModel, GainsReleaseAtTheFloorAndVoiceEndsAfterTheTalker) {
  std::vector<float> x = makeVoicedSpeech(3.0, kRate, 8);
  const size_t talker = x.size();
  x.resize(talker + 3 * kRate, 0.0f);
  const std::vector<float> noise = makeNoise(NoiseColour::White, x.size(), 9);
  for (size_t i = 0; i < x.size(); ++i) x[i] += 0.01f * noise[i];
  VoiceModel vm;
  EXPECT_GT(vm.run({x.begin(), x.begin() + talker}).first, 0.5);
  const auto [voiced, open] =
      vm.run({x.begin() + talker, x.end()}, 30);  // from 0.3 s after the last syllable
  EXPECT_TRUE(voiced < 0.02 && open < 0.02);
  EXPECT_GT(vm.atFloor, 0);
}

TEST(VoiceModel, SilentFrameRepeatsTheLastGainsAndIsNotVoice) {
  VoiceModel vm;
  vm.run(makeVoicedSpeech(1.0, kRate, 3));
  float zeros[kFrame] = {};
  float whisper[kFrame], everyFourth[kFrame];  // below one LSB RMS: still silent
  for (int i = 0; i < kFrame; ++i) whisper[i] = (i % 3 == 0) ? 1.0f : 0.0f;
  for (int i = 0; i < kFrame; ++i) everyFourth[i] = (i % 4 == 2) ? 1.5f : 0.0f;  // 0.5625
  for (const float *in : {zeros, whisper, everyFourth}) {
    float out[kBands];
    EXPECT_EQ(rnnoise_process_frame(vm.st, out, in), 0.0f);
    EXPECT_EQ(0, memcmp(out, vm.last, sizeof out));
  }
}
