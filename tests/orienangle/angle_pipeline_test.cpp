#include "orienangle/estimator/angle_pipeline.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "orienangle/estimator/estimator.h"
#include "sim/noise.h"
#include "sim/voiced_speech.h"
#include "test_signals.h"

namespace {

constexpr int kNone = 230;

// One estimator per suite; each test starts from a copy of its creation state.
class AnglePipeline : public ::testing::Test {
 public:
  static void SetUpTestSuite() {
    est_ = orienAngleEstimatorCreate();
    pristine_ = static_cast<OrienAngleEstimator *>(std::malloc(sizeof(OrienAngleEstimator)));
    std::memcpy(pristine_, est_, sizeof *est_);
  }
  static void TearDownTestSuite() {
    orienAngleEstimatorDestroy(est_);
    std::free(pristine_);
  }
  void SetUp() override {
    std::memcpy(est_, pristine_, sizeof *est_);
    rnnoise_init(est_->denoiser, nullptr);
  }

  static OrienAngleEstimator *est_;
  static OrienAngleEstimator *pristine_;

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
OrienAngleEstimator *AnglePipeline::est_ = nullptr;
OrienAngleEstimator *AnglePipeline::pristine_ = nullptr;

TEST_F(AnglePipeline, BandTestCountsBandsAboveThreeTimesNoiseAndKeepsActiveFlags) {
  for (int b = 0; b < ORIEN_BANDS; ++b) est_->micNoise.chanNoise[b] = 1.0f;
  est_->bandActive[12] = 1;
  for (int b : {0, 4, 8, 9, 15, 16}) est_->bandEnergy[b] = 3.5f;
  est_->bandEnergy[2] = 3.0f;  // not above 3 x noise
  angleBandTest(est_);
  EXPECT_EQ(est_->decision.lowBandHitCount[0], 3u);
  EXPECT_EQ(est_->decision.bandHitCount[0], 5u);  // band 16 takes no part
  EXPECT_TRUE(est_->bandActive[4] == 1u && est_->bandActive[2] == 0u);
  EXPECT_EQ(est_->bandActive[12], 1u);  // never cleared here
}

TEST_F(AnglePipeline, BinSelectionNeedsThreeTimesNoiseAndOneAndAHalfTimesItsLevel) {
  for (int k = 0; k < ORIEN_BINS; ++k) {
    est_->micNoise.binNoise[k] = 1.0f;
    est_->binPowerSmooth[k] = 0.0f;
    est_->binPower[k] = 10.0f;
    est_->binSelected[k] = 7;
  }
  est_->binPower[100] = 3.0f;                                 // exactly 3 x noise
  est_->binPower[101] = std::nextafter(3.0f, 4.0f);            // just above
  est_->binPower[300] = 6.0f, est_->binPowerSmooth[300] = 4.0f;  // exactly 1.5 x level
  est_->binPower[301] = 6.0f, est_->binPowerSmooth[301] = 3.99f;
  angleSelectBins(est_);
  EXPECT_TRUE(est_->binSelected[100] == 0u && est_->binSelected[101] == 1u);
  EXPECT_TRUE(est_->binSelected[300] == 0u && est_->binSelected[301] == 1u);
  EXPECT_EQ(est_->binSelected[19], 7u);  // bins below 20 are not touched
  EXPECT_EQ(est_->binSelectedCount, 480u - 2u);
  EXPECT_EQ(est_->decision.binHitCount[0], 160u - 1u);  // bins 20..179 without bin 100
}

TEST_F(AnglePipeline, DigitalSilenceIsTenConsecutiveSamplesWithinOne) {
  const std::vector<float> frame = testsig::noiseAwayFromZero(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE, 500.0f, 4);
  EXPECT_FALSE(angleDigitalSilence(frame.data()));
  auto withRun = [&](int from, int count, float v) {
    std::vector<float> f = frame;
    for (int i = from; i < from + count; ++i) f[i] = (i % 2) ? v : -v;
    return angleDigitalSilence(f.data());
  };
  EXPECT_TRUE(withRun(0, 10, 0.0f));     // first ten samples, the rest speech
  EXPECT_FALSE(withRun(100, 9, 0.0f));   // nine only
  EXPECT_TRUE(withRun(955, 10, 1.9f));   // across a plane boundary
  EXPECT_FALSE(withRun(300, 10, 2.0f));  // +-2 is a sample value, not silence
}

// Frames 1..4 after a decision only record; the fifth runs the loudspeaker test
// (here suspending, so 231 and a restart); pooling starts on the tenth. After
// 150 frames without a decision the direction is dropped.
TEST_F(AnglePipeline, UpdateGateTimingAndStaleTimeout) {
  for (auto &flag : est_->farEnd.farEndFlag) flag = 1;
  est_->farEnd.farEndLatched = 1;
  agreeingHistory(100);
  for (int idle = 0; idle < 4; ++idle) {
    decideAt(idle);
    ASSERT_TRUE(est_->idleFrames == idle + 1 && est_->curAngle == 230u) << idle;
  }
  decideAt(4);
  EXPECT_TRUE(est_->curAngle == 231u && est_->idleFrames == 0);

  SetUp();
  agreeingHistory(100);
  decideAt(8);
  EXPECT_TRUE(est_->curAngle == 230u && est_->idleFrames == 9);
  decideAt(9);
  EXPECT_TRUE(est_->curAngle == 100u && est_->idleFrames == 0);

  SetUp();
  est_->curAngle = 77;
  est_->prevAngle = 12;
  decideAt(149);
  EXPECT_EQ(est_->curAngle, 77u);
  decideAt(150);
  EXPECT_TRUE(est_->curAngle == 230u && est_->prevAngle == 230u);
  EXPECT_EQ(est_->idleFrames, 151);  // not reset: the timeout holds
}

TEST_F(AnglePipeline, LoudspeakerSuspendsOnMoreThanSixteenOfTheLastFifty) {
  agreeingHistory(100);
  for (int back = 50; back < 70; ++back) est_->farEnd.farEndFlag[slot(back)] = 1;  // outside the window
  for (int back = 0; back < 16; ++back) est_->farEnd.farEndFlag[slot(back)] = 1;
  est_->curAngle = 80;
  est_->farEnd.farEndLatched = 1;
  decideAt(5);
  EXPECT_TRUE(est_->idleFrames == 6 && est_->curAngle == 80u);  // 16 do not suspend

  est_->farEnd.farEndFlag[slot(49)] = 1;  // the 17th, oldest in the window
  est_->farEnd.farEndLatched = 0;
  decideAt(5);
  EXPECT_TRUE(est_->idleFrames == 0 && est_->curAngle == 80u);  // not latched: the value stays
  est_->farEnd.farEndLatched = 1;
  decideAt(5);
  EXPECT_EQ(est_->curAngle, 231u);

  // Frames with the loudspeaker active are not pooled: pooled ages end at 49.
  SetUp();
  agreeingHistory(100);
  for (int back = 49; back < 80; ++back) est_->farEnd.farEndFlag[slot(back)] = 1;  // one in the window
  decideAt(20);
  EXPECT_EQ(est_->curAngle, 230u);
}

TEST_F(AnglePipeline, AcceptanceThresholdsAreStrict) {
  struct Case {
    const char *what;
    void (*shape)(AnglePipeline *, int n);
    int passing, failing;
  } cases[] = {
      {"voiced frames", [](AnglePipeline *t, int n) {
         for (int back = 1; back < 80; ++back) t->est_->decision.vadFlag[t->slot(back)] = back <= n;
       }, 20, 19},
      {"speech frames", [](AnglePipeline *t, int n) {
         for (int back = 1; back < 80; ++back) t->est_->decision.speechFlag[t->slot(back)] = back > 79 - n;
       }, 12, 11},
      {"pooled frames", [](AnglePipeline *t, int n) {  // 4 near, n - 5 far and one at age 61
         for (int back = 5; back < 80; ++back)
           t->setFrame(back, back < n || back == 60 ? 100 : kNone);
       }, 20, 19},
      {"oldest pooled age", [](AnglePipeline *t, int n) {
         for (int back = n; back < 80; ++back) t->setFrame(back, 140);
       }, 50, 49},
      {"near agreement", [](AnglePipeline *t, int n) {
         for (int back = n + 1; back <= 4; ++back) t->setFrame(back, 107);
       }, 3, 2},
  };
  for (const Case &c : cases) {
    for (bool pass : {true, false}) {
      SetUp();
      est_->frameCursor = 3;  // the passes wrap through 99
      agreeingHistory(100);
      c.shape(this, pass ? c.passing : c.failing);
      decideAt(20);
      EXPECT_EQ(est_->curAngle, pass ? 100u : 230u) << c.what << (pass ? " passing" : " failing");
      EXPECT_EQ(est_->idleFrames, pass ? 0 : 21) << c.what;
    }
  }
}

// The far pass matches the near pool's peak (106), not each frame's own; pooled
// ties go to the lower angle.
TEST_F(AnglePipeline, PoolingFollowsTheNearPoolsPeakAndTiesGoLow) {
  setFrame(0, 100, 0.1f);
  for (int back = 1; back <= 4; ++back) {
    setFrame(back, 104);
    for (int a = 0; a < ORIEN_ANGLE_NUM; ++a) est_->angleSpectrum[slot(back)][a] = a == 106 ? 10.0f : 0.0f;
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

TEST_F(AnglePipeline, SmoothingStepsTowardThePooledPeak) {
  struct Case {
    uint32_t cur;
    int peak, idleBefore;
    uint32_t published;
  } cases[] = {
      {90, 95, 19, 91},   {91, 95, 19, 92},  {90, 95, 79, 92},  {90, 92, 79, 92},
      {90, 92, 19, 91},   {90, 91, 19, 91},  {90, 89, 79, 89},  {90, 96, 19, 96},
      {90, 84, 19, 84},   {100, 95, 19, 99}, {100, 95, 79, 98}, {230, 17, 19, 17},
      {231, 170, 19, 170},
  };
  for (const Case &c : cases) {
    SetUp();
    agreeingHistory(c.peak);
    est_->curAngle = c.cur;
    decideAt(c.idleBefore);
    EXPECT_EQ(est_->curAngle, c.published) << c.cur << " -> " << c.peak << " at " << c.idleBefore;
    EXPECT_EQ(est_->idleFrames, 0);
  }
}

TEST_F(AnglePipeline, EveryCallPublishesLowBytesAndAdvancesBothCursors) {
  std::vector<float> zeros(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE, 0.0f);
  est_->frameCursor = 99;
  est_->ringCursor = 7;
  est_->idleFrames = 4;
  est_->farEnd.farEndLatched = 1;
  for (int back = 0; back < 17; ++back) est_->farEnd.farEndFlag[slot(back)] = 1;
  process(zeros.data());  // null reference: the ring keeps its flags
  EXPECT_TRUE(angle == 231 && aux == 230);
  EXPECT_EQ(est_->farEnd.farEndFlag[99], 1u);
  EXPECT_TRUE(est_->frameCursor == 0u && est_->ringCursor == 0u);

  std::vector<float> spkin(ORIEN_FRAME_SIZE, 0.0f);
  est_->farEnd.farEndFlag[0] = 1;
  process(zeros.data(), spkin.data());  // a silent reference is inactive
  EXPECT_EQ(est_->farEnd.farEndFlag[0], 0u);
  EXPECT_TRUE(est_->frameCursor == 1u && est_->ringCursor == 1u);
}

TEST_F(AnglePipeline, VoiceModelRestartsAfterFiveThousandIdleFramesWithoutDirection) {
  std::vector<float> zeros(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE, 0.0f);
  est_->idleFrames = 5001;
  process(zeros.data());
  EXPECT_EQ(est_->idleFrames, 1);
  est_->idleFrames = 5001;
  est_->curAngle = 90;
  process(zeros.data());
  EXPECT_EQ(est_->idleFrames, 5002);
  EXPECT_EQ(angle, 230);  // long stale
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
    std::memset(planes.data() + m * n + silent * ORIEN_FRAME_SIZE, 0, sizeof(float) * ORIEN_FRAME_SIZE);
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
    ASSERT_TRUE(i < 1 || est_->binSelectedCount > 30u) << "frame " << f;  // would scan
    EXPECT_TRUE(i < 3 ? peak == 230 : std::abs(peak - 120) <= 1) << "frame " << f << " peak " << peak;
  }
}

// The voice model's decision: broadband noise is not a voice, the talker is.
TEST_F(AnglePipeline, NoiseIsNotVoicedButTheTalkerIs) {
  const std::vector<float> noise = testsig::noiseAwayFromZero(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE, 300.0f, 9);
  int voiced = 0;
  for (int f = 0; f < 20; ++f) {
    const uint32_t s = est_->frameCursor;
    process(noise.data());
    voiced += est_->decision.vadFlag[s];
  }
  EXPECT_EQ(voiced, 0);
  std::vector<float> speech = makeVoicedSpeech(1.0, 48000, 3);
  for (auto &x : speech) x *= 16000.0f;
  const std::vector<float> planes = testsig::arrayFrom(speech, 0.0);
  std::vector<float> frame(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE);
  for (size_t f = 0; f < speech.size() / ORIEN_FRAME_SIZE; ++f) {
    const uint32_t s = est_->frameCursor;
    testsig::frameOf(planes, speech.size(), f, frame.data());
    process(frame.data());
    voiced += est_->decision.vadFlag[s];
  }
  EXPECT_GT(voiced, 10);
}

// The whole chain with the voice model: a synthetic talker from -35 degrees over
// pink sensor noise is published as grid index 55 (within a degree).
TEST_F(AnglePipeline, TalkerFromAKnownDirectionIsPublishedWithinOneDegree) {
  std::vector<float> speech = makeVoicedSpeech(4.0, 48000, 3);
  const size_t n = speech.size();
  for (auto &x : speech) x *= 16000.0f;
  std::vector<float> planes = testsig::arrayFrom(speech, -35.0);
  for (int m = 0; m < ORIEN_MIC_NUM; ++m) {
    std::vector<float> sensor = makeNoise(NoiseColour::Pink, n, 100 + m);
    for (size_t i = 0; i < n; ++i) planes[m * n + i] += 30.0f * sensor[i];
  }
  std::vector<float> frame(ORIEN_MIC_NUM * ORIEN_FRAME_SIZE);
  int published = 0;
  for (size_t f = 0; f < n / ORIEN_FRAME_SIZE; ++f) {
    testsig::frameOf(planes, n, f, frame.data());
    process(frame.data());
    if (angle != 230) {
      ++published;
      ASSERT_LE(std::abs(angle - 55), 1) << "frame " << f;
    }
  }
  EXPECT_GT(published, 20);
}

}  // namespace
