// The fast steering build and the fast angle scan against their plain
// references: identical bits, not merely close values.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "orienangle/estimator/angle_pipeline.h"
#include "orienangle/estimator/frame_analysis.h"
#include "orienangle/estimator/spatial_scan.h"
#include "orienangle/estimator/steering.h"
#include "sim/voiced_speech.h"
#include "test_signals.h"

namespace {

using Table = OrienComplex[ORIEN_BINS][ORIEN_MIC_NUM];

// The whole table, and the scan's copy of its quarter, written alongside.
TEST(SteeringIdentity, FastBuildEqualsThePlainBuildBitForBit) {
  std::unique_ptr<Table[]> fast(new Table[ORIEN_ANGLE_NUM]), plain(new Table[ORIEN_ANGLE_NUM]);
  auto fastScan = std::make_unique<SteeringScanTable>(), plainScan = std::make_unique<SteeringScanTable>();
  std::memset(fast.get(), 0x5A, sizeof(Table) * ORIEN_ANGLE_NUM);
  std::memset(fastScan.get(), 0x5A, sizeof *fastScan);
  steeringBuild(fast.get(), fastScan.get());
  steeringBuildReference(plain.get());
  for (int a = 0; a < ORIEN_ANGLE_NUM; ++a)
    ASSERT_EQ(std::memcmp(fast[a], plain[a], sizeof(Table)), 0) << "angle " << a;
  steeringScanTableBuild(plain.get(), plainScan.get());
  EXPECT_EQ(std::memcmp(fastScan.get(), plainScan.get(), sizeof *fastScan), 0);
}

struct EstimatorDeleter {
  void operator()(OrienAngleEstimator *est) const { orienAngleEstimatorDestroy(est); }
};
using EstimatorPtr = std::unique_ptr<OrienAngleEstimator, EstimatorDeleter>;

class ScanIdentity : public ::testing::Test {
 protected:
  OrienComplex (*spectra())[ORIEN_SPECTRUM_BINS] { return est_->scratch.spectra; }

  // Both scans on the current spectra and selection: same return value, same
  // spectrum row and peaks in the rings, bit for bit. The row is dirtied first,
  // so a scan that leaves an entry unwritten is caught too.
  void expectIdentical(const char *what) {
    const uint32_t slot = est_->frameCursor;
    std::memset(est_->angleSpectrum[slot], 0x7F, sizeof est_->angleSpectrum[slot]);
    const int plainBest = spatialSpectrumScanReference(est_.get(), spectra());
    float plainRow[ORIEN_ANGLE_NUM];
    uint32_t plainPeaks[ORIEN_PEAKS];
    std::memcpy(plainRow, est_->angleSpectrum[slot], sizeof plainRow);
    std::memcpy(plainPeaks, est_->peakAngles[slot], sizeof plainPeaks);
    std::memset(est_->angleSpectrum[slot], 0x7F, sizeof est_->angleSpectrum[slot]);
    std::memset(est_->peakAngles[slot], 0x7F, sizeof est_->peakAngles[slot]);
    ++scans_;
    ASSERT_EQ(spatialSpectrumScan(est_.get(), spectra()), plainBest) << what;
    ASSERT_EQ(std::memcmp(est_->angleSpectrum[slot], plainRow, sizeof plainRow), 0) << what;
    ASSERT_EQ(std::memcmp(est_->peakAngles[slot], plainPeaks, sizeof plainPeaks), 0) << what;
  }

  // A random selection of bins 20..499, each kept with probability `density`.
  void selectRandomBins(double density) {
    std::bernoulli_distribution keep(density);
    est_->binSelectedCount = 0;
    for (int k = ORIEN_SCAN_FIRST_BIN; k < ORIEN_BINS; ++k) {
      est_->binSelected[k] = keep(rng_) ? 1 : 0;
      est_->binSelectedCount += est_->binSelected[k];
    }
  }

  // Frames of 8 planes: one scan with the pipeline's own bin selection (density
  // -1), then several with random selections.
  void scanFrames(const std::vector<float> &planes, size_t n, const char *what) {
    std::vector<float> frame(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE);
    for (size_t f = 0; f < n / ORIEN_FRAME_SIZE; ++f) {
      testsig::frameOf(planes, n, f, frame.data());
      orienAngleFrameAnalyse(est_.get(), frame.data(), nullptr, spectra());
      angleSelectBins(est_.get());
      for (double density : {-1.0, 0.03, 0.5, 1.0}) {
        if (density >= 0.0) selectRandomBins(density);
        expectIdentical(what);
        if (HasFatalFailure()) return;
      }
      est_->frameCursor = (est_->frameCursor + 1) % ORIEN_SLOTS;
    }
  }

  EstimatorPtr est_{orienAngleEstimatorCreate()};
  std::mt19937 rng_{20240611};
  int scans_ = 0;
};

TEST_F(ScanIdentity, SpeechFromSeveralDirectionsAndNoiseGiveIdenticalRowsAndPeaks) {
  const size_t n = 10 * ORIEN_FRAME_SIZE;  // 0.2 s per source
  const std::vector<float> talker = makeVoicedSpeech(0.25, 48000, 11);
  for (double theta : {-90.0, -52.5, 0.0, 33.0, 90.0}) {
    std::vector<float> src(talker.begin(), talker.begin() + n);
    for (float &v : src) v *= 3000.0f;
    std::vector<float> planes = testsig::arrayFrom(src, theta);
    const std::vector<float> hiss = testsig::noise(planes.size(), 30.0f, static_cast<uint32_t>(theta + 91));
    for (size_t i = 0; i < planes.size(); ++i) planes[i] += hiss[i];
    scanFrames(planes, n, "speech");
    if (HasFatalFailure()) return;
  }
  scanFrames(testsig::noise(ORIEN_MIC_NUM * n, 500.0f, 3), n, "noise");
  EXPECT_GT(scans_, 200);
}

// Spectra scaled far down (steered powers in the subnormal range) and far up
// (overflow to infinity) take the same path through both scans. The scan reads
// the record's own steering, so a record re-initialised in place serves as well.
TEST_F(ScanIdentity, ExtremeSpectrumScalesGiveIdenticalResults) {
  DenoiseState *denoiser = est_->denoiser;
  orienAngleEstimatorInit(est_.get());
  est_->denoiser = denoiser;
  const size_t n = 4 * ORIEN_FRAME_SIZE;
  const std::vector<float> planes = testsig::arrayFrom(testsig::noise(n, 1000.0f, 5), 40.0);
  std::vector<float> frame(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE);
  for (size_t f = 0; f < 4; ++f) {
    testsig::frameOf(planes, n, f, frame.data());
    orienAngleFrameAnalyse(est_.get(), frame.data(), nullptr, spectra());
  }
  OrienComplex saved[ORIEN_MIC_NUM][ORIEN_SPECTRUM_BINS];
  std::memcpy(saved, spectra(), sizeof saved);
  for (float scale : {1e-19f, 1e-16f, 1e17f, 1e19f, 0.0f}) {  // and zero spectra
    for (int m = 0; m < ORIEN_MIC_NUM; ++m)
      for (int k = 0; k < ORIEN_SPECTRUM_BINS; ++k)
        spectra()[m][k] = {saved[m][k].re * scale, saved[m][k].im * scale};
    for (double density : {0.5, 1.0}) {
      selectRandomBins(density);
      expectIdentical("scaled");
    }
  }
  selectRandomBins(0.0);
  expectIdentical("no bins");
}

}  // namespace
