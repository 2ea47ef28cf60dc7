#include "orienangle/steering.h"

#include <cmath>

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

void steeringBuild(OrienComplex (*steering)[ORIEN_BINS][ORIEN_MIC_NUM]) { steeringBuildReference(steering); }
