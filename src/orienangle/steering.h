// Steering table of the 8-microphone line array: for each grid direction a
// (theta = a - 90 degrees), bin k and microphone m, the weight
//   e^{+j (m - 3.5) 2 pi f_k d sin(theta) / c},  f_k = k * 11.71875 Hz,
// which phase-aligns a plane wave from theta across the microphones.
#pragma once
#include "orienangle/estimator_constants.h"
#include "orienangle/spectrum.h"

void steeringBuild(OrienComplex (*steering)[ORIEN_BINS][ORIEN_MIC_NUM]);
void steeringBuildReference(OrienComplex (*steering)[ORIEN_BINS][ORIEN_MIC_NUM]);
