#include "orienangle/estimator/estimator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace {

// Creation sets the defaults and zeroes everything else; re-initialising a used
// record restores the same state (the denoiser stays owned).
TEST(Estimator, CreationAndReinitialisationGiveDefaultsAndZeroesEverythingElse) {
  OrienAngleEstimator *est = orienAngleEstimatorCreate();
  ASSERT_TRUE(est != nullptr && est->denoiser != nullptr);
  DenoiseState *denoiser = est->denoiser;
  for (int pass = 0; pass < 2; ++pass) {
    EXPECT_TRUE(est->curAngle == 230u && est->prevAngle == 230u);
    for (auto &slot : est->peakAngles)
      for (uint32_t a : slot) ASSERT_EQ(a, 230u);
    for (const NoiseTracker *t : {&est->micNoise, &est->farEnd.refNoise, &est->spareNoise})
      EXPECT_TRUE(t->firstFrame == 1 && t->forcedUpdate == 1);
    EXPECT_EQ(est->scanSteering.w[7][22][3][0][2], 1.0f);  // broadside: a = 90, lane 2 of group 22

    auto copy = std::make_unique<OrienAngleEstimator>();  // defaults blanked out
    std::memcpy(copy.get(), est, sizeof *est);
    std::memset(copy->peakAngles, 0, sizeof copy->peakAngles);
    std::memset(&copy->scanSteering, 0, sizeof copy->scanSteering);
    copy->curAngle = copy->prevAngle = 0;
    copy->denoiser = nullptr;
    copy->transformPlan = nullptr;
    for (NoiseTracker *t : {&copy->micNoise, &copy->farEnd.refNoise, &copy->spareNoise})
      t->firstFrame = t->forcedUpdate = 0;
    const auto *bytes = reinterpret_cast<const unsigned char *>(copy.get());
    EXPECT_EQ(std::count(bytes, bytes + sizeof *copy, 0), static_cast<long>(sizeof *copy)) << "pass " << pass;

    est->curAngle = 17;  // dirty the record, then re-initialise it
    est->micNoise.chanNoise[3] = 5.0f;
    est->peakAngles[40][1] = 3;
    est->idleFrames = 9;
    EXPECT_EQ(orienAngleEstimatorInit(est), 0);
    est->denoiser = denoiser;
  }
  orienAngleEstimatorDestroy(est);
}

}  // namespace
