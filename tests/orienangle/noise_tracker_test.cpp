#include "orienangle/estimator/noise_tracker.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Tracker {
  NoiseTracker t;
  Tracker() { noiseTrackerInit(&t); }
  // Every live band at `level`, band `band` (if any) at `bandLevel`.
  void feed(float level, const float *bins = nullptr, int band = -1, float bandLevel = 0.0f) {
    float e[ORIEN_BANDS] = {};
    for (int i = 0; i < ORIEN_LIVE_BANDS; ++i) e[i] = i == band ? bandLevel : level;
    noiseTrackerUpdate(&t, e, bins);
  }
};

TEST(NoiseTracker, FirstUpdateCopiesFlooredEnergiesIntoEnergyAndNoise) {
  Tracker tr;
  float e[ORIEN_BANDS] = {};
  e[0] = 0.005f;  // below the floor
  e[1] = 250.0f;
  e[16] = 1e6f;
  std::vector<float> bins(ORIEN_BINS, 0.00005f);
  bins[30] = 7.0f;
  noiseTrackerUpdate(&tr.t, e, bins.data());
  EXPECT_TRUE(tr.t.chanEnergy[0] == 0.01f && tr.t.chanNoise[0] == 0.01f);
  EXPECT_TRUE(tr.t.chanEnergy[1] == 250.0f && tr.t.chanNoise[1] == 250.0f);
  EXPECT_TRUE(tr.t.chanNoise[16] == 1e6f && tr.t.chanNoise[21] == 0.01f);
  EXPECT_TRUE(tr.t.binNoise[30] == 7.0f && tr.t.binNoise[31] == 0.0001f);  // bins floored too
  EXPECT_TRUE(tr.t.firstFrame == 0 && tr.t.frameCount == 1u);
}

// Silence sits at the floors and forces every update; without bin powers the
// bin noise is never touched.
TEST(NoiseTracker, SilenceSitsAtTheFloorsAndForcesEveryUpdate) {
  Tracker tr;
  for (int i = 0; i < 40; ++i) {
    tr.feed(0.0f);
    ASSERT_TRUE(tr.t.voiceMetric == 32 && tr.t.forcedUpdate == 1 && tr.t.updateCnt == 0) << i;
  }
  for (int b = 0; b < ORIEN_BANDS; ++b)
    EXPECT_TRUE(tr.t.chanEnergy[b] == 0.01f && tr.t.chanNoise[b] == 0.01f) << b;
  for (int k = 0; k < ORIEN_BINS; ++k) ASSERT_EQ(tr.t.binNoise[k], 0.0f);
}

// During the first ten updates the noise follows the energies; after that a loud
// frame with a changing spectrum leaves it alone.
TEST(NoiseTracker, StartUpFollowsTheEnergiesThenVoicedFramesLeaveNoiseAlone) {
  Tracker tr;
  std::vector<float> bins(ORIEN_BINS, 50.0f);
  for (int i = 1; i <= 10; ++i) {
    tr.feed(100.0f * i, bins.data());
    ASSERT_EQ(tr.t.chanNoise[3], tr.t.chanEnergy[3]) << i;
  }
  const float noiseBefore = tr.t.chanNoise[3];
  std::vector<float> loudBins(ORIEN_BINS, 5e5f);
  tr.feed(1e9f, loudBins.data());
  EXPECT_EQ(tr.t.frameCount, 11u);
  EXPECT_EQ(tr.t.forcedUpdate, 0);
  EXPECT_EQ(tr.t.voiceMetric, 16 * 50);  // every band SNR saturates the table
  EXPECT_EQ(tr.t.chanNoise[3], noiseBefore);
  EXPECT_EQ(tr.t.binNoise[7], 50.0f);
}

// A steady spectrum above the noise counts thirty frames, then updates at 0.1 per frame.
TEST(NoiseTracker, ThirtySteadyFramesStartTheNoiseUpdate) {
  Tracker tr;
  for (int i = 0; i < 10; ++i) tr.feed(1000.0f);
  for (int n = 1; n <= 29; ++n) {
    tr.feed(1000.0f, nullptr, 1, 10000.0f);  // 10 dB above noise in one band: V = 15 * 2 + 8 = 38
    ASSERT_EQ(tr.t.updateCnt, n);
    ASSERT_EQ(tr.t.forcedUpdate, 0);
    ASSERT_EQ(tr.t.chanNoise[1], 1000.0f) << n;
  }
  const float energy = tr.t.chanEnergy[1];
  tr.feed(1000.0f, nullptr, 1, 10000.0f);
  const float energyNow = tr.t.chanEnergy[1];
  EXPECT_EQ(tr.t.updateCnt, 30);
  EXPECT_EQ(tr.t.chanNoise[1], static_cast<float>(0.1 * energyNow + 0.9 * 1000.0f));
  EXPECT_EQ(energy, energyNow);  // converged
  EXPECT_EQ(tr.t.voiceMetric, 38);  // SNRs quantise in 0.375 dB steps into the weight table
}

// A loud, changing spectrum freezes updateCnt; seven frames without change clear it.
TEST(NoiseTracker, HysteresisClearsAFrozenCountAfterSevenFrames) {
  Tracker tr;
  for (int i = 0; i < 10; ++i) tr.feed(1000.0f);
  for (int n = 0; n < 5; ++n) tr.feed(1000.0f, nullptr, 1, 10000.0f);
  ASSERT_EQ(tr.t.updateCnt, 5);
  for (int n = 1; n <= 6; ++n) {
    tr.feed(1e6f);  // long-term dB levels lag far behind: deviation >= 28 dB
    ASSERT_EQ(tr.t.updateCnt, 5) << n;
    ASSERT_EQ(tr.t.hysterCnt, n);
  }
  tr.feed(1e6f);
  EXPECT_EQ(tr.t.hysterCnt, 7);
  EXPECT_EQ(tr.t.updateCnt, 0);
  EXPECT_EQ(tr.t.chanNoise[2], 1000.0f);
  tr.feed(1e6f);  // the cleared count differs from the last one seen: hysteresis restarts
  EXPECT_EQ(tr.t.hysterCnt, 0);
  EXPECT_EQ(tr.t.lastUpdateCnt, 0);
}

}  // namespace
