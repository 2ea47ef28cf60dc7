#include "orienangle/estimator/spectrum.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "orienangle/estimator/frame_convert.h"
#include "test_signals.h"

namespace {

// The block is history + new frame + 256 zeros and the history slides by one
// frame; a null plan gives the reference transform itself. The fast transform
// fills bins 0..499 only, each within 1e-5 of the largest reference bin of the
// reference: both are float FFTs, whose rounding error grows like
// eps * log2(4096), about 1e-6 of the spectrum's size, while a wrong bin, sign,
// twiddle or scale is off by far more. The blocks: white noise under a loud
// tone at bin 1500 (most of the energy above the bins compared), quiet at first.
TEST(Spectrum, AnalysisBlockSlidesTheHistoryAndTheFastTransformMatchesTheReference) {
  OrienAngleEstimator *est = orienAngleEstimatorCreate();
  std::vector<float> frames = testsig::noise(4 * ORIEN_FRAME_SIZE, 500.0f, 3);
  for (int n = 0; n < 4 * ORIEN_FRAME_SIZE; ++n)
    frames[n] += std::round(2e4f * std::sin(n * 2.301f));
  std::vector<float> history(ORIEN_HISTORY, 0.0f), fastHistory = history;
  std::vector<OrienComplex> out(ORIEN_SPECTRUM_BINS), fast(ORIEN_SPECTRUM_BINS, {7.0f, 7.0f}),
      expected(ORIEN_SPECTRUM_BINS);
  for (int f = 0; f < 4; ++f) {
    spectrumAnalyseBlock(nullptr, history.data(), frames.data() + f * ORIEN_FRAME_SIZE, out.data());
    spectrumAnalyseBlock(est->transformPlan, fastHistory.data(),
                         frames.data() + f * ORIEN_FRAME_SIZE, fast.data());
    float peak = 0.0f;
    for (const OrienComplex &x : out) peak = std::max(peak, std::hypot(x.re, x.im));
    for (int k = 0; k < ORIEN_SPECTRUM_BINS; ++k)
      ASSERT_TRUE(k < ORIEN_BINS
                      ? std::hypot(fast[k].re - out[k].re, fast[k].im - out[k].im) <= 1e-5f * peak
                      : fast[k].re == 7.0f && fast[k].im == 7.0f)
          << f << " " << k;
  }
  for (int i = 0; i < ORIEN_HISTORY; ++i)
    ASSERT_TRUE(history[i] == frames[ORIEN_FRAME_SIZE + i] && fastHistory[i] == history[i]) << i;
  std::vector<float> block = frames;
  block.resize(ORIEN_FFT_SIZE, 0.0f);
  spectrumTransform(expected.data(), block.data());
  EXPECT_EQ(std::memcmp(out.data(), expected.data(), sizeof(OrienComplex) * out.size()), 0);
  orienAngleEstimatorDestroy(est);
}

// The scale and sign of the transform, from first principles: an impulse of
// 4096 at the start of the block gives 1 + 0i in every bin, a block of 3840 ones
// and 256 zeros gives bin 0 = 0.9375, and any block matches a plain DFT divided
// by 4096.
TEST(Spectrum, TransformIsTheDftScaledByOneOver4096) {
  std::vector<float> block(ORIEN_FFT_SIZE, 0.0f);
  std::vector<OrienComplex> out(ORIEN_SPECTRUM_BINS);
  block[0] = 4096.0f;
  spectrumTransform(out.data(), block.data());
  for (const OrienComplex &x : out) ASSERT_TRUE(x.re == 1.0f && std::fabs(x.im) < 1e-6f);
  std::vector<float> ones(ORIEN_HISTORY, 1.0f), frame(ORIEN_FRAME_SIZE, 1.0f);
  spectrumAnalyseBlock(nullptr, ones.data(), frame.data(), out.data());
  EXPECT_NEAR(out[0].re, 0.9375f, 1e-6f);
  block = testsig::noise(ORIEN_FFT_SIZE, 1000.0f, 9);
  spectrumTransform(out.data(), block.data());
  for (int k : {0, 1, 7, 333, 499, 2048}) {
    double re = 0.0, im = 0.0;
    for (int n = 0; n < ORIEN_FFT_SIZE; ++n) {
      re += block[n] * std::cos(2.0 * M_PI * k * n / 4096.0);
      im -= block[n] * std::sin(2.0 * M_PI * k * n / 4096.0);
    }
    EXPECT_NEAR(out[k].re, re / 4096.0, 1e-3) << k;
    EXPECT_NEAR(out[k].im, im / 4096.0, 1e-3) << k;
  }
}

// Captured frames are 960 interleaved little-endian 16-bit sample groups of 8
// microphones: sample i of microphone c lands at planar[960 c + i].
TEST(FrameConvert, InterleavedSixteenBitToPlanarFloats) {
  std::vector<uint8_t> bytes(8 * 960 * 2), line(960 * 2);
  for (int n = 0; n < 8 * 960; ++n) bytes[2 * n] = n & 0xFF, bytes[2 * n + 1] = (n * 7) >> 8 | 0x80;
  for (int n = 0; n < 960; ++n) line[2 * n] = bytes[2 * n], line[2 * n + 1] = bytes[2 * n + 1];
  std::vector<float> planar(8 * 960), spkin(960);
  orienAngleFrameToPlanar(bytes.data(), planar.data());
  orienAngleSpkinToFloat(line.data(), spkin.data());
  const auto at = [&](int n) {
    return static_cast<float>(static_cast<int16_t>(bytes[2 * n] | bytes[2 * n + 1] << 8));
  };
  for (int c = 0; c < 8; ++c)
    for (int i = 0; i < 960; ++i) ASSERT_EQ(planar[960 * c + i], at(8 * i + c)) << c << " " << i;
  for (int i = 0; i < 960; ++i) ASSERT_EQ(spkin[i], at(i)) << i;
}

}  // namespace
