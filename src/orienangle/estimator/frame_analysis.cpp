#include "orienangle/estimator/frame_analysis.h"

#include <cmath>

#if defined(__ARM_NEON)
#include <arm_neon.h>
#endif

#include "orienangle/estimator/noise_tracker.h"
#include "orienangle/estimator/spectrum.h"

int frameSpeechDecision(float lowMaxDb, float highMaxDb) {
  if (!(lowMaxDb > SPEECH_LOW_MIN_DB)) return 0;
  if (highMaxDb > SPEECH_HIGH_MAX_DB && highMaxDb > lowMaxDb - SPEECH_HIGH_MARGIN_DB) return 0;
  return 1;
}

namespace {

// Band SNR in dB: +1 in single precision, logarithms and difference in double.
float bandSnrDb(float energy, float noise) {
  double e = 10.0 * std::log10(static_cast<double>(energy + 1.0f));
  double n = 10.0 * std::log10(static_cast<double>(noise + 1.0f));
  return static_cast<float>(e - n);
}

#if defined(__ARM_NEON)
// Four bins per vector (vld2 splits re and im); the same products and sums in
// the same order as the plain loop, each rounded on its own (vmla does not fuse).
void binPowers(const OrienComplex (*spectra)[ORIEN_SPECTRUM_BINS], float *power) {
  static_assert(ORIEN_BINS % 4 == 0, "whole vectors of bins");
  for (int k = 0; k < ORIEN_BINS; k += 4) {
    float32x4_t p = vdupq_n_f32(0.0f);
    for (int c = 0; c < ORIEN_MIC_NUM; ++c) {
      const float32x4x2_t x = vld2q_f32(&spectra[c][k].re);
      p = vaddq_f32(p, vmlaq_f32(vmulq_f32(x.val[1], x.val[1]), x.val[0], x.val[0]));
    }
    vst1q_f32(power + k, p);
  }
}
#else
void binPowers(const OrienComplex (*spectra)[ORIEN_SPECTRUM_BINS], float *power) {
  for (int k = 0; k < ORIEN_BINS; ++k) {
    float p = 0.0f;
    for (int c = 0; c < ORIEN_MIC_NUM; ++c)
      p += spectra[c][k].im * spectra[c][k].im + spectra[c][k].re * spectra[c][k].re;
    power[k] = p;
  }
}
#endif

}  // namespace

float orienAngleFrameAnalyse(OrienAngleEstimator *est, const float *frame, const float *,
                             OrienComplex (*spectra)[ORIEN_SPECTRUM_BINS]) {
  // Analysis block and transform per microphone.
  RealTransformPlan *plan = orienAngleTransformPlan(est);
  for (int c = 0; c < ORIEN_MIC_NUM; ++c)
    spectrumAnalyseBlock(plan, est->micHistory[c], frame + c * ORIEN_FRAME_SIZE, spectra[c]);

  // Band energies of microphone 0.
  bandEnergies(est->bandEnergy, spectra[0]);

  // Bin powers summed over microphones (single precision), smoothed in double.
  binPowers(spectra, est->binPower);
  for (int k = 0; k < ORIEN_BINS; ++k)
    est->binPowerSmooth[k] =
        static_cast<float>(SMOOTH_NEW * est->binPower[k] + SMOOTH_OLD * est->binPowerSmooth[k]);

  // Band and bin noise of the microphones.
  noiseTrackerUpdate(&est->micNoise, est->bandEnergy, est->binPower);

  // Smoothed band energies into the 8-frame ring (the cursor advances per frame elsewhere).
  const uint32_t j = est->ringCursor;
  const uint32_t prev = (j + ORIEN_BAND_RING - 1) % ORIEN_BAND_RING;
  for (int i = 0; i < ORIEN_BANDS; ++i)
    est->bandEnergyRing[j][i] = static_cast<float>(SMOOTH_NEW * est->bandEnergy[i] +
                                                   SMOOTH_OLD * est->bandEnergyRing[prev][i]);

  // Speech decision from the band SNRs of this frame's raw energies against the tracked noise.
  float lowMax = 0.0f, highMax = 0.0f;
  for (int b = 0; b <= SPEECH_LOW_LAST_BAND; ++b) {
    float d = bandSnrDb(est->bandEnergy[b], est->micNoise.chanNoise[b]);
    if (d > lowMax) lowMax = d;
  }
  for (int b = SPEECH_HIGH_FIRST_BAND; b < ORIEN_LIVE_BANDS; ++b) {
    float d = bandSnrDb(est->bandEnergy[b], est->micNoise.chanNoise[b]);
    if (d > highMax) highMax = d;
  }
  est->decision.speechFlag[est->frameCursor] =
      static_cast<uint32_t>(frameSpeechDecision(lowMax, highMax));
  return 0.0f;
}
