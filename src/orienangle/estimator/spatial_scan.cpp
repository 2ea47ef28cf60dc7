#include "orienangle/estimator/spatial_scan.h"

#include <cmath>

#include "orienangle/estimator/scan_kernel.h"
#include "orienangle/estimator/steering.h"

void spatialPickPeaks(const float *p, uint32_t *peaks) {
  const int none = ANGLE_NONE;
  int c0 = none, c1 = none, c2 = none;
  const int last = ORIEN_ANGLE_NUM - 1;

  // End points first, placed without comparing their values (a tie counts at 0, not at 180).
  const bool lowEnd = p[0] >= p[1];
  const bool highEnd = p[last] > p[last - 1];
  if (lowEnd) {
    c0 = 0;
    if (highEnd) c1 = last;
  } else if (highEnd) {
    c0 = last;
  }

  // Interior peaks, inserted by value; an equal value never displaces a slot.
  for (int i = 1; i < last; ++i) {
    if (!(p[i] > p[i - 1] && p[i] >= p[i + 1])) continue;
    if (c0 == none) {
      c0 = i;
    } else if (p[i] > p[c0]) {
      c2 = c1;
      c1 = c0;
      c0 = i;
    } else if (c1 == none) {
      c1 = i;
    } else if (p[i] > p[c1]) {
      c2 = c1;
      c1 = i;
    } else if (c2 == none || p[i] > p[c2]) {
      c2 = i;
    }
  }
  peaks[0] = static_cast<uint32_t>(c0);
  peaks[1] = static_cast<uint32_t>(c1);
  peaks[2] = static_cast<uint32_t>(c2);
}

namespace {

// The IEEE square root of a ratio of powers (never negative). On ARM the
// instruction itself: std::sqrt adds a compare, a flag transfer and a branch
// to its errno path on every call.
inline float sqrtOfRatio(float x) {
#if defined(__arm__) && defined(__ARM_FP)
  float root;
  asm("vsqrt.f32 %0, %1" : "=t"(root) : "t"(x));
  return root;
#else
  return std::sqrt(x);
#endif
}

// Global maximum by the plain rule: from 0.0 at 90, only a strictly greater value
// replaces it. Then the row and its peaks go into the rings.
int storeRow(OrienAngleEstimator *est, const float *power) {
  int best = ORIEN_ANGLE_BROADSIDE;
  float bestPower = 0.0f;
  for (int a = 0; a < ORIEN_ANGLE_NUM; ++a) {
    if (power[a] > bestPower) {
      bestPower = power[a];
      best = a;
    }
  }
  const uint32_t slot = est->frameCursor;
  for (int a = 0; a < ORIEN_ANGLE_NUM; ++a) est->angleSpectrum[slot][a] = power[a];
  spatialPickPeaks(power, est->peakAngles[slot]);
  return best;
}

}  // namespace

int spatialSpectrumScanReference(OrienAngleEstimator *est,
                                 const OrienComplex (*spectra)[ORIEN_SPECTRUM_BINS]) {
  // 1. Bin weights, once per frame: square-root SNR, and the power normaliser.
  float weight[ORIEN_BINS];
  float norm[ORIEN_BINS];
  int bins[ORIEN_BINS];
  int binCount = 0;
  for (int k = ORIEN_SCAN_FIRST_BIN; k < ORIEN_BINS; ++k) {
    if (est->binSelected[k] == 0) continue;
    bins[binCount++] = k;
    weight[k] = std::sqrt(est->binPower[k] / (est->micNoise.binNoise[k] + SCAN_NOISE_EPS));
    norm[k] = est->binPower[k] + SCAN_POWER_EPS;
  }

  // 2. Steered power per direction, in single precision, from the full table
  // (or, without one, from each direction's weights computed in turn).
  float power[ORIEN_ANGLE_NUM];
  OrienComplex row[ORIEN_BINS][ORIEN_MIC_NUM];
  for (int a = 0; a < ORIEN_ANGLE_NUM; ++a) {
    const OrienComplex(*steering)[ORIEN_MIC_NUM] = row;
    if (est->referenceSteering != nullptr)
      steering = est->referenceSteering->w[a];
    else
      steeringReferenceRow(a, row);
    float sum = 0.0f;
    for (int b = 0; b < binCount; ++b) {
      const int k = bins[b];
      const OrienComplex *s = steering[k];
      float yr = 0.0f, yi = 0.0f;
      for (int m = 0; m < ORIEN_MIC_NUM; ++m) {
        const OrienComplex x = spectra[m][k];
        yr += s[m].re * x.re - s[m].im * x.im;
        yi += s[m].im * x.re + s[m].re * x.im;
      }
      sum += ((yr * yr + yi * yi) * weight[k]) / norm[k];
    }
    power[a] = sum;
  }

  // 3. Store the spectrum, then 4, 5: its peaks.
  return storeRow(est, power);
}

int spatialSpectrumScan(OrienAngleEstimator *est,
                        const OrienComplex (*spectra)[ORIEN_SPECTRUM_BINS]) {
  // Steered power of every direction, bins in increasing order, all directions at
  // once: 0..90 in the A sums, 180..90 in the B sums.
  ScanVec sums[2 * SCAN_GROUPS];  // per group: directions g * 4 + lane, then their mirrors
  for (ScanVec &sum : sums) sum = scanZero();
  // Bins go through the kernel in pairs (the same sums in the same order as one
  // by one); an odd one left at the end goes alone.
  ScanBin bins[2];
  const float *weights[2] = {nullptr, nullptr};
  int pending = 0;
  for (int k = ORIEN_SCAN_FIRST_BIN; k < ORIEN_BINS; ++k) {
    if (est->binSelected[k] == 0) continue;
    // The bin's weight over its normaliser, w / norm, goes into P and Q as its
    // square root: |sqrt(f) Y|^2 = f |Y|^2, with no division per direction.
    const float w = sqrtOfRatio(est->binPower[k] / (est->micNoise.binNoise[k] + SCAN_NOISE_EPS));
    const float scale = sqrtOfRatio(w / (est->binPower[k] + SCAN_POWER_EPS));
    scanPrepareBin(bins[pending], spectra, k, scale);
    weights[pending] = &est->scanSteering.w[k - ORIEN_SCAN_FIRST_BIN][0][0][0][0];
    if (++pending == 2) {
      scanKernelPair(bins[0], weights[0], bins[1], weights[1], sums);
      pending = 0;
    }
  }
  if (pending == 1) scanKernel(bins[0], weights[0], sums);

  float power[ORIEN_ANGLE_NUM];
  const int last = ORIEN_ANGLE_NUM - 1;
  for (int g = 0; g < SCAN_GROUPS; ++g)
    for (int lane = 0; lane < SCAN_LANES; ++lane) {
      const int a = g * SCAN_LANES + lane;
      if (a <= ORIEN_ANGLE_BROADSIDE) power[a] = scanLane(sums[2 * g], lane);
      if (a < ORIEN_ANGLE_BROADSIDE) power[last - a] = scanLane(sums[2 * g + 1], lane);
    }
  return storeRow(est, power);
}
