// The angle service: single loop turns over real capture pools, with the
// test-mode level report, and the log contract of the angle subsystem (the
// service thread runs in the daemon tests).
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <tuple>
#include <vector>

#include "audio/audioprocess.h"
#include "audio/buffpool.h"
#include "edge_config.h"
#include "hostlink/host_protocol.h"
#include "hostlink/uart.h"
#include "orienangle/module/angle_module.h"
#include "orienangle/module/angle_service.h"
#include "orienangle/module/level_meter.h"
#include "support/output_capture.h"
#include "support/pattern.h"
#include "support/pty_line.h"
#include "support/sandbox.h"

namespace {

constexpr int kSamples = LEVEL_FRAME_SAMPLES;

// An interleaved 8-channel frame of constant amplitudes; over a 250-frame period
// A gives 10 log10(48000 A^2): 1000 -> 106, 10 -> 66, 1 -> 46, 0 -> 0.
std::vector<int16_t> loudQuietSilent() {
  const int16_t amplitude[8] = {1000, 10, 1, 0, 1000, 1000, 10, 0};
  std::vector<int16_t> f(kSamples * 8);
  for (int i = 0; i < kSamples * 8; ++i)
    f[i] = static_cast<int16_t>(i / 8 % 2 ? -amplitude[i % 8] : amplitude[i % 8]);
  return f;
}
const std::vector<int16_t> kMic = loudQuietSilent();
const LevelThresholds kCodes = {0, 90, 50};

// Loop turns over the real pools, with the module's rings but no worker.
class ServiceTurn : public testing::Test {
 protected:
  void SetUp() override {
    velquare_orienAngle_uninit();
    memset(&gVelquareSpeach, 0, sizeof gVelquareSpeach);
    ASSERT_TRUE(audioBuffCreate() == 0 && audioBuffSpkinCreate() == 0);
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

// A microphone frame moves only once it is complete; of the line-in one
// channel is handed on (the left one: the end-to-end level report shows which).
TEST_F(ServiceTurn, MovesWholeFramesAndOneLineInChannel) {
  const std::vector<uint8_t> bytes = pattern(ANGLE_SERVICE_MIC_FRAME_BYTES, 1);
  push(mic_, bytes.data(), ANGLE_SERVICE_MIC_FRAME_BYTES - 1);
  angleServiceTurn(&svc_);
  EXPECT_TRUE(gVelquareSpeach.setAudioBuffNum == 0u && mic_->readBuffPoolNum == 0u);
  push(mic_, bytes.data() + ANGLE_SERVICE_MIC_FRAME_BYTES - 1, 1);
  push(line_, bytes.data(), ANGLE_SERVICE_LINE_FRAME_BYTES);
  angleServiceTurn(&svc_);
  EXPECT_EQ(gVelquareSpeach.setAudioBuffNum, static_cast<uint64_t>(ANGLE_SERVICE_MIC_FRAME_BYTES));
  EXPECT_EQ(0, memcmp(gVelquareSpeach.audioBuff, bytes.data(), bytes.size()));
  EXPECT_EQ(gVelquareSpeach.setAudioBuffSpkinNum, static_cast<uint64_t>(ANGLE_SERVICE_REF_BYTES));
}

// The period's level report goes out on the host line from the service turn.
TEST_F(ServiceTurn, TestModeMetersInsteadOfFeedingTheModuleAndSendsTheReport) {
  Sandbox box;
  PtyLine line;
  ASSERT_EQ(uartOpen(QV_SERIAL_DEVICE, 115200, 0, 8, 1, 0), 0);
  gHostCtrl.testMode = 1;
  gHostCtrl.micDBmax = 90;
  gHostCtrl.micDBmin = 50;
  const std::vector<int16_t> stereo(2 * kSamples, 1000);
  stdoutOf([&] {
    for (int i = 0; i < 250; ++i) {
      push(mic_, kMic.data(), ANGLE_SERVICE_MIC_FRAME_BYTES);
      push(line_, stereo.data(), ANGLE_SERVICE_LINE_FRAME_BYTES);
      angleServiceTurn(&svc_);
    }
  });
  EXPECT_TRUE(gVelquareSpeach.setAudioBuffNum == 0u && gVelquareSpeach.setAudioBuffSpkinNum == 0u);
  EXPECT_EQ(line.receiveAll(),
            (Bytes{0xFF, 0x01, 0x20, 0x10, 0x10, 0x01, 0x01, 0x20, 0x10, 0x01, 0x74}));
  uartClose();
}

// The subsystem's console lines, once, exactly: operators and log readers
// depend on them. (The behaviour behind each is tested above and in the
// module tests.)
TEST(AngleLog, EachLineAsTheOperatorsKnowIt) {
  const std::vector<uint8_t> frame(ANGLE_MIC_FRAME_BYTES), ring(ANGLE_RING_BYTES + 1);
  const std::vector<int16_t> line(kSamples, 10);
  LevelMeter m;
  // What happens, the action, the lines it prints.
  const std::tuple<const char *, std::function<void()>, const char *> cases[] = {
      {"init, bad frame size", [] { velquare_orienAngle_init(8, 0, 48000, 16, nullptr); },
       "------err: velquare_orienAngle_init 476 ---> micNum[8], frameSize[0], sampleRate[48000], "
       "bitDepth[16]\n"},
      {"write, no length", [&] { velquare_orienAngle_writeAudioData(frame.data(), 0); },
       "------err: velquare_orienAngle_writeAudioData 301 ---> InputDataLen[0]\n"},
      {"write, no data", [] { velquare_orienAngle_writeAudioData(nullptr, 5); },
       "------err: velquare_orienAngle_writeAudioData 307 ---> input_data[NULL]\n"},
      {"reference, no length", [&] { velquare_orienAngle_writeAudioSpkinData(frame.data(), -3); },
       "------err: velquare_orienAngle_writeAudioSpkinData 322 ---> InputDataLen[-3]\n"},
      {"reference, no data", [] { velquare_orienAngle_writeAudioSpkinData(nullptr, 5); },
       "------err: velquare_orienAngle_writeAudioSpkinData 328 ---> input_data[NULL]\n"},
      {"write, no ring", [&] { velquare_orienAngle_writeAudioData(frame.data(), 1); },
       "err: audio buff not init Or Audio buff is NULL\n"},
      {"reference, no ring", [&] { velquare_orienAngle_writeAudioSpkinData(frame.data(), 1); },
       "err: audio buff Spkin not init Or Audio buff is NULL\n"},
      {"process, no data", [] { velquare_orienAngle_process(nullptr, 5); },
       "------err: velquare_orienAngle_process 104 ---> input_data == NULL\n"},
      {"process, no length", [&] { velquare_orienAngle_process(frame.data(), 0); },
       "------err: velquare_orienAngle_process 109 ---> input_data_len[0]\n"},
      {"ring full",
       [&] {
         audioBuffCreate(), velquare_orienAngle_writeAudioData(ring.data(), ANGLE_RING_BYTES + 1);
       },
       "audio is full, gVelquareSpeach.setAudioBuffNum - gVelquareSpeach.getAudioBuffNum : 0\n"},
      {"reference ring full",
       [&] {
         audioBuffSpkinCreate(),
             velquare_orienAngle_writeAudioSpkinData(ring.data(), ANGLE_RING_BYTES + 1);
       },
       "audio is full, gVelquareSpeach.setAudioBuffSpkinNum - gVelquareSpeach.getAudioBuffSpkinNum "
       ": 0\n"},
      {"init",
       [] { velquare_orienAngle_uninit(), velquare_orienAngle_init(8, 480, 16000, 8, nullptr); },
       "velquare_orienAngle_init : \nmicNum     : 8\nframeSize  : 480\nsampleRate : "
       "16000\nbitDepth   : 8\n"},
      // Leaving test mode restarts the period's count but keeps the sums: 450 frames' energy.
      {"level period",
       [&] {
         levelMeterInit(&m);
         for (int i = 0; i < 450; ++i) {
           levelMeterAddMic(&m, kMic.data(), kCodes);
           if (i == 199) levelMeterSkipMic(&m);
           if (i >= 200) levelMeterAddLine(&m, line.data(), kCodes);
         }
       },
       "\nMDitgitMic(ch1):86400000000.000000, DBVal:109\nMDitgitMic(ch2):8640000.000000, "
       "DBVal:69->lowVolum\n"
       "MDitgitMic(ch3):86400.000000, DBVal:49->noVolum\nMDitgitMic(ch4):0.000000, "
       "DBVal:0->noVolum\n"
       "MDitgitMic(ch5):86400000000.000000, DBVal:109\nMDitgitMic(ch6):86400000000.000000, "
       "DBVal:109\n"
       "MDitgitMic(ch7):8640000.000000, DBVal:69->lowVolum\nMDitgitMic(ch8):0.000000, "
       "DBVal:0->noVolum\n"
       "\nMLineIn:4800000.000000, DBVal:66->lowVolum\n"},
  };
  velquare_orienAngle_uninit();
  memset(&gVelquareSpeach, 0, sizeof gVelquareSpeach);
  for (const auto &[what, act, text] : cases) EXPECT_EQ(stdoutOf(act), text) << what;
  velquare_orienAngle_uninit();
}

}  // namespace
