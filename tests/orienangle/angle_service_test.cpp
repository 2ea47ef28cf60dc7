// The angle service: the test-mode level meter with its codes and report
// frame, and single loop turns over real capture pools.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "audio/audioprocess.h"
#include "audio/buffpool.h"
#include "common/shared_word.h"
#include "hostlink/host_protocol.h"
#include "hostlink/uart.h"
#include "lifecycle/process.h"
#include "orienangle/module/angle_module.h"
#include "orienangle/module/angle_service.h"
#include "orienangle/module/level_meter.h"
#include "support/sandbox.h"

using testing::HasSubstr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

constexpr int kSamples = LEVEL_FRAME_SAMPLES;

// An interleaved 8-channel frame whose channel c holds the constant amplitude[c].
std::vector<int16_t> micFrame(const int16_t (&amplitude)[8]) {
  std::vector<int16_t> f(kSamples * 8);
  for (int i = 0; i < kSamples; ++i)
    for (int c = 0; c < 8; ++c) f[8 * i + c] = static_cast<int16_t>(i % 2 ? -amplitude[c] : amplitude[c]);
  return f;
}

// Over a 250-frame period a constant amplitude A gives 10 log10(48000 A^2):
// A = 1000 -> 106, A = 10 -> 66, A = 1 -> 46, A = 0 -> 0.
const int16_t kLoudQuietSilent[8] = {1000, 10, 1, 0, 1000, 1000, 10, 0};
const LevelThresholds kCodes = {0, 90, 50};

void runPeriod(LevelMeter *m, int frames, const LevelThresholds &t, int16_t line = 1000) {
  std::vector<int16_t> mic = micFrame(kLoudQuietSilent);
  std::vector<int16_t> ref(kSamples, line);
  for (int i = 0; i < frames; ++i) {
    levelMeterAddMic(m, mic.data(), t);
    levelMeterAddLine(m, ref.data(), t);
  }
}

TEST(LevelMeter, DbValueIsTruncatedAndSilenceIsZero) {
  double mean;
  EXPECT_EQ(levelDbValue(250.0 * 960 * 1000 * 1000, &mean), 106);
  EXPECT_DOUBLE_EQ(mean, 48000.0 * 1000 * 1000);
  EXPECT_EQ(levelDbValue(0.0, &mean), 0) << "log10(0) is minus infinity";
  EXPECT_EQ(levelDbValue(1.0, &mean), 0) << "negative dB";
  EXPECT_EQ(levelDbValue(1e30, &mean), 293 - 256) << "293 dB, low 8 bits only";
}

// The level frame reads silent before the first report and again after each send.
TEST(LevelMeter, CodesForLoudQuietAndSilentChannels) {
  LevelMeter m;
  levelMeterInit(&m);
  const uint8_t silent[LEVEL_REPORT_BYTES] = {0xFF, 0x10, 0x10, 0x10, 0x10, 0x10,
                                             0x10, 0x10, 0x10, 0x10, 0x90};
  EXPECT_EQ(0, memcmp(m.levelFrame, silent, sizeof silent));
  CaptureStdout();
  runPeriod(&m, 250, kCodes, 10);
  std::string out = GetCapturedStdout();
  uint8_t report[LEVEL_REPORT_BYTES];
  ASSERT_TRUE(levelMeterTakeReport(&m, report));
  const uint8_t expected[LEVEL_REPORT_BYTES] = {0xFF, 0x01, 0x20, 0x10, 0x10, 0x01,
                                                0x01, 0x20, 0x10, 0x20, 0x93};
  EXPECT_EQ(0, memcmp(report, expected, sizeof report));
  for (uint8_t b : m.levelFrame) EXPECT_EQ(b, 0x10);
  EXPECT_THAT(out, HasSubstr("\nMDitgitMic(ch1):48000000000.000000, DBVal:106\n"));
  EXPECT_THAT(out, HasSubstr("MDitgitMic(ch2):4800000.000000, DBVal:66->lowVolum\n"));
  EXPECT_THAT(out, HasSubstr("MDitgitMic(ch4):0.000000, DBVal:0->noVolum\n"));
  EXPECT_THAT(out, HasSubstr("\nMLineIn:4800000.000000, DBVal:66->lowVolum\n"));
}

TEST(LevelMeter, RawDbValuesInSendRetMode) {
  LevelMeter m;
  levelMeterInit(&m);
  CaptureStdout();
  runPeriod(&m, 250, {1, 90, 50});
  GetCapturedStdout();
  uint8_t report[LEVEL_REPORT_BYTES];
  ASSERT_TRUE(levelMeterTakeReport(&m, report));
  const uint8_t expected[LEVEL_REPORT_BYTES] = {0xFF, 106, 66,  46, 0, 106,
                                                106,  66,  0, 106, (106 * 4 + 66 * 2 + 46) & 0xFF};
  EXPECT_EQ(0, memcmp(report, expected, sizeof report));
}

