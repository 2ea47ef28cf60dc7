#include "orienangle/estimator/spatial_scan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "orienangle/estimator/frame_analysis.h"
#include "test_signals.h"

namespace {

using Peaks = std::array<uint32_t, 3>;

Peaks pick(const std::vector<float> &p) {
  Peaks r{};
  spatialPickPeaks(p.data(), r.data());
  return r;
}

TEST(PeakPicking, EndPointsAreJudgedAsymmetricallyAndPlacedFirst) {
  std::vector<float> flat(ORIEN_ANGLE_NUM, 0.0f);
  EXPECT_EQ(pick(flat), (Peaks{0, 230, 230}));  // tie counts at 0, not at 180

  std::vector<float> rising(ORIEN_ANGLE_NUM);
  for (int a = 0; a < ORIEN_ANGLE_NUM; ++a) rising[a] = static_cast<float>(a);
  EXPECT_EQ(pick(rising), (Peaks{180, 230, 230}));

  std::vector<float> ends(ORIEN_ANGLE_NUM, 0.0f);
  ends[0] = 1.0f;
  ends[180] = 10.0f;
  EXPECT_EQ(pick(ends), (Peaks{0, 180, 230}));  // placed without comparing values

  ends[90] = 5.0f;  // a stronger interior peak displaces the end point
  EXPECT_EQ(pick(ends), (Peaks{90, 0, 180}));

  std::vector<float> plateau(ORIEN_ANGLE_NUM, 0.0f);  // counts once, at its left edge
  plateau[0] = 1.0f;
  plateau[40] = plateau[41] = 3.0f;
  EXPECT_EQ(pick(plateau), (Peaks{40, 0, 230}));
}

TEST(PeakPicking, InteriorPeaksKeepTheThreeStrongestAndEqualValuesNeverDisplace) {
  std::vector<float> p(ORIEN_ANGLE_NUM, 0.0f);
  p[0] = -1.0f;  // no end-point peaks
  p[180] = -1.0f;
  p[30] = 5.0f;
  p[60] = 9.0f;
  p[90] = 7.0f;
  p[120] = 3.0f;
  EXPECT_EQ(pick(p), (Peaks{60, 90, 30}));
  p[150] = 9.0f;  // equal to the best: goes below it
  EXPECT_EQ(pick(p), (Peaks{60, 150, 90}));
  p[170] = 7.0f;  // equal to the third: dropped
  EXPECT_EQ(pick(p), (Peaks{60, 150, 90}));
}

class SpatialScan : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { est_ = orienAngleEstimatorCreate(); }
  static void TearDownTestSuite() { orienAngleEstimatorDestroy(est_); }
  static OrienAngleEstimator *est_;
  OrienComplex (*spectra())[ORIEN_SPECTRUM_BINS] { return est_->scratch.spectra; }
};
OrienAngleEstimator *SpatialScan::est_ = nullptr;

TEST_F(SpatialScan, NoSelectedBinGivesAZeroSpectrumAndBroadsideResult) {
  est_->frameCursor = 42;
  for (auto &v : est_->angleSpectrum[42]) v = 7.0f;
  for (auto &s : est_->binSelected) s = 0;
  EXPECT_EQ(spatialSpectrumScan(est_, spectra()), 90);
  for (float v : est_->angleSpectrum[42]) ASSERT_EQ(v, 0.0f);
  EXPECT_EQ((Peaks{est_->peakAngles[42][0], est_->peakAngles[42][1], est_->peakAngles[42][2]}),
            (Peaks{0, 230, 230}));
}

// The check that matters most: a broadband source played from a known direction
// (with a little independent noise per microphone) peaks within 1 degree of it.
TEST_F(SpatialScan, PlaneWaveFromAKnownDirectionPeaksWithinOneDegree) {
  const size_t n = 5 * ORIEN_FRAME_SIZE;
  std::vector<float> frame(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE);
  est_->frameCursor = 7;
  for (double theta : {-80.0, -61.0, -47.6, -37.0, -15.0, 0.0, 8.0, 12.4, 23.0, 45.0, 66.0, 80.0}) {
    std::vector<float> src = testsig::noise(n, 2000.0f, static_cast<uint32_t>(theta + 200));
    std::vector<float> planes = testsig::arrayFrom(src, theta);
    std::vector<float> sensor = testsig::noise(planes.size(), 20.0f, 99);
    for (size_t i = 0; i < planes.size(); ++i) planes[i] += sensor[i];
    for (size_t f = 1; f < 5; ++f) {  // the block is filled with the source
      testsig::frameOf(planes, n, f, frame.data());
      orienAngleFrameAnalyse(est_, frame.data(), nullptr, spectra());
    }
    for (int k = 0; k < ORIEN_BINS; ++k) est_->binSelected[k] = k >= ORIEN_SCAN_FIRST_BIN;
    const int best = spatialSpectrumScan(est_, spectra());
    EXPECT_LE(std::fabs(best - (theta + 90.0)), 1.0) << "theta " << theta;
    EXPECT_EQ(static_cast<int>(est_->peakAngles[7][0]), best) << "theta " << theta;
    const float *row = est_->angleSpectrum[7];
    EXPECT_EQ(row[best], *std::max_element(row, row + ORIEN_ANGLE_NUM));
  }
}

}  // namespace
