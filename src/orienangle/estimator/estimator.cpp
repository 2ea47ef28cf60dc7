#include "orienangle/estimator/estimator.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "orienangle/estimator/steering.h"

namespace {

// Sets every byte of the record to zero except those of the steering table,
// which its build writes in full.
void clearRecord(OrienAngleEstimator *est) {
  std::memset(est, 0, offsetof(OrienAngleEstimator, scanSteering));
  static_assert(offsetof(OrienAngleEstimator, scanSteering) + sizeof(SteeringScanTable) ==
                    sizeof(OrienAngleEstimator),
                "the scan table ends the record");
}

}  // namespace

int orienAngleEstimatorInit(OrienAngleEstimator *est) {
  RealTransformPlan *plan = est->transformPlan;
  SteeringTable *referenceSteering = est->referenceSteering;
  clearRecord(est);
  est->transformPlan = plan;
  est->referenceSteering = referenceSteering;
  est->frameCursor = 0;
  est->curAngle = ANGLE_NONE;
  est->prevAngle = ANGLE_NONE;
  est->idleFrames = 0;
  for (auto &slot : est->peakAngles)
    for (auto &angle : slot) angle = ANGLE_NONE;
  steeringScanBuild(&est->scanSteering);
  noiseTrackerInit(&est->micNoise);
  noiseTrackerInit(&est->farEnd.refNoise);
  noiseTrackerInit(&est->spareNoise);
  return 0;
}

OrienAngleEstimator *orienAngleEstimatorCreate() {
  auto *est = static_cast<OrienAngleEstimator *>(std::malloc(sizeof(OrienAngleEstimator)));
  if (est == nullptr) return nullptr;
  est->referenceSteering = nullptr;
  est->transformPlan = realTransformCreate();
  if (est->transformPlan == nullptr) {
    std::free(est);
    return nullptr;
  }
  orienAngleEstimatorInit(est);
  est->denoiser = rnnoise_create(nullptr);
  if (est->denoiser == nullptr) {
    realTransformDestroy(est->transformPlan);
    std::free(est);
    return nullptr;
  }
  return est;
}

void orienAngleEstimatorDestroy(OrienAngleEstimator *est) {
  rnnoise_destroy(est->denoiser);
  realTransformDestroy(est->transformPlan);
  std::free(est->referenceSteering);
  std::free(est);
}

int orienAngleEstimatorUseReferenceArithmetic(OrienAngleEstimator *est) {
  if (est->referenceSteering == nullptr) {
    est->referenceSteering = static_cast<SteeringTable *>(std::malloc(sizeof(SteeringTable)));
    if (est->referenceSteering == nullptr) return -1;
    steeringBuildReference(est->referenceSteering);
  }
  est->referenceArithmetic = true;
  return 0;
}
