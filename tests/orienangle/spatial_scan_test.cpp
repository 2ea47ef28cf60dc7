#include "orienangle/estimator/spatial_scan.h"

#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <utility>
#include <vector>

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
      {{{0, -1}, {180, -1}, {30, 5}, {60, 9}, {90, 7}, {120, 3}, {150, 9}}, {60, 150, 90}},
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

}  // namespace
