#include "orienangle/estimator/spatial_scan.h"

#include <cmath>

#include "orienangle/estimator/scan_vector.h"
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

  // 2. Steered power per direction, in single precision.
  float power[ORIEN_ANGLE_NUM];
  int best = ORIEN_ANGLE_BROADSIDE;
  float bestPower = 0.0f;
  for (int a = 0; a < ORIEN_ANGLE_NUM; ++a) {
    float sum = 0.0f;
    for (int b = 0; b < binCount; ++b) {
      const int k = bins[b];
      const OrienComplex *s = est->steering[a][k];
      float yr = 0.0f, yi = 0.0f;
      for (int m = 0; m < ORIEN_MIC_NUM; ++m) {
        const OrienComplex x = spectra[m][k];
        yr += s[m].re * x.re - s[m].im * x.im;
        yi += s[m].im * x.re + s[m].re * x.im;
      }
      sum += ((yr * yr + yi * yi) * weight[k]) / norm[k];
    }
    power[a] = sum;
    if (sum > bestPower) {
      bestPower = sum;
      best = a;
    }
  }

  // 3. Store the spectrum, then 4, 5: its peaks.
  const uint32_t slot = est->frameCursor;
  for (int a = 0; a < ORIEN_ANGLE_NUM; ++a) est->angleSpectrum[slot][a] = power[a];
  spatialPickPeaks(power, est->peakAngles[slot]);
  return best;
}

namespace {

// Steered power of one bin for the directions of one lane group and their mirrors.
// Lane l of A is direction a = g * SCAN_LANES + l, lane l of B is 180 - a. Each
// lane runs the plain scan's operations in its order: microphones 0..7 from 0,
//   yr += sr * xr - si * xi,  yi += si * xr + sr * xi,
// then sum += ((yr * yr + yi * yi) * w) / norm. The four products are shared:
// B's weights are A's conjugates, and microphone 7 - m's are m's conjugates, and
// with a negated si the plain operations give exactly
//   sr * xr - (-si) * xi = p1 + p2,   (-si) * xr + sr * xi = p4 - p3.
struct BinLanes {
  ScanVec xr[ORIEN_MIC_NUM], xi[ORIEN_MIC_NUM];  // the bin's spectra, in every lane
  ScanVec weight, norm;
};

inline void scanGroup(const BinLanes &bin, const float *s, ScanVec *sumA, ScanVec *sumB) {
  ScanVec yrA{}, yiA{}, yrB{}, yiB{};
  for (int m = 0; m < SCAN_HALF_MICS; ++m) {
    const ScanVec sr = scanLoad(s + (2 * m) * SCAN_LANES);
    const ScanVec si = scanLoad(s + (2 * m + 1) * SCAN_LANES);
    const ScanVec p1 = sr * bin.xr[m], p2 = si * bin.xi[m];
    const ScanVec p3 = si * bin.xr[m], p4 = sr * bin.xi[m];
    yrA += p1 - p2;
    yiA += p3 + p4;
    yrB += p1 + p2;
    yiB += p4 - p3;
  }
  for (int m = SCAN_HALF_MICS; m < ORIEN_MIC_NUM; ++m) {
    const int opposite = ORIEN_MIC_NUM - 1 - m;
    const ScanVec sr = scanLoad(s + (2 * opposite) * SCAN_LANES);
    const ScanVec si = scanLoad(s + (2 * opposite + 1) * SCAN_LANES);
    const ScanVec p1 = sr * bin.xr[m], p2 = si * bin.xi[m];
    const ScanVec p3 = si * bin.xr[m], p4 = sr * bin.xi[m];
    yrA += p1 + p2;
    yiA += p4 - p3;
    yrB += p1 - p2;
    yiB += p3 + p4;
  }
  *sumA += ((yrA * yrA + yiA * yiA) * bin.weight) / bin.norm;
  *sumB += ((yrB * yrB + yiB * yiB) * bin.weight) / bin.norm;
}

}  // namespace

int spatialSpectrumScan(OrienAngleEstimator *est, const OrienComplex (*spectra)[ORIEN_SPECTRUM_BINS]) {
  // Steered power of every direction, bins in increasing order, all directions at
  // once: 0..90 in the A lanes, 180..90 in the B lanes.
  ScanVec sumA[SCAN_GROUPS], sumB[SCAN_GROUPS];
  for (int g = 0; g < SCAN_GROUPS; ++g) sumA[g] = sumB[g] = ScanVec{};
  const SteeringScanTable &table = est->scanSteering;
  BinLanes bin;
  for (int k = ORIEN_SCAN_FIRST_BIN; k < ORIEN_BINS; ++k) {
    if (est->binSelected[k] == 0) continue;
    bin.weight = scanSplat(std::sqrt(est->binPower[k] / (est->micNoise.binNoise[k] + SCAN_NOISE_EPS)));
    bin.norm = scanSplat(est->binPower[k] + SCAN_POWER_EPS);
    for (int m = 0; m < ORIEN_MIC_NUM; ++m) {
      bin.xr[m] = scanSplat(spectra[m][k].re);
      bin.xi[m] = scanSplat(spectra[m][k].im);
    }
    const float *s = &table.w[k - ORIEN_SCAN_FIRST_BIN][0][0][0][0];
    for (int g = 0; g < SCAN_GROUPS; ++g, s += SCAN_HALF_MICS * 2 * SCAN_LANES)
      scanGroup(bin, s, &sumA[g], &sumB[g]);
  }

  float power[ORIEN_ANGLE_NUM];
  const int last = ORIEN_ANGLE_NUM - 1;
  for (int g = 0; g < SCAN_GROUPS; ++g)
    for (int lane = 0; lane < SCAN_LANES; ++lane) {
      const int a = g * SCAN_LANES + lane;
      if (a <= ORIEN_ANGLE_BROADSIDE) power[a] = scanLane(sumA[g], lane);
      if (a < ORIEN_ANGLE_BROADSIDE) power[last - a] = scanLane(sumB[g], lane);
    }

  // Global maximum by the plain scan's rule: from 0.0 at 90, strictly greater replaces.
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