// A report needs a full period of both the microphones and the line-in.
TEST(LevelMeter, ReportsAfterThe250thFrameNotThe249th) {
  LevelMeter m;
  levelMeterInit(&m);
  uint8_t report[LEVEL_REPORT_BYTES];
  CaptureStdout();
  runPeriod(&m, 249, kCodes);
  EXPECT_EQ(GetCapturedStdout(), "");
  EXPECT_FALSE(levelMeterTakeReport(&m, report));
  CaptureStdout();
  runPeriod(&m, 1, kCodes);
  GetCapturedStdout();
  EXPECT_TRUE(levelMeterTakeReport(&m, report));
  EXPECT_FALSE(levelMeterTakeReport(&m, report)) << "one report per period";

  std::vector<int16_t> mic = micFrame(kLoudQuietSilent);
  CaptureStdout();
  for (int i = 0; i < 600; ++i) levelMeterAddMic(&m, mic.data(), kCodes);
  GetCapturedStdout();
  EXPECT_FALSE(levelMeterTakeReport(&m, report)) << "no line-in, no level frame";
}

TEST(LevelMeter, LeavingTestModeRestartsTheCountButKeepsTheSums) {
  LevelMeter m;
  levelMeterInit(&m);
  std::vector<int16_t> mic = micFrame(kLoudQuietSilent);
  CaptureStdout();
  for (int i = 0; i < 200; ++i) levelMeterAddMic(&m, mic.data(), kCodes);
  levelMeterSkipMic(&m);
  EXPECT_EQ(m.micFrames, 0);
  EXPECT_GT(m.micPower[0], 0.0);
  for (int i = 0; i < 249; ++i) levelMeterAddMic(&m, mic.data(), kCodes);
  EXPECT_EQ(GetCapturedStdout(), "");
  CaptureStdout();
  levelMeterAddMic(&m, mic.data(), kCodes);
  // 450 frames of energy: 10 log10(450/250 x 48000 x 1e6) = 109.
  EXPECT_THAT(GetCapturedStdout(), HasSubstr("DBVal:109\n"));
}

// Loop turns over the real pools, with the module's rings but no worker.
class ServiceTurn : public testing::Test {
 protected:
  void SetUp() override {
    velquare_orienAngle_uninit();
    memset(&gVelquareSpeach, 0, sizeof gVelquareSpeach);
    ASSERT_EQ(audioBuffCreate(), 0);
    ASSERT_EQ(audioBuffSpkinCreate(), 0);
    mic_ = &velquare_audioprocess_endpoint(AUDIOPROCESS_DIGITMIC)->pool;
    line_ = &velquare_audioprocess_endpoint(AUDIOPROCESS_LINEIN)->pool;
    ASSERT_TRUE(buffpool_create(mic_) == 0 && buffpool_create(line_) == 0);
    ASSERT_EQ(angleServiceOpen(&svc_), 0);
    memset(&gHostCtrl, 0, sizeof gHostCtrl);
  }
  void TearDown() override {
    angleServiceClose(&svc_);
    buffpool_delete(mic_);
    buffpool_delete(line_);
    free(gVelquareSpeach.audioBuff);
    free(gVelquareSpeach.audioBuffSpkin);
    memset(&gVelquareSpeach, 0, sizeof gVelquareSpeach);
  }
  static void push(BuffPool *pool, const void *bytes, int32_t len) {
    ASSERT_EQ(buffpool_rw(pool, BUFFPOOL_WRITE, const_cast<void *>(bytes), &len), 0);
  }
  BuffPool *mic_ = nullptr, *line_ = nullptr;
  AngleService svc_{};
};

// A microphone frame moves only once it is complete; of the line-in only the
// left channel is handed on.
TEST_F(ServiceTurn, MovesWholeFramesAndTheLeftLineInChannelOnly) {
  std::vector<uint8_t> bytes(ANGLE_SERVICE_MIC_FRAME_BYTES);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i);
  push(mic_, bytes.data(), ANGLE_SERVICE_MIC_FRAME_BYTES - 1);
  angleServiceTurn(&svc_);
  EXPECT_TRUE(gVelquareSpeach.setAudioBuffNum == 0u && mic_->readBuffPoolNum == 0u);
  push(mic_, bytes.data() + ANGLE_SERVICE_MIC_FRAME_BYTES - 1, 1);
  std::vector<int16_t> stereo(2 * kSamples, -7);
  for (int i = 0; i < kSamples; ++i) stereo[2 * i] = static_cast<int16_t>(i);
  push(line_, stereo.data(), ANGLE_SERVICE_LINE_FRAME_BYTES);
  angleServiceTurn(&svc_);
  EXPECT_EQ(gVelquareSpeach.setAudioBuffNum, static_cast<uint64_t>(ANGLE_SERVICE_MIC_FRAME_BYTES));
  EXPECT_EQ(0, memcmp(gVelquareSpeach.audioBuff, bytes.data(), bytes.size()));
  ASSERT_EQ(gVelquareSpeach.setAudioBuffSpkinNum, static_cast<uint64_t>(ANGLE_SERVICE_REF_BYTES));
  const int16_t *ref = reinterpret_cast<const int16_t *>(gVelquareSpeach.audioBuffSpkin);
  for (int i = 0; i < kSamples; ++i) ASSERT_EQ(ref[i], i);
}

