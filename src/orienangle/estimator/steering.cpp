#include "orienangle/estimator/steering.h"

#include <cmath>

namespace {

// Phase step per bin of one microphone spacing for direction a, rounded to
// single precision. The angle is formed in double with the truncated pi; at
// a = 0, sin gives -0.9999999999999997. (a - 90) is exactly negated for
// 180 - a, and so are the angle, its sine (an odd function) and the step.
float phaseStep(int a) {
  double theta = (a - ORIEN_ANGLE_BROADSIDE) * ORIEN_PI / 180.0;
  double s = std::sin(theta);
  return static_cast<float>(s * ORIEN_PHASE_K / ORIEN_SOUND_SPEED);
}

OrienComplex weight(float tau, int k, int m) {
  double phi = static_cast<float>(k) * tau;  // single-precision product, then widened
  double x = (m - ORIEN_MIC_CENTRE) * phi;
  double sn, cs;
  ::sincos(x, &sn, &cs);
  return {static_cast<float>(cs), static_cast<float>(sn)};
}

}  // namespace

void steeringReferenceRow(int a, OrienComplex (*row)[ORIEN_MIC_NUM]) {
  const float tau = phaseStep(a);
  for (int k = 0; k < ORIEN_BINS; ++k)
    for (int m = 0; m < ORIEN_MIC_NUM; ++m) row[k][m] = weight(tau, k, m);
}

void steeringBuildReference(SteeringTable *table) {
  for (int a = 0; a < ORIEN_ANGLE_NUM; ++a) steeringReferenceRow(a, table->w[a]);
}

void steeringScanBuild(SteeringScanTable *table) {
  for (int g = 0; g < SCAN_GROUPS; ++g)
    for (int lane = 0; lane < SCAN_LANES; ++lane) {
      const int a = g * SCAN_LANES + lane;
      const float tau = a < SCAN_HALF_ANGLES ? phaseStep(a) : 0.0f;
      for (int j = 0; j < SCAN_BINS; ++j)
        for (int m = 0; m < SCAN_HALF_MICS; ++m) {
          // Lanes past a = 90 only fill out the last group.
          const OrienComplex w = a < SCAN_HALF_ANGLES ? weight(tau, ORIEN_SCAN_FIRST_BIN + j, m)
                                                      : OrienComplex{0.0f, 0.0f};
          table->w[j][g][m][0][lane] = w.re;
          table->w[j][g][m][1][lane] = w.im;
        }
    }
}
