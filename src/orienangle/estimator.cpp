#include "orienangle/estimator.h"

#include <cstdlib>
#include <cstring>

#include "orienangle/steering.h"

int orienAngleEstimatorInit(OrienAngleEstimator *est) {
  std::memset(est, 0, sizeof *est);
  est->frameCursor = 0;
  est->curAngle = ANGLE_NONE;
  est->prevAngle = ANGLE_NONE;
  est->idleFrames = 0;
  for (auto &slot : est->peakAngles)
    for (auto &angle : slot) angle = ANGLE_NONE;
  steeringBuild(est->steering);
  noiseTrackerInit(&est->micNoise);
  noiseTrackerInit(&est->refNoise);
  noiseTrackerInit(&est->spareNoise);
  return 0;
}

OrienAngleEstimator *orienAngleEstimatorCreate() {
  auto *est = static_cast<OrienAngleEstimator *>(std::malloc(sizeof(OrienAngleEstimator)));
  if (est == nullptr) return nullptr;
  orienAngleEstimatorInit(est);
  est->denoiser = rnnoise_create(nullptr);
  if (est->denoiser == nullptr) {
    std::free(est);
    return nullptr;
  }
  return est;
}

void orienAngleEstimatorDestroy(OrienAngleEstimator *est) {
  rnnoise_destroy(est->denoiser);
  std::free(est);
}
