// The frame front end's noise tracker, band-SNR speech decision and the
// loudspeaker detector, each driven at the boundaries of its rules. Expected
// values are the documented ones (weights, thresholds, counts), written out here
// rather than taken from the code's constants.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "orienangle/estimator/estimator.h"
#include "orienangle/estimator/far_end_detector.h"
#include "orienangle/estimator/frame_analysis.h"
#include "orienangle/estimator/noise_tracker.h"

namespace {

// Voice-metric weight per quantised band SNR, index 0..89.
const int kWeight[90] = {2,  2,  2,  2,  2,  2,  2,  2,  2,  2,  2,  3,  3,  3,  3,  3,  4,  4,
                         4,  5,  5,  5,  6,  6,  7,  7,  7,  8,  8,  9,  9,  10, 10, 11, 12, 12,
                         13, 13, 14, 15, 15, 16, 17, 17, 18, 19, 20, 20, 21, 22, 23, 24, 24, 25,
                         26, 27, 28, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 37, 38, 39, 40, 41,
                         42, 43, 44, 45, 46, 47, 48, 49, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50};

// Energy whose SNR against `noise` sits in the middle of quantiser step q (0.375 dB).
float atStep(float noise, int q) { return noise * static_cast<float>(std::pow(10.0, q * 0.0375)); }

// A tracker past its start-up whose channels hold energies e and noise `noise`;
// feeding e again keeps the energies (to float rounding). steady: the long-term
// levels equal this frame's, else they sit 30 dB away (a changing spectrum).
NoiseTracker primed(const float *e, float noise, bool steady) {
  NoiseTracker t;
  noiseTrackerInit(&t);
  t.firstFrame = 0;
  t.frameCount = 10;
  for (int i = 0; i < 22; ++i) {
    t.chanEnergy[i] = e[i];
    t.chanNoise[i] = noise;
  }
  for (int j = 0; j < 16; ++j)
    t.chanEnergyDb[j] = static_cast<float>(10.0 * std::log10(e[j + 1])) + (steady ? 0.0f : 30.0f);
  for (float &b : t.binNoise) b = 7.0f;
  return t;
}

TEST(NoiseTracker, VoiceMetricSumsTheWeightsOfChannelsOneToSixteenAndSaturates) {
  for (int q = 0; q <= 95; ++q) {
    float e[22];
    for (float &x : e) x = atStep(10.0f, q);
    e[0] = e[17] = 1e6f;  // channels 0 and 17..21 take no part
    NoiseTracker t = primed(e, 10.0f, true);
    noiseTrackerUpdate(&t, e, nullptr);
    ASSERT_EQ(t.voiceMetric, 16 * kWeight[q < 89 ? q : 89]) << "step " << q;
  }
  float quiet[22];
  for (float &x : quiet) x = 5.0f;  // below the noise: index 0
  NoiseTracker t = primed(quiet, 10.0f, true);
  noiseTrackerUpdate(&t, quiet, nullptr);
  EXPECT_EQ(t.voiceMetric, 32);
}

// The first update takes the energies as they are, floored at 0.01, into both
// the smoothed energies and the noise, and the bin powers floored at 0.0001.
TEST(NoiseTracker, FirstUpdateCopiesTheFlooredEnergiesAndBinPowers) {
  NoiseTracker t;
  noiseTrackerInit(&t);
  float e[22];
  std::vector<float> p(500);
  for (int i = 0; i < 22; ++i) e[i] = i % 3 == 0 ? 0.005f : 5.0f * i;
  for (int k = 0; k < 500; ++k) p[k] = k % 2 ? 0.00005f : 0.5f * k + 1.0f;
  noiseTrackerUpdate(&t, e, p.data());
  for (int i = 0; i < 22; ++i) {
    const float want = i % 3 == 0 ? 0.01f : 5.0f * i;
    ASSERT_EQ(t.chanEnergy[i], want) << i;
    ASSERT_EQ(t.chanNoise[i], want) << i;
  }
  for (int k = 0; k < 500; ++k) ASSERT_EQ(t.binNoise[k], k % 2 ? 0.0001f : p[k]) << k;
  EXPECT_TRUE(t.firstFrame == 0 && t.frameCount == 1u);
}

// Update decision and hysteresis, one frame from a given state. Channels 1..loud
// sit 4.5 dB above the noise (weight 3), the rest at it (weight 2): V = 32 + loud.
TEST(NoiseTracker, UpdateDecisionAndHysteresis) {
  struct Row {
    const char *what;
    int loud;
    float noise, hiEnergy;
    bool steady;
    int cnt, last, hyster;  // before
    int wantCnt, wantLast, wantHyster, wantForced;
    bool wantUpdate;
  } rows[] = {
      {"V 33 is noise", 1, 10, 0, true, 4, 4, 0, 0, 0, 0, 1, true},
      {"V 34 steady counts", 2, 10, 0, true, 3, 3, 0, 4, 4, 0, 0, false},
      {"total energy 80 is noise", 16, 0.5f, 5.0f, true, 3, 3, 0, 0, 0, 0, 1, true},
      {"total energy 112 counts", 16, 0.5f, 7.0f, true, 3, 3, 0, 4, 4, 0, 0, false},
      {"thirtieth steady frame updates", 16, 10, 0, true, 29, 29, 0, 30, 30, 0, 0, true},
      {"twenty-ninth does not", 16, 10, 0, true, 28, 28, 0, 29, 29, 0, 0, false},
      {"changing spectrum keeps the count", 16, 10, 0, false, 5, 5, 5, 5, 5, 6, 0, false},
      {"seventh unchanged frame clears it", 16, 10, 0, false, 5, 5, 6, 0, 5, 7, 0, false},
      {"cleared count differs: restart", 16, 10, 0, false, 0, 5, 7, 0, 0, 0, 0, false},
      {"equal again keeps counting", 16, 10, 0, false, 0, 0, 7, 0, 0, 8, 0, false},
  };
  for (const Row &r : rows) {
    SCOPED_TRACE(r.what);
    float e[22] = {};
    for (int i = 0; i < 17; ++i)
      e[i] = i >= 1 && i <= r.loud ? (r.hiEnergy > 0 ? r.hiEnergy : atStep(r.noise, 12)) : r.noise;
    NoiseTracker t = primed(e, r.noise, r.steady);
    t.updateCnt = r.cnt;
    t.lastUpdateCnt = r.last;
    t.hysterCnt = r.hyster;
    noiseTrackerUpdate(&t, e, nullptr);
    EXPECT_EQ(t.updateCnt, r.wantCnt);
    EXPECT_EQ(t.lastUpdateCnt, r.wantLast);
    EXPECT_EQ(t.hysterCnt, r.wantHyster);
    EXPECT_EQ(t.forcedUpdate, r.wantForced);
    const float moved = static_cast<float>(0.1 * t.chanEnergy[1] + 0.9 * r.noise);
    EXPECT_EQ(t.chanNoise[1], r.wantUpdate ? moved : r.noise);
  }
}

// Long-term levels: alpha = 0.99 - 0.0245 (50 - 10 log10 tce), at most 0.99.
TEST(NoiseTracker, LongTermLevelsAverageSlowestWhenLoud) {
  for (float e : {1e3f, 1e5f, 1e7f}) {  // tce 1.6e4 (alpha 0.80), 1.6e6 and 1.6e8 (0.99)
    float en[22];
    for (float &x : en) x = e;
    NoiseTracker t = primed(en, 1.0f, false);
    const double a = std::fmin(0.99, 0.99 - 0.0245 * (50 - 10 * std::log10(16.0 * e)));
    noiseTrackerUpdate(&t, en, nullptr);
    EXPECT_NEAR(t.chanEnergyDb[0] - 10 * std::log10(e), 30 * a, 1e-3) << e;
  }
}

// Bin noise moves by 0.1 toward the bin power on an update, and not at all
// without bin powers.
TEST(NoiseTracker, BinNoiseFollowsOnlyGivenBinPowers) {
  float e[22];
  for (float &x : e) x = 10.0f;
  std::vector<float> p(500, 3.0f);
  p[9] = 0.0f;
  NoiseTracker t = primed(e, 10.0f, true);
  noiseTrackerUpdate(&t, e, nullptr);
  EXPECT_EQ(t.forcedUpdate, 1);
  for (float b : t.binNoise) ASSERT_EQ(b, 7.0f);
  for (float &b : t.binNoise) b = 0.0001f;
  t.binNoise[0] = 7.0f;
  noiseTrackerUpdate(&t, e, p.data());
  EXPECT_EQ(t.binNoise[0], static_cast<float>(0.1 * 3.0 + 0.9 * 7.0f));
  EXPECT_EQ(t.binNoise[1], static_cast<float>(0.1 * 3.0 + 0.9 * 0.0001f));
  EXPECT_EQ(t.binNoise[9], 0.0001f);
}

TEST(FrameAnalysis, SpeechNeedsMoreThanSixDecibelsLowWithoutAComparableHighExcess) {
  const struct {
    float low, high;
    int want;
  } rows[] = {{7, 3, 1},   {15, 12, 0}, {20, 12, 1},    {6.0f, 0, 0},    {6.001f, 0, 1}, {0, 0, 0},
              {20, 10, 1}, {16, 11, 1}, {15.9f, 11, 0}, {30, 10.01f, 1}, {7, 10.5f, 0}};
  for (const auto &r : rows)
    EXPECT_EQ(frameSpeechDecision(r.low, r.high), r.want) << r.low << " " << r.high;
}

// A unit impulse of height c + 1 on microphone c at the start of the new samples:
// each bin of microphone c has power ((c + 1) / 4096)^2, so a bin's power summed
// over all eight is 204 / 4096^2 and band b of microphone 0 holds its width / 4096^2.
TEST(FrameAnalysis, BinPowersSumAllMicrophonesAndBandEnergiesComeFromTheFirst) {
  OrienAngleEstimator *est = orienAngleEstimatorCreate();
  std::vector<float> frame(8 * 960, 0.0f);
  for (int c = 0; c < 8; ++c) frame[c * 960] = c + 1.0f;
  const double unit = 1.0 / (4096.0 * 4096.0);
  orienAngleFrameAnalyse(est, frame.data(), nullptr, est->scratch.spectra);
  for (int k = 0; k < 500; ++k) {
    ASSERT_NEAR(est->binPower[k], 204 * unit, 1e-4 * 204 * unit) << k;
    ASSERT_NEAR(est->binPowerSmooth[k], 0.2 * 204 * unit, 1e-4 * 204 * unit) << k;
  }
  const int edge[18] = {20,  36,  52,  68,  84,  100, 118, 136, 156,
                        178, 202, 230, 262, 298, 338, 382, 430, 462};
  for (int b = 0; b < 17; ++b) {
    const double width = edge[b + 1] - edge[b];
    ASSERT_NEAR(est->bandEnergy[b], width * unit, 1e-4 * width * unit) << b;
    ASSERT_NEAR(est->bandEnergyRing[est->ringCursor][b], 0.2 * width * unit, 1e-4 * width * unit);
  }
  EXPECT_EQ(est->bandEnergy[17], 0.0f);
  orienAngleEstimatorDestroy(est);
}

// The loudspeaker reference: an active frame is a loud one against a quiet noise
// estimate, an inactive frame is silence.
void referenceFrame(OrienAngleEstimator *est, bool active, float amplitude = 3000.0f) {
  float e[22];
  for (float &x : e) x = 0.01f;
  est->farEnd.refNoise = primed(e, 0.01f, true);
  for (float &h : est->farEnd.refHistory) h = 0.0f;
  std::vector<float> spkin(960, 0.0f);
  if (active)
    for (int n = 0; n < 960; ++n) spkin[n] = amplitude * std::sin(0.37f * n * n);
  farEndDetect(est, spkin.data());
}

// The latch sets once more than 65 of the last 100 frames (this one included)
// were active, and clears only once fewer than 19 were and this frame is not.
TEST(FarEndDetector, LatchAndReleaseWithHysteresis) {
  const struct {
    int others;  // active frames among the 99 before this one
    int latched;
    bool active;
    int want;
  } rows[] = {{65, 0, true, 1},  {64, 0, true, 0},  {65, 0, false, 0}, {99, 0, false, 1},
              {18, 1, false, 0}, {19, 1, false, 1}, {17, 1, true, 1},  {0, 1, true, 1}};
  OrienAngleEstimator *est = orienAngleEstimatorCreate();
  for (const auto &r : rows) {
    est->frameCursor = 37;
    for (int i = 0; i < 100; ++i) est->farEnd.farEndFlag[i] = i != 37 && (i + 62) % 100 < r.others;
    est->farEnd.farEndLatched = r.latched;
    referenceFrame(est, r.active);
    EXPECT_EQ(est->farEnd.farEndFlag[37], r.active ? 1u : 0u) << r.others;
    EXPECT_EQ(est->farEnd.farEndLatched, r.want) << r.others << " " << r.latched << r.active;
  }
  orienAngleEstimatorDestroy(est);
}

// A quiet reference well above its noise (V >= 38) still forces a noise update
// (total energy below 100) and so is inactive.
TEST(FarEndDetector, QuietReferenceIsInactiveDespiteItsVoiceMetric) {
  OrienAngleEstimator *est = orienAngleEstimatorCreate();
  est->farEnd.farEndFlag[0] = 1;
  referenceFrame(est, true, 20.0f);
  EXPECT_GE(est->farEnd.refNoise.voiceMetric, 38);
  EXPECT_EQ(est->farEnd.refNoise.forcedUpdate, 1);
  EXPECT_EQ(est->farEnd.farEndFlag[0], 0u);
  orienAngleEstimatorDestroy(est);
}

// Right after creation, and after a re-initialisation of a used record: no
// direction anywhere (230), every tracker at its first frame with a forced
// update pending, everything else zero.
TEST(EstimatorRecord, CreationState) {
  OrienAngleEstimator *est = orienAngleEstimatorCreate();
  for (int pass = 0; pass < 2; ++pass) {
    SCOPED_TRACE(pass ? "re-initialised" : "created");
    for (const auto &slot : est->peakAngles)
      for (uint32_t a : slot) ASSERT_EQ(a, 230u);
    EXPECT_TRUE(est->curAngle == 230u && est->prevAngle == 230u);
    EXPECT_TRUE(est->frameCursor == 0u && est->ringCursor == 0u && est->idleFrames == 0 &&
                est->holdCount == 0 && est->farEnd.farEndLatched == 0);
    for (const NoiseTracker *t : {&est->micNoise, &est->spareNoise, &est->farEnd.refNoise}) {
      EXPECT_TRUE(t->firstFrame == 1 && t->forcedUpdate == 1 && t->frameCount == 0u &&
                  t->updateCnt == 0 && t->voiceMetric == 0 && t->chanNoise[3] == 0.0f &&
                  t->binNoise[3] == 0.0f);
    }
    for (int i = 0; i < 100; ++i)
      ASSERT_TRUE(est->farEnd.farEndFlag[i] == 0u && est->decision.speechFlag[i] == 0u &&
                  est->angleSpectrum[i][90] == 0.0f);
    EXPECT_TRUE(est->micHistory[7][2879] == 0.0f && est->farEnd.refHistory[2879] == 0.0f &&
                est->bandEnergyRing[7][16] == 0.0f && est->binPowerSmooth[499] == 0.0f);
    std::vector<float> frame(8 * 960, 100.0f);
    uint8_t angle, aux;
    for (int f = 0; f < 3; ++f)
      angleFrameProcess(est, frame.data(), frame.data(), frame.data(), &angle, &aux);
    DenoiseState *denoiser = est->denoiser;  // the re-initialisation drops the pointer
    orienAngleEstimatorInit(est);
    est->denoiser = denoiser;
  }
  orienAngleEstimatorDestroy(est);
}

}  // namespace
