// Loudspeaker activity detector: a voice-metric test on the loudspeaker reference
// ("Spkin") decides per frame whether the board's own loudspeaker plays, and a
// latch with hysteresis over the last 100 frames says whether it is playing.
#pragma once
#include "orienangle/estimator/estimator.h"

// spkinFrame: 960 reference samples at 16-bit scale. Writes farEndFlag[frameCursor],
// may change farEndLatched; runs before the frame cursor advances.
void farEndDetect(OrienAngleEstimator *est, const float *spkinFrame);
