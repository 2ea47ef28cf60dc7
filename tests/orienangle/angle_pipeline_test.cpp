#include "orienangle/estimator/angle_pipeline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <tuple>
#include <vector>

#include "orienangle/estimator/estimator.h"
#include "test_signals.h"

namespace {

constexpr int kNone = 230;

// A new estimator per test, and per case where a test calls SetUp again.
class AnglePipeline : public ::testing::Test {
 public:
  void SetUp() override {
    if (est_ != nullptr) orienAngleEstimatorDestroy(est_);
    est_ = orienAngleEstimatorCreate();
  }
  void TearDown() override { orienAngleEstimatorDestroy(est_); }
  OrienAngleEstimator *est_ = nullptr;

  uint32_t slot(int back) const { return (est_->frameCursor + ORIEN_SLOTS - back) % ORIEN_SLOTS; }

  // A voiced speech frame `back` frames before the current one with its best peak
  // at `peak` and a spectrum bump of the given height there.
  void setFrame(int back, int peak, float height = 1.0f) {
    const uint32_t s = slot(back);
    est_->peakAngles[s][0] = static_cast<uint32_t>(peak);
    est_->decision.vadFlag[s] = est_->decision.speechFlag[s] = 1;
    for (int a = 0; a < ORIEN_ANGLE_NUM; ++a)
      est_->angleSpectrum[s][a] =
          peak == kNone ? 0.0f : height * std::fmax(0.0f, 1.0f - std::fabs(a - peak) / 20.0f);
  }

  // The current frame and all 79 before it agree on `peak`, voiced and speech.
  void agreeingHistory(int peak) {
    for (int back = 0; back < 80; ++back) setFrame(back, peak);
  }

  // Runs the gate on the current frame with idleFrames = idleBefore beforehand.
  void decideAt(int idleBefore) {
    est_->idleFrames = idleBefore;
    angleDecide(est_);
  }

