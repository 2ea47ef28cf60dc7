#include "orienangle/estimator/spatial_scan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <utility>
#include <vector>

#include "orienangle/estimator/frame_analysis.h"
#include "test_signals.h"

namespace {

using Peaks = std::array<uint32_t, 3>;

// End points are judged asymmetrically (a flat row peaks at 0, not 180) and
// placed without comparing values until a stronger interior peak displaces
// them; a plateau counts once at its left edge; equal values never displace.
TEST(PeakPicking, EndPointsInteriorPeaksPlateausAndTies) {
  const struct {
    std::vector<std::pair<int, float>> points;  // on a row of zeros; a < 0: a rising row
    Peaks want;
  } cases[] = {
      {{}, {0, 230, 230}},
      {{{-1, 0.0f}}, {180, 230, 230}},
      {{{0, 1}, {180, 10}}, {0, 180, 230}},
      {{{0, 1}, {180, 10}, {90, 5}}, {90, 0, 180}},
      {{{0, 1}, {40, 3}, {41, 3}}, {40, 0, 230}},
      {{{0, -1}, {180, -1}, {30, 5}, {60, 9}, {90, 7}, {120, 3}}, {60, 90, 30}},
      {{{0, -1}, {180, -1}, {30, 5}, {60, 9}, {90, 7}, {120, 3}, {150, 9}}, {60, 150, 90}},
      {{{0, -1}, {180, -1}, {30, 5}, {60, 9}, {90, 7}, {120, 3}, {150, 9}, {170, 7}}, {60, 150, 90}},
  };
  for (const auto &c : cases) {
    std::vector<float> row(ORIEN_ANGLE_NUM, 0.0f);
    for (auto [a, v] : c.points) {
      if (a < 0) std::iota(row.begin(), row.end(), 0.0f);
      if (a >= 0) row[a] = v;
    }
    Peaks got{};
    spatialPickPeaks(row.data(), got.data());
    EXPECT_EQ(got, c.want) << c.points.size() << " points";
  }
}

// The check that matters most: a broadband source played from a known direction
// (with a little independent noise per microphone) peaks within 1 degree of it.
TEST(SpatialScan, PlaneWaveFromAKnownDirectionPeaksWithinOneDegree) {
  OrienAngleEstimator *est = orienAngleEstimatorCreate();
  const size_t n = 5 * ORIEN_FRAME_SIZE;
  std::vector<float> frame(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE);
  est->frameCursor = 7;
  for (double theta : {-80.0, -61.0, -47.6, -37.0, -15.0, 0.0, 8.0, 12.4, 23.0, 45.0, 66.0, 80.0}) {
    std::vector<float> src = testsig::noise(n, 2000.0f, static_cast<uint32_t>(theta + 200));
    std::vector<float> planes = testsig::arrayFrom(src, theta);
    std::vector<float> sensor = testsig::noise(planes.size(), 20.0f, 99);
    for (size_t i = 0; i < planes.size(); ++i) planes[i] += sensor[i];
    for (size_t f = 1; f < 5; ++f) {  // the block is filled with the source
      testsig::frameOf(planes, n, f, frame.data());
      orienAngleFrameAnalyse(est, frame.data(), nullptr, est->scratch.spectra);
    }
    for (int k = 0; k < ORIEN_BINS; ++k) est->binSelected[k] = k >= ORIEN_SCAN_FIRST_BIN;
    const int best = spatialSpectrumScan(est, est->scratch.spectra);
    EXPECT_LE(std::fabs(best - (theta + 90.0)), 1.0) << "theta " << theta;
    EXPECT_EQ(static_cast<int>(est->peakAngles[7][0]), best) << "theta " << theta;
    const float *row = est->angleSpectrum[7];
    EXPECT_EQ(row[best], *std::max_element(row, row + ORIEN_ANGLE_NUM));
  }
  orienAngleEstimatorDestroy(est);
}

}  // namespace
