#include "orienangle/estimator/noise_tracker.h"

#include <cmath>
#include <cstring>

const int32_t VOICE_METRIC_TABLE[NOISE_SNR_INDEX_MAX + 1] = {
    2,  2,  2,  2,  2,  2,  2,  2,  2,  2,  2,  3,  3,  3,  3,  3,  4,  4,  4,  5,  5,  5,  6,
    6,  7,  7,  7,  8,  8,  9,  9,  10, 10, 11, 12, 12, 13, 13, 14, 15, 15, 16, 17, 17, 18, 19,
    20, 20, 21, 22, 23, 24, 24, 25, 26, 27, 28, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 37, 38,
    39, 40, 41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 50, 50, 50, 50, 50, 50, 50, 50, 50};

void noiseTrackerInit(NoiseTracker *t) {
  std::memset(t, 0, sizeof *t);
  t->firstFrame = 1;
  t->forcedUpdate = 1;
}

namespace {

// Floors compare the value widened to double with the double constant and store
// the single-precision floor.
float floorEnergy(float v) {
  return static_cast<double>(v) < NOISE_ENERGY_FLOOR ? NOISE_ENERGY_FLOOR_F : v;
}
float floorBin(float v) { return static_cast<double>(v) < NOISE_BIN_FLOOR ? NOISE_BIN_FLOOR_F : v; }

int quantisedSnr(float energy, float noise) {
  // Division in single precision, logarithm in double, stored as float.
  float s = static_cast<float>(10.0 * std::log10(static_cast<double>(energy / noise)));
  if (s < 0.0f) return 0;
  return static_cast<int>((s + NOISE_SNR_OFFSET_DB) / NOISE_SNR_STEP_DB);
}

}  // namespace

