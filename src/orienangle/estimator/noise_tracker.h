// Band and bin noise tracking with a voice-metric noise estimator (the noise
// update logic of the EVRC noise suppressor): band energies are smoothed, their
// SNR against the noise estimate is quantised into a voice metric, and the noise
// only follows the energy on frames judged noise.
#pragma once
#include <cstdint>

#include "orienangle/estimator/estimator_constants.h"

// Voice-metric weight per quantised band SNR (0.375 dB steps).
extern const int32_t VOICE_METRIC_TABLE[NOISE_SNR_INDEX_MAX + 1];

struct NoiseTracker {
  int32_t firstFrame;                      // 1 until the first update
  float chanEnergy[ORIEN_BANDS];           // smoothed band energies, >= 0.01
  float chanEnergyLong[ORIEN_BANDS];       // slower average of chanEnergy (weight 0.5)
  float chanNoise[ORIEN_BANDS];            // band noise estimates, >= 0.01
  int32_t updateCnt;                       // consecutive steady frames
  int32_t hysterCnt;                       // consecutive frames with updateCnt unchanged
  int32_t lastUpdateCnt;                   // updateCnt as last seen by the hysteresis
  float chanEnergyDb[NOISE_METRIC_BANDS];  // long-term levels in dB of channels 1..16
  uint32_t frameCount;                     // updates so far
  int32_t forcedUpdate;                    // 1: the last frame was noise by metric or energy
  int32_t voiceMetric;                     // voice-metric sum of the last update
  float binNoise[ORIEN_BINS];              // per-bin noise estimates, >= 0.0001
};

// Creation state: all zero except firstFrame and forcedUpdate, which are 1.
void noiseTrackerInit(NoiseTracker *t);

// energies: 22 band energies; binPowers: 500 bin powers, or null to leave the
// per-bin estimates alone.
void noiseTrackerUpdate(NoiseTracker *t, const float *energies, const float *binPowers);
