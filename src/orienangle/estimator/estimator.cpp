#include "orienangle/estimator/estimator.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "orienangle/estimator/steering.h"

namespace {

// Sets every byte of the record to zero except those of the two steering
// tables, which their builds write in full.
void clearRecord(OrienAngleEstimator *est) {
  auto *bytes = reinterpret_cast<unsigned char *>(est);
  const size_t steering = offsetof(OrienAngleEstimator, steering);
  const size_t afterSteering = steering + sizeof est->steering;
  const size_t scanTable = offsetof(OrienAngleEstimator, scanSteering);
  std::memset(bytes, 0, steering);
  std::memset(bytes + afterSteering, 0, scanTable - afterSteering);
  static_assert(offsetof(OrienAngleEstimator, scanSteering) + sizeof(SteeringScanTable) ==
                    sizeof(OrienAngleEstimator),
                "the scan table ends the record");
}

}  // namespace

int orienAngleEstimatorInit(OrienAngleEstimator *est) {
  RealTransformPlan *plan = est->transformPlan;
  clearRecord(est);
  est->transformPlan = plan;
  est->frameCursor = 0;
  est->curAngle = ANGLE_NONE;
  est->prevAngle = ANGLE_NONE;
  est->idleFrames = 0;
  for (auto &slot : est->peakAngles)
    for (auto &angle : slot) angle = ANGLE_NONE;
  steeringBuild(est->steering, &est->scanSteering);
  noiseTrackerInit(&est->micNoise);
  noiseTrackerInit(&est->farEnd.refNoise);
  noiseTrackerInit(&est->spareNoise);
  return 0;
}

OrienAngleEstimator *orienAngleEstimatorCreate() {
  auto *est = static_cast<OrienAngleEstimator *>(std::malloc(sizeof(OrienAngleEstimator)));
  if (est == nullptr) return nullptr;
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
  std::free(est);
}
