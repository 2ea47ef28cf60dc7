#include "sim/plane_wave.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

// Every microphone's signal is the source, delayed by a fraction of a sample,
// as accurately as the analytically delayed sine across the speech band.
TEST(PlaneWave, FractionalDelayMatchesAnalyticSinesUpTo6kHz) {
  EXPECT_LT(planeWaveDelaySamples(0, 30.0), 0.0);  // a talker at a positive angle reaches microphone 0 first
  EXPECT_EQ(planeWaveDelaySamples(3, 0.0), 0.0);
  const size_t n = 4000;
  std::vector<float> src(n), out(8 * n);
  for (double hz : {200.0, 1000.0, 3100.0, 6000.0}) {
    for (double theta : {-73.0, 0.0, 17.5, 90.0}) {
      for (size_t i = 0; i < n; ++i) src[i] = static_cast<float>(std::sin(2.0 * M_PI * hz * i / 48000.0));
      planeWaveRender(src.data(), n, theta, out.data());
      for (int m = 0; m < 8; ++m) {
        const double d = planeWaveDelaySamples(m, theta);
        double worst = 0.0;
        for (size_t i = 200; i < n - 200; ++i)
          worst = std::fmax(worst, std::fabs(out[m * n + i] - std::sin(2.0 * M_PI * hz * (i - d) / 48000.0)));
        EXPECT_LT(worst, 1e-5) << hz << " Hz, theta " << theta << ", mic " << m;
      }
    }
  }
}

// A direction schedule, or a per-sample path, renders bit for bit as the fixed
// directions do on either side of the change.
TEST(PlaneWave, SegmentsAndPathsAgreeWithFixedRendering) {
  const size_t n = 3000;
  std::vector<float> src(n);
  unsigned seed = 1;
  for (auto &v : src) v = static_cast<float>(((seed = seed * 1103515245u + 12345u) >> 16) % 2001) - 1000.0f;
  std::vector<float> a(8 * n), b(8 * n), seg(8 * n), path(8 * n);
  planeWaveRender(src.data(), n, -40.0, a.data());
  planeWaveRender(src.data(), n, 55.0, b.data());
  const PlaneWaveSegment schedule[] = {{0, -40.0}, {1500, 55.0}};
  planeWaveRenderSegments(src.data(), n, schedule, 2, seg.data());
  std::vector<double> theta(n, -40.0);
  std::fill(theta.begin() + 1500, theta.end(), 55.0);
  planeWaveRenderPath(src.data(), n, theta.data(), path.data());
  for (size_t k = 0; k < 8 * n; ++k) {
    const float want = k % n < 1500 ? a[k] : b[k];
    ASSERT_EQ(seg[k], want) << k / n << " " << k % n;
    ASSERT_EQ(path[k], want) << k / n << " " << k % n;
  }
}
