#include "orienangle/estimator.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

namespace {

TEST(Estimator, CreationSetsTheDocumentedDefaultsAndZeroesEverythingElse) {
  OrienAngleEstimator *est = orienAngleEstimatorCreate();
  ASSERT_NE(est, nullptr);
  ASSERT_NE(est->denoiser, nullptr);
  EXPECT_EQ(est->curAngle, 230u);
  EXPECT_EQ(est->prevAngle, 230u);
  for (auto &slot : est->peakAngles)
    for (uint32_t a : slot) ASSERT_EQ(a, 230u);
  for (const NoiseTracker *t : {&est->micNoise, &est->refNoise, &est->spareNoise}) {
    EXPECT_EQ(t->firstFrame, 1);
    EXPECT_EQ(t->forcedUpdate, 1);
  }
  EXPECT_EQ(est->steering[90][7][3].re, 1.0f);

  // Blank out the fields with defaults; every remaining byte must be zero.
  auto copy = std::make_unique<OrienAngleEstimator>();
  std::memcpy(copy.get(), est, sizeof *est);
  std::memset(copy->peakAngles, 0, sizeof copy->peakAngles);
  std::memset(copy->steering, 0, sizeof copy->steering);
  std::memset(&copy->scanSteering, 0, sizeof copy->scanSteering);
  copy->curAngle = copy->prevAngle = 0;
  copy->denoiser = nullptr;
  for (NoiseTracker *t : {&copy->micNoise, &copy->refNoise, &copy->spareNoise})
    t->firstFrame = t->forcedUpdate = 0;
  const auto *bytes = reinterpret_cast<const unsigned char *>(copy.get());
  size_t nonZero = 0;
  for (size_t i = 0; i < sizeof *copy; ++i) nonZero += bytes[i] != 0;
  EXPECT_EQ(nonZero, 0u);

  // Re-initialising a used record restores the same state (the denoiser stays owned).
  DenoiseState *denoiser = est->denoiser;
  est->curAngle = 17;
  est->micNoise.chanNoise[3] = 5.0f;
  est->peakAngles[40][1] = 3;
  EXPECT_EQ(orienAngleEstimatorInit(est), 0);
  est->denoiser = denoiser;
  EXPECT_EQ(est->curAngle, 230u);
  EXPECT_EQ(est->micNoise.chanNoise[3], 0.0f);
  EXPECT_EQ(est->peakAngles[40][1], 230u);
  orienAngleEstimatorDestroy(est);
}

}  // namespace
