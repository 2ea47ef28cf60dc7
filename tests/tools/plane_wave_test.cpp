#include "sim/plane_wave.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

constexpr double kPi = 3.14159265358979323846;

std::vector<float> sine(double hz, size_t n) {
  std::vector<float> s(n);
  for (size_t i = 0; i < n; ++i) s[i] = static_cast<float>(std::sin(2.0 * kPi * hz * i / 48000.0));
  return s;
}

TEST(PlaneWave, DelayIsPositiveForMicrophonesOnTheFarSideOfAPositiveAngle) {
  double expected0 = -3.5 * 0.03 * 0.5 / 346.0 * 48000.0;  // theta = 30 degrees
  EXPECT_NEAR(planeWaveDelaySamples(0, 30.0), expected0, 1e-12);
  EXPECT_NEAR(planeWaveDelaySamples(7, 30.0), -expected0, 1e-12);
  EXPECT_EQ(planeWaveDelaySamples(3, 0.0), 0.0);
  EXPECT_EQ(planeWaveAngleIndex(-90), 0);
  EXPECT_EQ(planeWaveAngleIndex(90), 180);
}

// The fractional delay reproduces analytically delayed sines across the band.
TEST(PlaneWave, FractionalDelayMatchesAnalyticSinesUpTo6kHz) {
  const size_t n = 4000;
  std::vector<float> out(8 * n);
  for (double hz : {200.0, 1000.0, 3100.0, 6000.0}) {
    for (double theta : {-73.0, 0.0, 17.5, 90.0}) {
      std::vector<float> src = sine(hz, n);
      planeWaveRender(src.data(), n, theta, out.data());
      for (int m = 0; m < 8; ++m) {
        double d = planeWaveDelaySamples(m, theta);
        double worst = 0.0;
        for (size_t i = 200; i < n - 200; ++i) {
          double want = std::sin(2.0 * kPi * hz * (i - d) / 48000.0);
          worst = std::fmax(worst, std::fabs(out[m * n + i] - want));
        }
        EXPECT_LT(worst, 1e-5) << hz << " Hz, theta " << theta << ", mic " << m;
      }
    }
  }
}

TEST(PlaneWave, SegmentsAndPathsAgreeWithFixedRendering) {
  const size_t n = 3000;
  std::vector<float> src(n);
  unsigned seed = 1;
  for (auto &v : src) {
    seed = seed * 1103515245u + 12345u;
    v = static_cast<float>((seed >> 16) % 2001) - 1000.0f;
  }
  std::vector<float> a(8 * n), b(8 * n), seg(8 * n), path(8 * n);
  planeWaveRender(src.data(), n, -40.0, a.data());
  planeWaveRender(src.data(), n, 55.0, b.data());
  PlaneWaveSegment schedule[] = {{0, -40.0}, {1500, 55.0}};
  planeWaveRenderSegments(src.data(), n, schedule, 2, seg.data());
  std::vector<double> theta(n, -40.0);
  for (size_t i = 1500; i < n; ++i) theta[i] = 55.0;
  planeWaveRenderPath(src.data(), n, theta.data(), path.data());
  for (int m = 0; m < 8; ++m) {
    for (size_t i = 0; i < n; ++i) {
      const float want = i < 1500 ? a[m * n + i] : b[m * n + i];
      ASSERT_EQ(seg[m * n + i], want) << m << " " << i;
      ASSERT_EQ(path[m * n + i], want) << m << " " << i;
    }
  }
}

// An integer delay reads the source sample itself; the signal ends count as zero.
TEST(PlaneWave, IntegerDelayCopiesTheSourceAndPadsWithZeros) {
  const size_t n = 64;
  std::vector<float> src(n), out(8 * n);
  src[10] = 1.0f;
  planeWaveRender(src.data(), n, 0.0, out.data());  // broadside: every delay is 0
  for (int m = 0; m < 8; ++m)
    for (size_t i = 0; i < n; ++i) ASSERT_NEAR(out[m * n + i], src[i], 1e-12) << m << " " << i;
}

}  // namespace