TEST_F(ServiceTurn, TestModeMetersInsteadOfFeedingTheModule) {
  gHostCtrl.testMode = 1;
  gHostCtrl.micDBmax = 90;
  gHostCtrl.micDBmin = 50;
  std::vector<int16_t> mic = micFrame(kLoudQuietSilent);
  std::vector<int16_t> stereo(2 * kSamples, 1000);
  CaptureStdout();
  for (int i = 0; i < 250; ++i) {
    push(mic_, mic.data(), ANGLE_SERVICE_MIC_FRAME_BYTES);
    push(line_, stereo.data(), ANGLE_SERVICE_LINE_FRAME_BYTES);
    angleServiceTurn(&svc_);
  }
  EXPECT_THAT(GetCapturedStdout(), HasSubstr("MLineIn:48000000000.000000, DBVal:106\n"));
  EXPECT_TRUE(gVelquareSpeach.setAudioBuffNum == 0u && gVelquareSpeach.setAudioBuffSpkinNum == 0u);
  EXPECT_EQ(svc_.meter.readyMask, 0u) << "the report of the period went out";
}

// Waits (bounded) for a condition the service thread brings about.
template <class Condition>
bool eventually(Condition condition) {
  for (int i = 0; i < 300 && !condition(); ++i) usleep(10000);
  return condition();
}

TEST(ServiceThread, WithoutASerialLineTheModuleStaysDownButThePoolsAreDrained) {
  Sandbox box;  // no dev/ttyS1
  memset(&gHostCtrl, 0, sizeof gHostCtrl);
  BuffPool *mic = &velquare_audioprocess_endpoint(AUDIOPROCESS_DIGITMIC)->pool;
  ASSERT_EQ(buffpool_create(mic), 0);
  std::vector<uint8_t> frame(ANGLE_SERVICE_MIC_FRAME_BYTES);
  int32_t len = ANGLE_SERVICE_MIC_FRAME_BYTES;
  ASSERT_EQ(buffpool_rw(mic, BUFFPOOL_WRITE, frame.data(), &len), 0);

  CaptureStdout();
  ASSERT_EQ(velquare_orienangle_proc_start(), 0);
  EXPECT_EQ(sharedLoad(angleProcRun), 1);
  bool drained = eventually([mic] { return sharedLoad(mic->readBuffPoolNum) > 0; });
  velquare_orienangle_proc_stop();
  usleep(20000);
  std::string out = GetCapturedStdout();
  ASSERT_TRUE(drained) << "the loop runs without the host line";
  EXPECT_THAT(out, HasSubstr("---------------> verison : 2.1\n"));
  EXPECT_THAT(out, HasSubstr("err: audio buff not init Or Audio buff is NULL\n"))
      << "the frame went to the module, which is not up";
  EXPECT_EQ(sharedLoad(gHostCtrl.uartOpened), 0);
  EXPECT_EQ(sharedLoad(gVelquareSpeach.inited), 0u);
  EXPECT_FALSE(angleWorkerActive());
}

TEST(ServiceThread, OpensTheLineStartsTheModuleAndTearsBothDown) {
  Sandbox box;
  int master = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_GE(master, 0);
  ASSERT_EQ(grantpt(master), 0);
  ASSERT_EQ(unlockpt(master), 0);
  ASSERT_EQ(symlink(ptsname(master), box.file("dev/ttyS1").c_str()), 0);
  memset(&gHostCtrl, 0, sizeof gHostCtrl);

  ASSERT_EQ(velquare_orienangle_proc_start(), 0);
  EXPECT_TRUE(eventually([] { return angleWorkerActive(); }));
  EXPECT_EQ(sharedLoad(gHostCtrl.uartOpened), 1);
  EXPECT_EQ(gVelquareSpeach.micNum, 8);
  EXPECT_EQ(gVelquareSpeach.frameSize, 960);
  EXPECT_EQ(gVelquareSpeach.resultCallback, &onAngleResult);

  velquare_orienangle_proc_stop();
  EXPECT_TRUE(eventually([] { return !angleWorkerActive(); }));
  EXPECT_TRUE(eventually([] { return sharedLoad(uartFd) == -1; })) << "the line is closed";
  close(master);
}

}  // namespace
