#include "orienangle/estimator/spectrum.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "test_signals.h"

namespace {

TEST(Spectrum, ImpulseOf4096GivesUnitBinsAndConstantBlockGivesItsMean) {
  std::vector<float> block(ORIEN_FFT_SIZE, 0.0f);
  std::vector<OrienComplex> out(ORIEN_SPECTRUM_BINS);
  block[0] = 4096.0f;
  spectrumTransform(out.data(), block.data());
  for (int k = 0; k < ORIEN_SPECTRUM_BINS; ++k) ASSERT_TRUE(out[k].re == 1.0f && out[k].im == 0.0f) << k;
  block.assign(ORIEN_FFT_SIZE, 0.0f);
  for (int n = 0; n < ORIEN_BLOCK_LIVE; ++n) block[n] = 1.0f;
  spectrumTransform(out.data(), block.data());
  EXPECT_FLOAT_EQ(out[0].re, 0.9375f);  // 3840 / 4096
  EXPECT_NEAR(out[0].im, 0.0f, 1e-6f);
}

// The block is history + new frame + 256 zeros, and the history slides by one frame.
TEST(Spectrum, AnalysisBlockSlidesTheHistoryAndPadsWithZeros) {
  std::vector<float> history(ORIEN_HISTORY, 0.0f);
  std::vector<OrienComplex> out(ORIEN_SPECTRUM_BINS), expected(ORIEN_SPECTRUM_BINS);
  std::vector<float> frames = testsig::noise(4 * ORIEN_FRAME_SIZE, 500.0f, 3);
  for (int f = 0; f < 4; ++f)
    spectrumAnalyseBlock(history.data(), frames.data() + f * ORIEN_FRAME_SIZE, out.data());
  for (int i = 0; i < ORIEN_HISTORY; ++i)
    ASSERT_EQ(history[i], frames[ORIEN_FRAME_SIZE + i]) << i;
  std::vector<float> block(ORIEN_FFT_SIZE, 0.0f);
  std::copy(frames.begin(), frames.end(), block.begin());
  spectrumTransform(expected.data(), block.data());
  EXPECT_EQ(std::memcmp(out.data(), expected.data(), sizeof(OrienComplex) * out.size()), 0);
}

TEST(Spectrum, BandEnergiesSumTheBinsBetweenEdgesOnly) {
  std::vector<OrienComplex> spectrum(ORIEN_SPECTRUM_BINS, OrienComplex{0.0f, 0.0f});
  float e[ORIEN_BANDS];
  // Energy below bin 20 and from bin 462 on belongs to no band.
  for (int k = 0; k < 20; ++k) spectrum[k] = {3.0f, 4.0f};
  for (int k = 462; k < ORIEN_SPECTRUM_BINS; ++k) spectrum[k] = {3.0f, 4.0f};
  bandEnergies(e, spectrum.data());
  for (float v : e) EXPECT_EQ(v, 0.0f);

  spectrum.assign(ORIEN_SPECTRUM_BINS, OrienComplex{0.0f, 0.0f});
  spectrum[35] = {1.0f, 0.0f};   // last bin of band 0
  spectrum[36] = {0.0f, 2.0f};   // first bin of band 1
  spectrum[461] = {3.0f, 4.0f};  // last bin of band 16
  for (int k = 100; k < 118; ++k) spectrum[k] = {1.0f, 1.0f};  // all of band 5
  bandEnergies(e, spectrum.data());
  EXPECT_EQ(e[0], 1.0f);
  EXPECT_EQ(e[1], 4.0f);
  EXPECT_EQ(e[5], 36.0f);
  EXPECT_EQ(e[16], 25.0f);
  for (int b : {2, 3, 4, 6, 15, 17, 18, 19, 20, 21}) EXPECT_EQ(e[b], 0.0f) << b;
}

}  // namespace
