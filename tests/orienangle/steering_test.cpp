#include "orienangle/estimator/steering.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace {

class Steering : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    table_ = new SteeringTable;
    steeringBuildReference(table_);
  }
  static void TearDownTestSuite() { delete table_; }
  static SteeringTable *table_;
};
SteeringTable *Steering::table_ = nullptr;

bool conjugates(OrienComplex a, OrienComplex b) { return a.re == b.re && a.im == -b.im; }

// Mirrored directions and mirrored microphones give exact complex conjugates:
// the sine is odd and the angle argument is exactly negated (the angle scan
// relies on both). Broadside and zero frequency have unit weights.
TEST_F(Steering, MirroredDirectionsAndMicrophonesAreExactConjugates) {
  for (int a = 0; a < ORIEN_ANGLE_NUM; ++a)
    for (int k = 0; k < ORIEN_BINS; ++k)
      for (int m = 0; m < ORIEN_MIC_NUM; ++m) {
        const OrienComplex w = table_->w[a][k][m];
        ASSERT_TRUE(conjugates(table_->w[180 - a][k][m], w) && conjugates(table_->w[a][k][7 - m], w) &&
                    ((a != 90 && k != 0) || (w.re == 1.0f && w.im == 0.0f)))  // +0 or -0
            << a << " " << k << " " << m;
      }
}

// The scan's quarter holds the full table's weights bit for bit, in its own
// layout, and zeros in the lanes past a = 90.
TEST_F(Steering, ScanTableIsTheReferenceQuarterInScanOrder) {
  auto scan = std::make_unique<SteeringScanTable>();
  std::memset(scan.get(), 0x5A, sizeof *scan);
  steeringScanBuild(scan.get());
  for (int j = 0; j < SCAN_BINS; ++j)
    for (int a = 0; a < SCAN_GROUPS * SCAN_LANES; ++a)
      for (int m = 0; m < SCAN_HALF_MICS; ++m) {
        const float(*w)[SCAN_LANES] = scan->w[j][a / SCAN_LANES][m];
        const OrienComplex want = a <= 90 ? table_->w[a][j + ORIEN_SCAN_FIRST_BIN][m] : OrienComplex{0, 0};
        ASSERT_TRUE(std::memcmp(&w[0][a % SCAN_LANES], &want.re, 4) == 0 &&
                    std::memcmp(&w[1][a % SCAN_LANES], &want.im, 4) == 0)
            << j << " " << a << " " << m;
      }
}

}  // namespace
