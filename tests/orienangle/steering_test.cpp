#include "orienangle/steering.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

using Table = OrienComplex[ORIEN_BINS][ORIEN_MIC_NUM];

class Steering : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    table_ = new Table[ORIEN_ANGLE_NUM];
    steeringBuild(table_);
  }
  static void TearDownTestSuite() { delete[] table_; }
  static Table *table_;
};
Table *Steering::table_ = nullptr;

// Exact conjugate (+0 and -0 count as equal).
bool conjugates(OrienComplex a, OrienComplex b) { return a.re == b.re && a.im == -b.im; }

TEST_F(Steering, BroadsideAndZeroFrequencyHaveUnitWeights) {
  for (int k = 0; k < ORIEN_BINS; ++k)
    for (int m = 0; m < ORIEN_MIC_NUM; ++m) {
      ASSERT_EQ(table_[90][k][m].re, 1.0f) << k << " " << m;
      ASSERT_EQ(table_[90][k][m].im, 0.0f) << k << " " << m;
    }
  for (int a = 0; a < ORIEN_ANGLE_NUM; ++a)
    for (int m = 0; m < ORIEN_MIC_NUM; ++m) {
      ASSERT_EQ(table_[a][0][m].re, 1.0f);
      ASSERT_EQ(table_[a][0][m].im, 0.0f);  // +0 or -0
    }
}

// Mirrored directions and mirrored microphones give exact complex conjugates:
// the sine is odd and the angle argument is exactly negated.
TEST_F(Steering, MirroredDirectionsAndMicrophonesAreExactConjugates) {
  for (int a = 0; a < ORIEN_ANGLE_NUM; ++a)
    for (int k = 0; k < ORIEN_BINS; ++k)
      for (int m = 0; m < ORIEN_MIC_NUM; ++m) {
        const OrienComplex w = table_[a][k][m];
        const OrienComplex mirrorAngle = table_[180 - a][k][m];
        const OrienComplex mirrorMic = table_[a][k][7 - m];
        ASSERT_TRUE(conjugates(mirrorAngle, w)) << a << " " << k << " " << m;
        ASSERT_TRUE(conjugates(mirrorMic, w)) << a << " " << k << " " << m;
      }
}

// The weight phase-aligns a plane wave: e^{+j (m - 3.5) 2 pi f d sin(theta) / c}.
TEST_F(Steering, WeightsMatchTheArrayGeometry) {
  const double pi = 3.14159265358979323846;
  for (int a : {0, 17, 60, 133, 180})
    for (int k : {1, 123, 499})
      for (int m : {0, 2, 7}) {
        double f = k * 48000.0 / 4096.0;
        double x = (m - 3.5) * 2.0 * pi * f * 0.03 * std::sin((a - 90) * pi / 180.0) / 346.0;
        EXPECT_NEAR(table_[a][k][m].re, std::cos(x), 2e-5) << a << " " << k << " " << m;
        EXPECT_NEAR(table_[a][k][m].im, std::sin(x), 2e-5) << a << " " << k << " " << m;
      }
}

// The precision chain (double angle with pi = 3.1415926, single-precision phase
// step and product, double sincos) pins the stored values bit for bit.
TEST_F(Steering, EntriesFollowTheSinglePrecisionPhaseStep) {
  const double s = std::sin((0 - 90) * 3.1415926 / 180.0);
  EXPECT_EQ(s, -0.9999999999999997);
  const float tau = static_cast<float>(s * 2.208932296875 / 346.0);
  const double phi = static_cast<double>(499.0f * tau);
  EXPECT_EQ(table_[0][499][0].re, static_cast<float>(std::cos(-3.5 * phi)));
  EXPECT_EQ(table_[0][499][0].im, static_cast<float>(std::sin(-3.5 * phi)));
}

}  // namespace
