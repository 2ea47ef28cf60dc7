// The direction estimator's one state record and its life cycle.
#pragma once

struct OrienAngleEstimator;  // defined with the estimator core

OrienAngleEstimator *orienAngleEstimatorCreate();
int orienAngleEstimatorInit(OrienAngleEstimator *est);
void orienAngleEstimatorDestroy(OrienAngleEstimator *est);
