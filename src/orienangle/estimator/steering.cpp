#include "orienangle/estimator/steering.h"

#include <cmath>

namespace {

// The reference build's phase step of direction a. (a - 90) is exactly negated
// for 180 - a, and so are the angle, its sine (an odd function) and the step.
float phaseStep(int a) {
  double theta = (a - ORIEN_ANGLE_BROADSIDE) * ORIEN_PI / 180.0;
  double s = std::sin(theta);
  return static_cast<float>(s * ORIEN_PHASE_K / ORIEN_SOUND_SPEED);
}

}  // namespace

void steeringBuildReference(OrienComplex (*steering)[ORIEN_BINS][ORIEN_MIC_NUM]) {
  for (int a = 0; a < ORIEN_ANGLE_NUM; ++a) {
    // Direction in double with the truncated pi; at a = 0, sin gives -0.9999999999999997.
    double theta = (a - ORIEN_ANGLE_BROADSIDE) * ORIEN_PI / 180.0;
    double s = std::sin(theta);
    // Phase step per bin of one microphone spacing, rounded to single precision.
    float tau = static_cast<float>(s * ORIEN_PHASE_K / ORIEN_SOUND_SPEED);
    for (int k = 0; k < ORIEN_BINS; ++k) {
      double phi = static_cast<float>(k) * tau;  // single-precision product, then widened
      for (int m = 0; m < ORIEN_MIC_NUM; ++m) {
        double x = (m - ORIEN_MIC_CENTRE) * phi;
        double sn, cs;
        ::sincos(x, &sn, &cs);
        steering[a][k][m].re = static_cast<float>(cs);
        steering[a][k][m].im = static_cast<float>(sn);
      }
    }
  }
}

void steeringBuild(OrienComplex (*steering)[ORIEN_BINS][ORIEN_MIC_NUM], SteeringScanTable *scanTable) {
  const int last = ORIEN_ANGLE_NUM - 1;
  for (int a = 0; a <= ORIEN_ANGLE_BROADSIDE; ++a) {
    float tau = phaseStep(a);
    const int mirror = last - a;
    for (int k = 0; k < ORIEN_BINS; ++k) {
      double phi = static_cast<float>(k) * tau;
      float(*scan)[2][SCAN_LANES] = nullptr;  // this entry's weights in the scan table
      if (scanTable != nullptr && k >= ORIEN_SCAN_FIRST_BIN)
        scan = scanTable->w[k - ORIEN_SCAN_FIRST_BIN][a / SCAN_LANES];
      for (int m = 0; m < SCAN_HALF_MICS; ++m) {
        // x of microphone 7 - m is exactly -x: cos is even, sin odd.
        double x = (m - ORIEN_MIC_CENTRE) * phi;
        double sn, cs;
        ::sincos(x, &sn, &cs);
        const float re = static_cast<float>(cs), im = static_cast<float>(sn);
        const int opposite = ORIEN_MIC_NUM - 1 - m;
        steering[a][k][m] = {re, im};
        steering[a][k][opposite] = {re, -im};
        // Broadside is its own mirror; its zeros keep the signs sincos gives them.
        if (mirror != a) {
          steering[mirror][k][m] = {re, -im};
          steering[mirror][k][opposite] = {re, im};
        }
        if (scan != nullptr) {
          scan[m][0][a % SCAN_LANES] = re;
          scan[m][1][a % SCAN_LANES] = im;
        }
      }
    }
  }
  // Lanes past a = 90 only fill out the last group.
  if (scanTable == nullptr) return;
  for (auto &bin : scanTable->w)
    for (int a = SCAN_HALF_ANGLES; a < SCAN_GROUPS * SCAN_LANES; ++a)
      for (auto &weights : bin[a / SCAN_LANES]) {
        weights[0][a % SCAN_LANES] = 0.0f;
        weights[1][a % SCAN_LANES] = 0.0f;
      }
}

void steeringScanTableBuild(const OrienComplex (*steering)[ORIEN_BINS][ORIEN_MIC_NUM],
                            SteeringScanTable *table) {
  // Group by group, so that the steering rows are read in order (a row per lane).
  for (int g = 0; g < SCAN_GROUPS; ++g)
    for (int lane = 0; lane < SCAN_LANES; ++lane) {
      const int a = g * SCAN_LANES + lane;
      for (int j = 0; j < SCAN_BINS; ++j) {
        float(*weights)[2][SCAN_LANES] = table->w[j][g];
        for (int m = 0; m < SCAN_HALF_MICS; ++m) {
          // Lanes past a = 90 only fill out the last group.
          const OrienComplex w = a < SCAN_HALF_ANGLES ? steering[a][ORIEN_SCAN_FIRST_BIN + j][m]
                                                      : OrienComplex{0.0f, 0.0f};
          weights[m][0][lane] = w.re;
          weights[m][1][lane] = w.im;
        }
      }
    }
}
