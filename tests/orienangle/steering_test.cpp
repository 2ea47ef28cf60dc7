#include "orienangle/estimator/steering.h"

#include <gtest/gtest.h>

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

bool conjugates(OrienComplex a, OrienComplex b) { return a.re == b.re && a.im == -b.im; }

TEST_F(Steering, BroadsideAndZeroFrequencyHaveUnitWeights) {
  auto unit = [](OrienComplex w) { return w.re == 1.0f && w.im == 0.0f; };  // +0 or -0
  for (int i = 0; i < ORIEN_BINS; ++i)
    for (int m = 0; m < ORIEN_MIC_NUM; ++m)
      ASSERT_TRUE(unit(table_[90][i][m]) && (i >= ORIEN_ANGLE_NUM || unit(table_[i][0][m])))
          << i << " " << m;
}

// Mirrored directions and mirrored microphones give exact complex conjugates:
// the sine is odd and the angle argument is exactly negated.
TEST_F(Steering, MirroredDirectionsAndMicrophonesAreExactConjugates) {
  for (int a = 0; a < ORIEN_ANGLE_NUM; ++a)
    for (int k = 0; k < ORIEN_BINS; ++k)
      for (int m = 0; m < ORIEN_MIC_NUM; ++m)
        ASSERT_TRUE(conjugates(table_[180 - a][k][m], table_[a][k][m]) &&
                    conjugates(table_[a][k][7 - m], table_[a][k][m]))
            << a << " " << k << " " << m;
}

}  // namespace
