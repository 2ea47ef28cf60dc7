#include "orienangle/angle_pipeline.h"
#include "orienangle/estimator.h"

// Placeholder bodies, replaced by the estimator core.
struct OrienAngleEstimator { int unused; };
OrienAngleEstimator *orienAngleEstimatorCreate() { return new OrienAngleEstimator(); }
int orienAngleEstimatorInit(OrienAngleEstimator *) { return 0; }
void orienAngleEstimatorDestroy(OrienAngleEstimator *est) { delete est; }
float angleFrameProcess(OrienAngleEstimator *, const float *, const float *, const float *,
                        uint8_t *outAngle, uint8_t *outAux) {
  *outAngle = ANGLE_NONE;
  *outAux = ANGLE_NONE;
  return 0.0f;
}
