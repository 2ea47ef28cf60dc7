#include "orienangle/estimator/far_end_detector.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "test_signals.h"

namespace {

// The detector needs no steering table: a zeroed record with a fresh tracker.
struct Detector {
  std::unique_ptr<OrienAngleEstimator> est{new OrienAngleEstimator()};
  std::vector<float> quiet = testsig::noise(ORIEN_FRAME_SIZE, 5.0f, 1);
  std::vector<float> loud = testsig::noise(ORIEN_FRAME_SIZE, 8000.0f, 2);

  Detector() {
    noiseTrackerInit(&est->farEnd.refNoise);
    for (int i = 0; i < 10; ++i) farEndDetect(est.get(), quiet.data());  // noise start-up
  }
  // Flags in the slots 1..count (the current slot 0 is left to the detector).
  void setOthers(int count) {
    for (int s = 1; s < ORIEN_SLOTS; ++s) est->farEnd.farEndFlag[s] = s <= count ? 1u : 0u;
  }
};

TEST(FarEndDetector, ZeroReferenceIsNeverActiveNorLatched) {
  std::unique_ptr<OrienAngleEstimator> est{new OrienAngleEstimator()};
  noiseTrackerInit(&est->farEnd.refNoise);
  std::vector<float> zeros(ORIEN_FRAME_SIZE, 0.0f);
  for (int f = 0; f < 150; ++f) {
    est->frameCursor = f % ORIEN_SLOTS;
    est->farEnd.farEndFlag[est->frameCursor] = 1;
    farEndDetect(est.get(), zeros.data());
    ASSERT_EQ(est->farEnd.farEndFlag[est->frameCursor], 0u) << f;
    ASSERT_TRUE(est->farEnd.refNoise.voiceMetric == 32 && est->farEnd.refNoise.forcedUpdate == 1) << f;
  }
  EXPECT_EQ(est->farEnd.farEndLatched, 0);
}

TEST(FarEndDetector, LoudReferenceAfterQuietStartUpIsActive) {
  Detector d;
  EXPECT_EQ(d.est->farEnd.farEndFlag[0], 0u);  // the quiet frames forced noise updates
  farEndDetect(d.est.get(), d.loud.data());
  EXPECT_EQ(d.est->farEnd.farEndFlag[0], 1u);
  EXPECT_EQ(d.est->farEnd.refNoise.forcedUpdate, 0);
  EXPECT_GE(d.est->farEnd.refNoise.voiceMetric, 38);
  // Once the loud frame has left the block and the smoothed energy has decayed,
  // the reference is inactive again.
  for (int i = 0; i < 12; ++i) farEndDetect(d.est.get(), d.quiet.data());
  EXPECT_EQ(d.est->farEnd.farEndFlag[0], 0u);
}

// Latches on the 66th active frame of the last hundred; releases only below 19
// and on an inactive frame.
TEST(FarEndDetector, LatchHysteresis) {
  struct Case {
    int latchedBefore, others;
    bool loudNow;
    int latched;
  } cases[] = {
      {0, 64, true, 0},   // 65 active
      {0, 65, true, 1},   // 66 active: latch
      {1, 18, false, 0},  // 18 active and this frame inactive: release
      {1, 19, false, 1},  // 19 active: hold
      {1, 17, true, 1},   // 18 active but this frame active: hold
  };
  for (const Case &c : cases) {
    Detector d;
    d.est->farEnd.farEndLatched = c.latchedBefore;
    d.setOthers(c.others);
    farEndDetect(d.est.get(), c.loudNow ? d.loud.data() : d.quiet.data());
    EXPECT_EQ(d.est->farEnd.farEndLatched, c.latched) << c.latchedBefore << " " << c.others;
  }
}

}  // namespace