  uint8_t angle = 0, aux = 0;
  void process(const float *frame, const float *spkin = nullptr) {
    angleFrameProcess(est_, frame, frame, spkin, &angle, &aux);
  }
};

TEST_F(AnglePipeline, BandTestCountsBandsAboveThreeTimesNoiseAndKeepsActiveFlags) {
  std::fill_n(est_->micNoise.chanNoise, ORIEN_BANDS, 1.0f);
  est_->bandActive[12] = 1;
  for (int b : {0, 4, 8, 9, 15, 16}) est_->bandEnergy[b] = 3.5f;
  est_->bandEnergy[2] = 3.0f;  // not above 3 x noise
  angleBandTest(est_);
  // Bands 0..8 are the low ones; band 16 takes no part; active flags are never cleared here.
  EXPECT_TRUE(est_->decision.lowBandHitCount[0] == 3u && est_->decision.bandHitCount[0] == 5u);
  EXPECT_TRUE(est_->bandActive[4] == 1u && est_->bandActive[2] == 0u && est_->bandActive[12] == 1u);
}

TEST_F(AnglePipeline, BinSelectionNeedsThreeTimesNoiseAndOneAndAHalfTimesItsLevel) {
  std::fill_n(est_->micNoise.binNoise, ORIEN_BINS, 1.0f);
  std::fill_n(est_->binPowerSmooth, ORIEN_BINS, 0.0f);
  std::fill_n(est_->binPower, ORIEN_BINS, 10.0f);
  std::fill_n(est_->binSelected, ORIEN_BINS, 7);
  est_->binPower[100] = 3.0f;                                    // exactly 3 x noise
  est_->binPower[101] = std::nextafter(3.0f, 4.0f);              // just above
  est_->binPower[300] = 6.0f, est_->binPowerSmooth[300] = 4.0f;  // exactly 1.5 x level
  est_->binPower[301] = 6.0f, est_->binPowerSmooth[301] = 3.99f;
  // Where the precisions disagree: 3 x noise rounds up to the power in single
  // precision (not above: out), 1.5 x level stays below it in double (above: in).
  const float power = 1.5f + std::ldexp(1.0f, -22);
  est_->binPower[400] = est_->binPower[401] = power;
  est_->micNoise.binNoise[400] = 0.5f + std::ldexp(1.0f, -24);
  est_->micNoise.binNoise[401] = 0.1f, est_->binPowerSmooth[401] = 1.0f + std::ldexp(1.0f, -23);
  angleSelectBins(est_);
  EXPECT_TRUE(est_->binSelected[100] == 0u && est_->binSelected[101] == 1u);
  EXPECT_TRUE(est_->binSelected[300] == 0u && est_->binSelected[301] == 1u);
  EXPECT_TRUE(est_->binSelected[400] == 0u && est_->binSelected[401] == 1u);
  EXPECT_EQ(est_->binSelected[19], 7u);  // bins below 20 are not touched
  EXPECT_EQ(est_->binSelectedCount, 480u - 3u);
  EXPECT_EQ(est_->decision.binHitCount[0], 160u - 1u);  // bins 20..179 without bin 100
}

// Ten consecutive samples within one of zero (+-2 is a sample value), also
// across a plane boundary; nine are not enough.
TEST_F(AnglePipeline, DigitalSilenceIsTenConsecutiveSamplesWithinOne) {
  const std::vector<float> frame =
      testsig::noiseAwayFromZero(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE, 500.0f, 4);
  const std::tuple<int, int, float, bool> cases[] = {
      {0, 0, 0.0f, false},    {0, 10, 0.0f, true},    {100, 9, 0.0f, false},
      {955, 10, 1.9f, true},  {300, 10, 2.0f, false}, {103, 10, 1.0f, true},
      {7670, 10, 1.5f, true}, {7671, 9, 0.0f, false}, {400, 12, NAN, false}};
  for (const auto &[from, count, v, silent] : cases) {
    std::vector<float> f = frame;
    for (int i = from; i < from + count; ++i) f[i] = (i % 2) ? v : -v;
    EXPECT_EQ(angleDigitalSilence(f.data()), silent) << from << " " << count;
  }
}

// Voiced: either probability above 0.5, or three of either half's gains 1..15
// above 0.5; gain 0 and gains 16..21 do not count, nor do two open in each half.
TEST(AngleVoiceDecision, ProbabilityOrThreeOpenGainsOfOneHalf) {
  const float above = std::nextafter(0.5f, 1.0f);
  const std::tuple<float, float, std::vector<int>, std::vector<int>, float, bool> cases[] = {
      {0.0f, 0.0f, {}, {}, 1.0f, false},
      {0.5f, 0.5f, {1, 2, 3}, {}, 0.5f, false},
      {above, 0.0f, {}, {}, 1.0f, true},
      {0.0f, above, {}, {}, 1.0f, true},
      {0.0f, 0.0f, {1, 8, 15}, {}, above, true},
      {0.0f, 0.0f, {}, {1, 8, 15}, 1.0f, true},
      {0.0f, 0.0f, {0, 1, 15, 16}, {}, 1.0f, false},
      {0.0f, 0.0f, {2, 9}, {3, 14}, 1.0f, false}};
  for (const auto &[p1, p2, open1, open2, gain, voiced] : cases) {
    float g[2][PIPE_DENOISE_GAINS] = {};
    for (int i : open1) g[0][i] = gain;
    for (int i : open2) g[1][i] = gain;
    EXPECT_EQ(angleVoiced(p1, p2, g[0], g[1]), voiced) << p1 << " " << p2 << " " << open1.size();
  }
}

// Frames 1..4 after a decision only record; the fifth runs the loudspeaker test,
// which suspends (231 and a restart) on more than 16 flagged of the last 50
// frames with the flag latched; pooling starts on the tenth and leaves flagged
// frames out. After 150 frames without a decision the direction is dropped.
// A decision steps the published direction toward the pooled peak.
TEST_F(AnglePipeline, UpdateGateTimingLoudspeakerStaleTimeoutAndSmoothing) {
  // What; the peak of an agreeing history (-1: none); the loudspeaker latched; [from, to)
  // ranges of ages with its flag; direction and idle count before, and wanted after.
  const std::tuple<const char *, int, bool, std::vector<int>, uint32_t, int, uint32_t, int>
      cases[] = {
          {"first four record", 100, true, {0, 80}, 230, 3, 230, 4},
          {"fifth suspends", 100, true, {0, 80}, 230, 4, 231, 0},
          {"ninth records", 100, false, {}, 230, 8, 230, 9},
          {"tenth pools", 100, false, {}, 230, 9, 100, 0},
          {"not stale yet", -1, false, {}, 77, 149, 77, 150},
          {"stale", -1, false, {}, 77, 150, 230, 151},  // the count is not reset
          {"16 of 50 do not suspend", 100, true, {0, 16, 50, 70}, 80, 5, 80, 6},
          {"17 of 50, not latched", 100, false, {0, 16, 49, 70}, 80, 5, 80, 0},
          {"17 of 50, latched", 100, true, {0, 16, 49, 70}, 80, 5, 231, 0},
          {"flagged frames are not pooled", 100, false, {49, 80}, 230, 20, 230, 21},
          {"step", 95, false, {}, 90, 19, 91, 0},
          {"step", 95, false, {}, 90, 79, 92, 0},
          {"step", 92, false, {}, 90, 79, 92, 0},
          {"step", 92, false, {}, 90, 19, 91, 0},
          {"step", 91, false, {}, 90, 19, 91, 0},
          {"step", 89, false, {}, 90, 79, 89, 0},
          {"jump", 96, false, {}, 90, 19, 96, 0},
          {"jump", 84, false, {}, 90, 19, 84, 0},
          {"step", 95, false, {}, 100, 79, 98, 0},
          {"first", 17, false, {}, 230, 19, 17, 0},
          {"resume", 170, false, {}, 231, 19, 170, 0},
      };
  for (const auto &[what, peak, latched, flagged, cur, idleBefore, want, wantIdle] : cases) {
    SetUp();
    if (peak >= 0) agreeingHistory(peak);
    est_->farEnd.farEndLatched = latched;
    for (size_t i = 0; i < flagged.size(); i += 2)
      for (int back = flagged[i]; back < flagged[i + 1]; ++back)
        est_->farEnd.farEndFlag[slot(back)] = 1;
    est_->curAngle = cur;
    decideAt(idleBefore);
    EXPECT_TRUE(est_->curAngle == want && est_->idleFrames == wantIdle)
        << what << " " << cur << " -> " << peak << " at " << idleBefore << ": " << est_->curAngle
        << ", idle " << est_->idleFrames;
  }
}

// Each threshold, met and missed by one, over an agreeing history at 100.
TEST_F(AnglePipeline, AcceptanceThresholdsAreStrict) {
  // What; the count that passes and the one that fails; how ages 1..79 are shaped for a count.
  const std::tuple<const char *, int, int, void (*)(AnglePipeline * t, int back, int n)> cases[] = {
      {"voiced frames", 20, 19,
       [](AnglePipeline *t, int back, int n) {
         t->est_->decision.vadFlag[t->slot(back)] = back <= n;
       }},
      {"speech frames", 12, 11,
       [](AnglePipeline *t, int back, int n) {
         t->est_->decision.speechFlag[t->slot(back)] = back > 79 - n;
       }},
      {"pooled frames", 20, 19,
       [](AnglePipeline *t, int back, int n) {  // 4 near, n - 5 far, one at age 61
         if (back >= 5) t->setFrame(back, back < n || back == 60 ? 100 : kNone);
       }},
      {"oldest pooled age", 50, 49,
       [](AnglePipeline *t, int back, int n) {
         if (back >= n) t->setFrame(back, 140);
       }},
      {"near agreement", 3, 2,
       [](AnglePipeline *t, int back, int n) {
         if (back > n && back <= 4) t->setFrame(back, 107);
       }},
  };
  for (const auto &[what, passing, failing, atAge] : cases) {
    for (bool pass : {true, false}) {
      SetUp();
      est_->frameCursor = 3;  // the passes wrap through 99
      agreeingHistory(100);
      for (int back = 1; back < 80; ++back) atAge(this, back, pass ? passing : failing);
      decideAt(20);
      EXPECT_TRUE(est_->curAngle == (pass ? 100u : 230u) && est_->idleFrames == (pass ? 0 : 21))
          << what << (pass ? " passing" : " failing");
    }
  }
}

// The far pass matches the near pool's peak (106), not each frame's own; pooled
// ties go to the lower angle.
TEST_F(AnglePipeline, PoolingFollowsTheNearPoolsPeakAndTiesGoLow) {
  setFrame(0, 100, 0.1f);
  for (int back = 1; back <= 4; ++back) {
    setFrame(back, 104);
    for (int a = 0; a < ORIEN_ANGLE_NUM; ++a)
      est_->angleSpectrum[slot(back)][a] = a == 106 ? 10.0f : 0.0f;
  }
  for (int back = 5; back < 80; ++back) setFrame(back, 111);  // 5 from 106, 11 from 100
  decideAt(20);
  EXPECT_EQ(est_->curAngle, 106u);

  SetUp();
  agreeingHistory(100);
  for (int back = 0; back < 80; ++back)
    for (int a = 0; a < ORIEN_ANGLE_NUM; ++a)
      est_->angleSpectrum[slot(back)][a] = (a == 100 || a == 103) ? 2.0f : 1.0f;
  decideAt(20);
  EXPECT_EQ(est_->curAngle, 100u);
}

// After 5000 idle frames without a direction the voice model restarts (the idle
// count starts over).
// Without a reference frame the loudspeaker detector does not run: its frame
// flag and its tracker stay as they were.
TEST_F(AnglePipeline, NoReferenceLeavesTheLoudspeakerDetectorAlone) {
  const std::vector<float> frame = testsig::noiseAwayFromZero(8 * 960, 300.0f, 4);
  est_->farEnd.farEndFlag[0] = 1;
  process(frame.data());
  EXPECT_EQ(est_->farEnd.farEndFlag[0], 1u);
  EXPECT_EQ(est_->farEnd.refNoise.frameCount, 0u);
  EXPECT_EQ(est_->micNoise.frameCount, 1u);
}

TEST_F(AnglePipeline, LongIdleRestartsTheVoiceModel) {
  const std::vector<float> noise =
      testsig::noiseAwayFromZero(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE, 300.0f, 9);
  for (uint32_t cur : {230u, 90u}) {
    est_->idleFrames = 5001;
    est_->curAngle = cur;
    process(noise.data());
    EXPECT_EQ(est_->idleFrames, cur == 230u ? 1 : 5002) << cur;
  }
}

// A quiet start, then a source from 30 degrees whose power grows by half each
// frame (an onset, as at the start of speech), with a digital-silence frame at 18.
TEST_F(AnglePipeline, SilentFrameSkipsTheNextTwoFramesAndAnalysesTheThird) {
  const int frames = 24, silent = 18;
  const size_t n = static_cast<size_t>(frames) * ORIEN_FRAME_SIZE;
  std::vector<float> src = testsig::noise(n, 1.0f, 5);
  for (size_t i = 0; i < n; ++i) {
    double f = static_cast<double>(i) / ORIEN_FRAME_SIZE - 12.0;
    src[i] *= f < 0.0 ? 0.0f : static_cast<float>(50.0 * std::pow(1.225, f));
  }
  std::vector<float> planes = testsig::arrayFrom(src, 30.0);
  const std::vector<float> quiet = testsig::noiseAwayFromZero(planes.size(), 4.0f, 6);
  for (size_t i = 0; i < planes.size(); ++i) planes[i] += quiet[i];
  for (int m = 0; m < ORIEN_MIC_NUM; ++m)
    std::memset(planes.data() + m * n + silent * ORIEN_FRAME_SIZE, 0,
                sizeof(float) * ORIEN_FRAME_SIZE);
  std::vector<float> frame(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE);
  const int expectedHold[] = {2, 3, 4, 5, 0};
  for (int f = 0; f < frames; ++f) {
    const uint32_t s = est_->frameCursor;
    testsig::frameOf(planes, n, f, frame.data());
    process(frame.data());
    if (f < silent) continue;
    const int i = f - silent;
    const int peak = static_cast<int>(est_->peakAngles[s][0]);
    EXPECT_TRUE(i >= 5 || est_->holdCount == expectedHold[i]) << "frame " << f;
    EXPECT_TRUE(i < 3 ? peak == 230 : std::abs(peak - 120) <= 1)
        << "frame " << f << " peak " << peak;
  }
}

}  // namespace
