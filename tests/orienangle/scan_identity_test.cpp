// The fast angle scan against the plain reference scan: the same spatial
// spectrum up to rounding.
//
// The bound, 1e-5 of the row's maximum for every value: both scans sum up to
// 480 positive per-bin terms in single precision in the same order, and the
// running sums' rounding is a random walk of about sqrt(480) half-ulps (1e-6 of
// the row); the fast scan's terms differ from the plain ones by a few ulps
// (sums of mirrored microphones first, the bin's weight applied as a square
// root, one division per bin instead of per term). Ten times that margin is
// still far below what a wrong weight, sign, lane or bin does (1e-2 and more).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "orienangle/estimator/angle_pipeline.h"
#include "orienangle/estimator/frame_analysis.h"
#include "orienangle/estimator/spatial_scan.h"
#include "sim/voiced_speech.h"
#include "test_signals.h"

namespace {

constexpr float kBound = 1e-5f;

TEST(ScanAccuracy, FastScanStaysWithinTheBoundOfThePlainScan) {
  OrienAngleEstimator *est = orienAngleEstimatorCreate();
  ASSERT_EQ(orienAngleEstimatorUseReferenceArithmetic(est), 0);
  OrienComplex(*spectra)[ORIEN_SPECTRUM_BINS] = est->scratch.spectra;
  float *row = est->angleSpectrum[0];
  std::mt19937 rng(20240611);
  // Both scans on the current spectra, with the pipeline's own bin selection
  // (density < 0) or a random one. The row is dirtied before the fast scan, so
  // an entry left unwritten is caught too.
  auto expectClose = [&](double density) {
    std::bernoulli_distribution keep(density < 0.0 ? 0.0 : density);
    for (int k = ORIEN_SCAN_FIRST_BIN; k < ORIEN_BINS && density >= 0.0; ++k)
      est->binSelected[k] = keep(rng);
    spatialSpectrumScanReference(est, spectra);
    const std::vector<float> plain(row, row + ORIEN_ANGLE_NUM);
    std::fill(row, row + ORIEN_ANGLE_NUM, NAN);
    const int best = spatialSpectrumScan(est, spectra);
    const float top = *std::max_element(plain.begin(), plain.end());
    for (int a = 0; a < ORIEN_ANGLE_NUM; ++a)
      ASSERT_LE(std::fabs(row[a] - plain[a]), kBound * top)
          << "density " << density << ", angle " << a;
    ASSERT_GE(plain[best], top - kBound * top)
        << "density " << density;  // the maximum, up to a near-tie
  };

  // Speech from several directions over a little noise, then noise alone.
  const size_t n = 10 * ORIEN_FRAME_SIZE;  // 0.2 s per source
  const std::vector<float> talker = makeVoicedSpeech(0.25, 48000, 11);
  std::vector<float> frame(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE);
  for (double theta : {-90.0, -52.5, 0.0, 33.0, 90.0, 999.0}) {
    std::vector<float> planes = testsig::noise(ORIEN_MIC_NUM * n, theta > 90.0 ? 500.0f : 30.0f, 3);
    if (theta <= 90.0) {
      const std::vector<float> speech =
          testsig::arrayFrom({talker.begin(), talker.begin() + n}, theta);
      for (size_t i = 0; i < planes.size(); ++i) planes[i] += 3000.0f * speech[i];
    }
    for (size_t f = 0; f < n / ORIEN_FRAME_SIZE; ++f) {
      testsig::frameOf(planes, n, f, frame.data());
      orienAngleFrameAnalyse(est, frame.data(), nullptr, spectra);
      angleSelectBins(est);
      for (double density : {-1.0, 0.03, 0.5, 1.0}) ASSERT_NO_FATAL_FAILURE(expectClose(density));
    }
  }

  // The bound is relative: the last spectra scaled far down or up meet it as
  // well, and zero spectra give exact zeros.
  OrienComplex saved[ORIEN_MIC_NUM][ORIEN_SPECTRUM_BINS];
  std::memcpy(saved, spectra, sizeof saved);
  for (float scale : {1e-15f, 1e9f, 0.0f}) {
    for (int m = 0; m < ORIEN_MIC_NUM; ++m)
      for (int k = 0; k < ORIEN_SPECTRUM_BINS; ++k)
        spectra[m][k] = {saved[m][k].re * scale, saved[m][k].im * scale};
    ASSERT_NO_FATAL_FAILURE(expectClose(0.5));
  }
  orienAngleEstimatorDestroy(est);
}

}  // namespace
