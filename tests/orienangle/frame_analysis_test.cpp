#include "orienangle/estimator/frame_analysis.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "test_signals.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

// The front end needs no steering table: a zeroed record with a fresh tracker.
struct FrontEnd {
  std::unique_ptr<OrienAngleEstimator> est{new OrienAngleEstimator()};
  std::vector<OrienComplex> spectra = std::vector<OrienComplex>(ORIEN_MIC_NUM * ORIEN_SPECTRUM_BINS);
  FrontEnd() { noiseTrackerInit(&est->micNoise); }
  void run(const float *frame) {
    orienAngleFrameAnalyse(est.get(), frame, nullptr,
                           reinterpret_cast<OrienComplex(*)[ORIEN_SPECTRUM_BINS]>(spectra.data()));
  }
};

TEST(FrameAnalysis, SpeechDecisionNeedsALowBandExcessNotMatchedHigh) {
  EXPECT_EQ(frameSpeechDecision(7.0f, 3.0f), 1);
  EXPECT_EQ(frameSpeechDecision(15.0f, 12.0f), 0);   // 12 > 10 and 12 > 15 - 5
  EXPECT_EQ(frameSpeechDecision(20.0f, 12.0f), 1);   // 12 is not above 15
  EXPECT_EQ(frameSpeechDecision(6.0f, 0.0f), 0);     // strictly above 6 dB needed
  EXPECT_EQ(frameSpeechDecision(6.001f, 0.0f), 1);
  EXPECT_EQ(frameSpeechDecision(14.0f, 10.0f), 1);   // the high veto needs more than 10 dB
  EXPECT_EQ(frameSpeechDecision(15.0f, 10.001f), 0);
  EXPECT_EQ(frameSpeechDecision(15.002f, 10.001f), 1);
}

// A continuous tone centred on bin 100, microphone m at (m + 1) A / 4: each
// spectrum holds half that times 3840/4096 there (plus a little leakage of the
// negative-frequency image through the zero pad), and the bin power sums the eight.
TEST(FrameAnalysis, BinPowerSumsTheMicrophonesAndBandsUseMicrophoneZero) {
  FrontEnd fe;
  const float amplitude = 1000.0f;
  const double hz = 100 * 48000.0 / 4096.0;
  std::vector<float> frame(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE);
  for (int f = 0; f < 4; ++f) {
    for (int m = 0; m < ORIEN_MIC_NUM; ++m)
      for (int i = 0; i < ORIEN_FRAME_SIZE; ++i)
        frame[m * ORIEN_FRAME_SIZE + i] = static_cast<float>(
            (m + 1) * 0.25 * amplitude * std::cos(2.0 * kPi * hz * (f * ORIEN_FRAME_SIZE + i) / 48000.0));
    fe.run(frame.data());
  }
  double expected = 0.0;
  for (int m = 0; m < ORIEN_MIC_NUM; ++m) {
    double mag = (m + 1) * 0.25 * amplitude * 0.5 * 0.9375;
    expected += mag * mag;
  }
  EXPECT_NEAR(fe.est->binPower[100], expected, expected * 1e-3);
  for (int k = ORIEN_BINS; k < ORIEN_SPECTRUM_BINS; ++k)
    ASSERT_TRUE(fe.est->binPower[k] == 0.0f && fe.est->binPowerSmooth[k] == 0.0f) << k;
  const double mag0 = 0.25 * amplitude * 0.5 * 0.9375;
  EXPECT_GT(fe.est->bandEnergy[5], mag0 * mag0);
  EXPECT_LT(fe.est->bandEnergy[5], 1.1 * mag0 * mag0);
}

// After a quiet start-up, a loud low tone is speech; loud broadband noise, which
// raises the high bands just as much, is not.
TEST(FrameAnalysis, LowToneAfterQuietIsSpeechButBroadbandNoiseIsNot) {
  for (bool tone : {true, false}) {
    FrontEnd fe;
    const size_t n = 16 * ORIEN_FRAME_SIZE;
    std::vector<float> src = testsig::noise(n, 5.0f, 21);
    std::vector<float> loud = testsig::noise(n, 3000.0f, 22);
    for (size_t i = 12 * ORIEN_FRAME_SIZE; i < n; ++i)
      src[i] += tone ? static_cast<float>(3000.0 * std::sin(2.0 * kPi * 700.0 * i / 48000.0))
                     : loud[i];
    std::vector<float> planes = testsig::arrayFrom(src, 20.0);
    std::vector<float> frame(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE);
    for (size_t f = 0; f < 13; ++f) {
      testsig::frameOf(planes, n, f, frame.data());
      fe.run(frame.data());
      ASSERT_TRUE(f >= 12 || fe.est->decision.speechFlag[0] == 0u) << f;
    }
    EXPECT_EQ(fe.est->decision.speechFlag[0], tone ? 1u : 0u) << (tone ? "tone" : "noise");
  }
}

}  // namespace