void noiseTrackerUpdate(NoiseTracker *t, const float *energies, const float *binPowers) {
  // Smoothing weights (single precision); the first frame takes the energies as they are.
  float wNew = NOISE_NEW_WEIGHT;
  float wOld = NOISE_OLD_WEIGHT;
  if (t->firstFrame == 1) {
    wNew = 1.0f;
    wOld = 0.0f;
  }
  // Updates so far, this one included (start-up ends after ten).
  const uint32_t n = ++t->frameCount;

  // Smoothed band energies and their slower average.
  for (int i = 0; i < ORIEN_BANDS; ++i) {
    float c = wNew * energies[i] + wOld * t->chanEnergy[i];  // single precision
    double h;
    if (static_cast<double>(c) < NOISE_ENERGY_FLOOR) {
      t->chanEnergy[i] = NOISE_ENERGY_FLOOR_F;
      h = NOISE_ENERGY_FLOOR_HALF;
    } else {
      t->chanEnergy[i] = c;
      h = 0.5 * c;
    }
    t->chanEnergyLong[i] = static_cast<float>(h + 0.5 * t->chanEnergyLong[i]);
  }

  // Start-up: the noise simply follows the floored energies.
  if (n <= NOISE_STARTUP_FRAMES) {
    for (int i = 0; i < ORIEN_BANDS; ++i)
      t->chanNoise[i] = static_cast<double>(t->chanEnergy[i]) > NOISE_ENERGY_FLOOR
                            ? t->chanEnergy[i]
                            : NOISE_ENERGY_FLOOR_F;
    if (binPowers != nullptr)
      for (int k = 0; k < ORIEN_BINS; ++k)
        t->binNoise[k] =
            static_cast<double>(binPowers[k]) > NOISE_BIN_FLOOR ? binPowers[k] : NOISE_BIN_FLOOR_F;
  }

  // Voice metric over channels 1..16 from the quantised band SNRs.
  int32_t v = 0;
  for (int i = NOISE_METRIC_FIRST_BAND; i < NOISE_METRIC_FIRST_BAND + NOISE_METRIC_BANDS; ++i) {
    int q = quantisedSnr(t->chanEnergy[i], t->chanNoise[i]);
    v += VOICE_METRIC_TABLE[q < NOISE_SNR_INDEX_MAX ? q : NOISE_SNR_INDEX_MAX];
  }

  // Total energy, single precision from 0 in increasing channel order.
  float tce = 0.0f;
  for (int i = NOISE_METRIC_FIRST_BAND; i < NOISE_METRIC_FIRST_BAND + NOISE_METRIC_BANDS; ++i)
    tce += t->chanEnergy[i];

  // This frame's levels in dB.
  float level[NOISE_METRIC_BANDS];
  for (int j = 0; j < NOISE_METRIC_BANDS; ++j)
    level[j] = static_cast<float>(10.0 * std::log10(static_cast<double>(t->chanEnergy[j + 1])));
  if (t->firstFrame == 1)
    for (int j = 0; j < NOISE_METRIC_BANDS; ++j) t->chanEnergyDb[j] = level[j];

  // Spectral deviation against the long-term levels (single precision).
  float dev = 0.0f;
  for (int j = 0; j < NOISE_METRIC_BANDS; ++j) dev += std::fabs(t->chanEnergyDb[j] - level[j]);

  // Long-term averaging factor from the total energy: loud frames average slowest.
  float alpha = static_cast<float>(
      NOISE_ALPHA_MAX -
      NOISE_ALPHA_SLOPE * (NOISE_ALPHA_REF_DB - 10.0 * std::log10(static_cast<double>(tce))));
  double beta;
  if (alpha > NOISE_ALPHA_MAX) {
    alpha = NOISE_ALPHA_MAX_F;
    beta = NOISE_BETA_MIN;
  } else if (alpha < NOISE_ALPHA_MIN) {
    alpha = static_cast<float>(NOISE_ALPHA_MIN);
    beta = NOISE_ALPHA_MIN;
  } else {
    beta = 1.0 - alpha;
  }

  // Long-term levels: single-precision product, double sum.
  for (int j = 0; j < NOISE_METRIC_BANDS; ++j) {
    float kept = alpha * t->chanEnergyDb[j];
    t->chanEnergyDb[j] = static_cast<float>(kept + beta * level[j]);
  }

  // Update decision: forced for noise-like or quiet frames, else after a steady run.
  bool update = false;
  t->forcedUpdate = 0;
  if (v <= NOISE_METRIC_FORCED || tce < NOISE_LOW_ENERGY) {
    update = true;
    t->updateCnt = 0;
    t->forcedUpdate = 1;
  } else if (tce > NOISE_MIN_TOTAL && dev < NOISE_STEADY_DEVIATION) {
    t->updateCnt += 1;
    update = t->updateCnt > NOISE_STEADY_FRAMES;
  }

  // Hysteresis: a count that stops moving is cleared after seven frames.
  if (t->updateCnt == t->lastUpdateCnt) {
    t->hysterCnt += 1;
    if (t->hysterCnt > NOISE_HYSTERESIS_FRAMES) t->updateCnt = 0;
  } else {
    t->lastUpdateCnt = t->updateCnt;
    t->hysterCnt = 0;
  }

  // Noise update (double, stored as float, floored).
  if (update) {
    for (int i = 0; i < ORIEN_BANDS; ++i)
      t->chanNoise[i] = floorEnergy(static_cast<float>(NOISE_UPDATE_RATE * t->chanEnergy[i] +
                                                       NOISE_UPDATE_KEEP * t->chanNoise[i]));
    if (binPowers != nullptr)
      for (int k = 0; k < ORIEN_BINS; ++k)
        t->binNoise[k] = floorBin(static_cast<float>(NOISE_UPDATE_RATE * binPowers[k] +
                                                     NOISE_UPDATE_KEEP * t->binNoise[k]));
  }

  // Kept for the callers' activity tests.
  t->voiceMetric = v;
  t->firstFrame = 0;
}
