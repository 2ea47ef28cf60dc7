#include "orienangle/estimator/far_end_detector.h"

#include "orienangle/estimator/noise_tracker.h"
#include "orienangle/estimator/spectrum.h"

// The detector's band smoothing, noise start-up, voice metric, long-term levels,
// update decision, hysteresis and noise update are step for step the microphone
// tracker's update (same weights, floors, limits and precision), run without bin
// powers; the detector adds only its activity decision and the latch.
void farEndDetect(OrienAngleEstimator *est, const float *spkinFrame) {
  OrienComplex *spectrum = est->scratch.refSpectrum;
  spectrumAnalyseBlock(orienAngleTransformPlan(est), est->refHistory, spkinFrame, spectrum);
  float energies[ORIEN_BANDS];
  bandEnergies(energies, spectrum);

  NoiseTracker *t = &est->refNoise;
  noiseTrackerUpdate(t, energies, nullptr);

  const uint32_t slot = est->frameCursor;
  const bool active = !(t->voiceMetric < FAR_END_ACTIVE_METRIC || t->forcedUpdate == 1);
  est->farEndFlag[slot] = active ? 1u : 0u;

  // The window of the last 100 frames is the whole ring.
  int count = 0;
  for (int i = 0; i < ORIEN_SLOTS; ++i)
    if (est->farEndFlag[i] != 0) ++count;
  if (est->farEndLatched == 0) {
    if (count > FAR_END_LATCH_ON) est->farEndLatched = 1;
  } else if (est->farEndLatched == 1) {
    if (count < FAR_END_LATCH_OFF && !active) est->farEndLatched = 0;
  }
}
