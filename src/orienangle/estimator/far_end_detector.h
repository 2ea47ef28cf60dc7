// Loudspeaker activity detector: a voice-metric test on the loudspeaker reference
// ("Spkin") decides per frame whether the board's own loudspeaker plays, and a
// latch with hysteresis over the last 100 frames says whether it is playing.
#pragma once
#include <cstdint>

#include "orienangle/estimator/estimator_constants.h"
#include "orienangle/estimator/noise_tracker.h"

struct OrienAngleEstimator;

// The detector's state, a record of its own inside the estimator record.
struct FarEndDetector {
  float refHistory[ORIEN_HISTORY];   // loudspeaker reference history
  NoiseTracker refNoise;             // the reference's noise tracker
  uint32_t farEndFlag[ORIEN_SLOTS];  // reference active, per frame (indexed by frameCursor)
  int32_t farEndLatched;             // loudspeaker judged playing
};

// spkinFrame: 960 reference samples at 16-bit scale. Writes farEnd.farEndFlag[frameCursor],
// may change farEnd.farEndLatched; runs before the frame cursor advances.
void farEndDetect(OrienAngleEstimator *est, const float *spkinFrame);
